#include "apps/nordacam/Camera.h"

#include "apps/nordacam/HostChecks.h"

#include "nordalib/core/keys/DefaultParameters.h"
#include "nordalib/core/keys/Keys.h"
#include "nordalib/core/logging/Logger.h"
#include "nordalib/core/utils/FileUtils.h"
#include "nordalib/vision/imgproc/Palettes.h"
#include "nordalib/vision/registration/Registration.h"

#include <filesystem>
#include <fstream>
#include <thread>

namespace nordacam {

using namespace norda::exp;
using namespace norda::exp::streaming;

namespace {

std::string withSlash(std::string dir) {
    if (!dir.empty() && dir.back() != '/')
        dir += '/';
    return dir;
}

} // namespace

std::string defaultCalibrationDir() {
    // The source tree's while developing, the installed copy otherwise.
    const std::string source = std::string(NORDA_SOURCE_DIR_APP) + "/data/calibration/";
    if (norda::utils::existsDirectory(source))
        return source;
    return NORDACAM_INSTALLED_CALIBRATION;
}

Camera::Camera(CameraOptions options) : m_options(std::move(options)), m_settings(m_store) {
    m_options.calibrationDir =
        withSlash(m_options.calibrationDir.empty() ? defaultCalibrationDir() : m_options.calibrationDir);
    if (!m_options.outputDir.empty()) {
        std::error_code ec;
        std::filesystem::create_directories(m_options.outputDir, ec);
        if (!norda::utils::existsDirectory(m_options.outputDir))
            throw SettingsError("output folder " + m_options.outputDir + " can not be created");
        // Find out now, not at the first saved image, whether files can be written there.
        const std::string probe = m_options.outputDir + "/.nordacam-write-test";
        if (!std::ofstream(probe))
            throw SettingsError("output folder " + m_options.outputDir + " is not writable");
        std::filesystem::remove(probe, ec);
    }

    // Parameters: factory defaults, then the user's file, then the command line.
    setDefaultParameters(m_store);
    addHostChecks(m_settings, m_store);
    if (!m_options.settingsFile.empty()) {
        if (norda::utils::existsFile(m_options.settingsFile))
            m_settings.loadFile(m_options.settingsFile);
        m_settings.setPath(m_options.settingsFile);
    }
    for (const auto& assignment : m_options.assignments)
        m_settings.applyAssignment(assignment);
    m_store.flush();
    m_hostCommands = std::make_unique<HostCommands>(m_commands, m_settings);
    m_overlay = std::make_unique<OverlayPublisher>(m_store);

    // The colour table follows the palette name, as the camera's menu does.
    auto applyPalette = [this](const std::string& name) {
        if (norda::vision::Palettes::exists(name))
            m_store.setValue(Id::Palette::Colors, norda::vision::Palettes::colors(name), true);
        else
            norda::logging::Logger::createSharedLogger("NORDACAM", true)
                ->log(norda::logging::LogLevel::warning, "unknown palette {}", name);
    };
    applyPalette(m_store.getValue<std::string>(Id::Palette::ActivePalette));
    m_paletteSubscription = m_store.subscribeValue<std::string>(Id::Palette::ActivePalette, applyPalette);

    if (m_options.inputFile.empty() && !m_options.frameSource) {
        m_sim = std::make_unique<sim::SceneSimulator>(m_store, m_options.sim);
        // The detector's size, for the elements that size their tables before the first frame.
        m_store.setValue(Id::IrImage::Cols, static_cast<unsigned short>(m_options.sim.width), true);
        m_store.setValue(Id::IrImage::Rows, static_cast<unsigned short>(m_options.sim.height), true);
    }
    if (m_sim && m_options.visual) {
        auto v = m_options.visualSim;
        v.fps = m_options.sim.fps;
        v.infraredLagFrames = m_options.sim.infraredLagFrames;
        v.uptimeStartMs = m_options.sim.uptimeStartMs;
        m_visual = std::make_unique<sim::VisualCamera>(m_store, m_sim->scene(), v);
        // The live stream at 640 x 480; the image buffer's depth from the infrared path's lag:
        // latency / frame period = lag + 1 frames deep, which delays by lag cycles.
        m_store.setValue(Id::Viscam::CurrentImageResolution, Id::Viscam::Resolution::Vga, true);
        m_store.setValue(Id::Viscam::MaximumImageLatency,
                         float((v.infraredLagFrames + 1.5) * 1000.0 / m_options.sim.fps), true);
    }
    m_store.setValue(Id::Registration::CalibrationFile,
                     m_options.calibrationDir + norda::vision::Registration::kFileName, true);
    m_follower = std::make_unique<MeasRangeFollower>(m_store, [this](unsigned char range) {
        if (m_sim)
            m_sim->setRange(range);
    });
    m_store.flush();

    m_snapshot = std::make_unique<LiveSnapshot>(m_store, m_sim.get(), m_visual != nullptr);
    m_chain = std::make_unique<ChainBuilder>(
        ChainBuilder::Parts{m_options, m_store, m_commands, m_sim.get(), m_visual.get(),
                            m_options.streams ? &m_streams : nullptr, *m_overlay},
        m_pipeline);
    m_chain->build();
    m_pipeline.setCycleObserver([this](const FrameMap& frames, uint64_t cycle) {
        {
            std::lock_guard<std::mutex> tapLock(m_tapMutex);
            if (m_frameTap)
                m_frameTap(frames);
        }
        m_snapshot->onCycle(frames, cycle);
    });
    if (m_sim && m_options.realTime)
        m_pipeline.setMinimumCyclePeriod(
            std::chrono::microseconds(static_cast<long long>(1e6 / m_options.sim.fps)));
}

void Camera::setFrameTap(std::function<void(const FrameMap&)> tap) {
    std::lock_guard<std::mutex> lock(m_tapMutex);
    m_frameTap = std::move(tap);
}

Camera::~Camera() {
    // The chain hands its frames to the overlay publisher (OverlayFrameTap): stop it first.
    m_streams.close();
    m_pipeline.stop();
    m_overlay.reset();
    m_paletteSubscription.reset();
    m_store.flush();
}

void Camera::start(uint64_t cycles) {
    m_pipeline.startThread(cycles);
}

void Camera::stop() {
    m_pipeline.stop();
}

void Camera::runCycle() {
    m_pipeline.runCycle();
}

Snapshot Camera::snapshot() const {
    return m_snapshot->get();
}

float Camera::temperatureAt(int x, int y) const {
    return m_snapshot->temperatureAt(x, y);
}

unsigned short Camera::rawAt(int x, int y) const {
    return m_chain->rawAt(x, y);
}

bool Camera::has(const std::string& elementType) const {
    return m_chain->has(elementType);
}

std::string Camera::saveImage(std::chrono::milliseconds timeout) {
    // The image writer hands gallery frames back instead of saving them.
    if (const auto shown = m_store.getValue<std::string>(Id::Gallery::ActiveFilename); !shown.empty())
        throw std::runtime_error(
            "the saved image " + shown +
            " is shown: go back to the live image to save, or save the shown one as a new file");
    const unsigned int before = m_store.getValue<unsigned int>(Id::Miscellaneous::ImageCounter);
    m_commands.call(kImageWriteCallable, "TriggerImageSave", cmd::ParameterPack{makeVariant(false)});
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (std::chrono::steady_clock::now() < deadline) {
        const auto name = m_store.getValue<std::string>(Id::Miscellaneous::LastImageFileName);
        if (!name.empty() && m_store.getValue<unsigned int>(Id::Miscellaneous::ImageCounter) != before)
            return name;
        if (!m_pipeline.isRunning())
            m_pipeline.runCycle();
        else
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    throw std::runtime_error("the image was not saved within " + std::to_string(timeout.count()) + " ms");
}

std::vector<char> Camera::captureImage() {
    auto result = m_commands.call(kImageWriteCallable, "CaptureImage", cmd::ParameterPack{});
    if (!result)
        return {};
    return result->value<std::vector<char>>();
}

void Camera::startRecording(const std::string& fileName, unsigned long long frames) {
    m_commands.call(kRecorderName, "Start",
                    cmd::ParameterPack{makeVariant(fileName),
                                       makeVariant(static_cast<unsigned long long>(frames)),
                                       makeVariant(static_cast<unsigned short>(0)), makeVariant(false)});
    m_chain->recordingStarted(frames);
}

void Camera::stopRecording() {
    m_commands.call(kRecorderName, "Stop", cmd::ParameterPack{});
}

} // namespace nordacam
