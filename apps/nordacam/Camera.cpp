#include "apps/nordacam/Camera.h"

#include "apps/nordacam/OverlayFrameTap.h"
#include "apps/nordacam/PlaybackMetadataElement.h"
#include "apps/nordacam/TeeElement.h"
#include "apps/nordacam/VisualStillElement.h"

#include "nordalib/core/datatypes/Quantity.h"
#include "nordalib/core/exception/Exception.h"
#include "nordalib/core/keys/DefaultParameters.h"
#include "nordalib/core/keys/Keys.h"
#include "nordalib/core/logging/Logger.h"
#include "nordalib/core/utils/FileUtils.h"
#include "nordalib/vision/radiometry/RadiometricTools.h"
#include "nordalib/vision/registration/Fusion.h"
#include "nordalib/vision/registration/Registration.h"

// The elements of the chain.
#include "nordalib/vision/imageio/PxmEncoder.h"
#include "nordalib/vision/imgproc/Palettes.h"
#include "nordalib/vision/streaming/BadPixelElement.h"
#include "nordalib/vision/streaming/CaptureElement.h"
#include "nordalib/vision/streaming/CoordinateValueElement.h"
#include "nordalib/vision/streaming/DetectLaserPositionElement.h"
#include "nordalib/vision/streaming/DistortionElement.h"
#include "nordalib/vision/streaming/EmissionMarkerElement.h"
#include "nordalib/vision/streaming/FileReaderElement.h"
#include "nordalib/vision/streaming/FusionElement.h"
#include "nordalib/vision/streaming/ImageBufferElement.h"
#include "nordalib/vision/streaming/ImageReadElement.h"
#include "nordalib/vision/streaming/ImageWriteElement.h"
#include "nordalib/vision/streaming/MinMaxExtractionElement.h"
#include "nordalib/vision/streaming/OffsetElement.h"
#include "nordalib/vision/streaming/PaletteElement.h"
#include "nordalib/vision/streaming/PxmRecorderElement.h"
#include "nordalib/vision/streaming/RadiometryElement.h"
#include "nordalib/vision/streaming/SnrElement.h"
#include "nordalib/vision/streaming/SocketServerElement.h"
#include "nordalib/vision/streaming/SprElement.h"
#include "nordalib/vision/streaming/StoreStampElement.h"
#include "nordalib/vision/streaming/TnrElement.h"
#include "nordalib/vision/streaming/UserMeasurementElement.h"

#include <fmt/format.h>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <thread>

namespace nordacam {

using namespace norda::exp;
using namespace norda::exp::streaming;
using Temp = quantity::Temperature<MarkedFloat>;

namespace {

// The values the display and image-saving elements take from the frame rather than the store.
// (Built per camera, not kept in function-local statics: the process's exit handlers destroy those.)
std::vector<std::string> displayKeys() {
    std::vector<std::string> k = PaletteElement::metadataKeys();
    k.insert(k.end(), {Id::Scaling::TempMin, Id::Scaling::TempMax, Id::MeasPoints::CenterSpot::MeasPoint});
    // What the overlay of a saved image shows besides the results the measurement stamps.
    k.insert(k.end(), {Id::MeasPoints::HotSpot::Visible, Id::MeasPoints::ColdSpot::Visible,
                       Id::MeasPoints::CenterSpot::Visible, Id::MeasPoints::LaserSpot::Visible,
                       Id::MeasPoints::LaserSpot::MeasPoint, Id::MeasPoints::DeltaT1::MeasPoint,
                       Id::MeasPoints::DeltaT2::MeasPoint, Id::DeltaT::Mode});
    return k;
}

// Metadata saved into every image as generic entries.
std::vector<std::string> savedKeys() {
    std::vector<std::string> k = {Id::ActiveMeasRange::Name, Id::Environment::Humidity,
                                  Id::Environment::Temperature, Id::Temperatures::Current::TBoardSens50,
                                  Id::ActiveLens::Serial, Id::DeviceInfo::Uptime,
                                  Id::MeasPoints::HotSpot::MeasPoint, Id::MeasPoints::ColdSpot::MeasPoint,
                                  Id::MeasPoints::CenterSpot::MeasPoint, Id::MeasAreas::CenterArea::MeasArea,
                                  Id::Palette::ActivePalette,
                                  // what re-analysing the image later needs
                                  Id::Radiometry::Planck, Id::ProtectiveGlass::Attached,
                                  Id::ProtectiveGlass::Transmission, Id::ProtectiveGlass::Emissivity};
    // The user's measurement set-up with its results and local parameters, and what the
    // overlay of the image shows, so that a re-analysed copy looks like the original.
    for (int i = 1; i <= 5; ++i)
        for (const char* item :
             {"Visible", "Position", "MeasPoint", "LocalParameters", "Emissivity", "ReflectedTemperature"})
            k.push_back("MeasPoints.MeasPoint" + std::to_string(i) + "." + item);
    for (int i = 1; i <= 3; ++i)
        for (const char* item :
             {"Visible", "Rect", "MeasArea", "LocalParameters", "Emissivity", "ReflectedTemperature"})
            k.push_back("MeasAreas.UserArea" + std::to_string(i) + "." + item);
    for (const auto* key :
         {&Id::DeltaT::Active, &Id::DeltaT::First, &Id::DeltaT::Second, &Id::DeltaT::Difference})
        k.push_back(*key);
    for (const auto& key : displayKeys())
        if (key != Id::Palette::Colors && std::find(k.begin(), k.end(), key) == k.end())
            k.push_back(key);
    return k;
}

std::string withSlash(std::string dir) {
    if (!dir.empty() && dir.back() != '/')
        dir += '/';
    return dir;
}

// The measurement range's borders besides `keys`: stamped into the frames and saved with every
// image, for the validity marks of a later re-analysis.
std::vector<std::string> withRangeBorders(std::vector<std::string> keys) {
    keys.insert(keys.end(), {Id::ActiveMeasRange::ToleranceTop, Id::ActiveMeasRange::ToleranceBottom,
                             Id::ActiveMeasRange::DisplayTop, Id::ActiveMeasRange::DisplayBottom});
    return keys;
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
    m_settings.addCheck(Id::Scaling::Mode, [](const Variant& v) {
        const auto& mode = v.value<std::string>();
        return mode == Id::Scaling::Auto || mode == Id::Scaling::Manual || mode == Id::Scaling::AutoSpanHint
                   ? std::string()
                   : "\"" + mode + "\" is not a scaling mode (Auto, Manual, AutoSpanHint)";
    });
    m_settings.addCheck(Id::Fusion::Mode, [](const Variant& v) {
        try {
            norda::vision::Fusion::modeOf(v.value<std::string>());
            return std::string();
        } catch (const std::exception& e) {
            return std::string(e.what());
        }
    });
    m_settings.addCheck(Id::ActiveMeasRange::Name, [this](const Variant& v) {
        const auto number = std::to_string(v.value<unsigned char>());
        return m_store.getValue<DataStorage<std::string>>(Id::MeasRangePool).contains(number)
                   ? std::string()
                   : "measurement range " + number + " is not defined";
    });
    m_settings.addCheck(Id::Palette::ActivePalette, [](const Variant& v) {
        const auto& name = v.value<std::string>();
        std::string names;
        for (const auto& n : norda::vision::Palettes::names())
            names += (names.empty() ? "" : ", ") + n;
        return norda::vision::Palettes::exists(name) ? std::string()
                                                     : "unknown palette \"" + name + "\" (" + names + ")";
    });
    addMeasurementChecks();
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

    if (m_options.inputFile.empty()) {
        m_sim = std::make_unique<sim::SceneSimulator>(m_store, m_options.sim,
                                                      sim::makeResponse(m_options.calibrationDir));
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

    buildChain();
    m_pipeline.setCycleObserver([this](const FrameMap& frames, uint64_t cycle) { onCycle(frames, cycle); });
    if (m_sim && m_options.realTime)
        m_pipeline.setMinimumCyclePeriod(
            std::chrono::microseconds(static_cast<long long>(1e6 / m_options.sim.fps)));
}

Camera::~Camera() {
    m_overlay.reset();
    m_mjpegHub.close();
    m_pxmHub.close();
    m_pipeline.stop();
    m_paletteSubscription.reset();
    m_store.flush();
}

// Object parameters, the humidity mode's inputs and the user's points and areas: a value out of
// range is refused with a message naming the setting, and the last good value stays.
void Camera::addMeasurementChecks() {
    auto between = [](double lo, bool loOpen, double hi, const std::string& what) {
        return [=](const Variant& v) {
            const double x = v.holds<float>() ? v.value<float>() : v.value<Temp>().celsius();
            if ((loOpen ? x > lo : x >= lo) && x <= hi)
                return std::string();
            return fmt::format("{} must lie in {}{}, {}] (got {})", what, loOpen ? "(" : "[", lo, hi, x);
        };
    };
    const auto emissivity = between(0.0, true, 1.0, "an emissivity");
    const auto reflected = between(-100.0, false, 1000.0, "a reflected temperature in °C");
    m_settings.addCheck(Id::Environment::EmissivityValue, emissivity);
    m_settings.addCheck(Id::Gallery::Reanalysis::Emissivity, emissivity);
    m_settings.addCheck(Id::Environment::ReflectedTemperature, reflected);
    m_settings.addCheck(Id::Gallery::Reanalysis::ReflectedTemperature, reflected);
    m_settings.addCheck(Id::Environment::Temperature,
                        between(-45.0, false, 60.0, "the air temperature in °C"));
    m_settings.addCheck(Id::Environment::Humidity, [](const Variant& v) {
        const float rh = v.value<quantity::Relation<MarkedFloat>>().getValue().toFloat();
        return rh >= 0.0f && rh <= 1.0f
                   ? std::string()
                   : fmt::format("a relative humidity must lie in [0, 100] % (got {} %)", rh * 100.0f);
    });
    m_settings.addCheck(Id::ProtectiveGlass::Transmission, between(0.0, true, 1.0, "a transmission"));
    m_settings.addCheck(Id::ProtectiveGlass::Emissivity, between(-1e-9, true, 0.999, "the glass emissivity"));
    auto inImage = [this](const cv::Rect& r) {
        const int w = m_store.getValue<unsigned short>(Id::IrImage::Cols),
                  h = m_store.getValue<unsigned short>(Id::IrImage::Rows);
        return r.width > 0 && r.height > 0 && r.x >= 0 && r.y >= 0 && r.x + r.width <= w &&
                       r.y + r.height <= h
                   ? std::string()
                   : fmt::format("({}, {}, {} x {}) does not lie inside the {} x {} image", r.x, r.y, r.width,
                                 r.height, w, h);
    };
    for (int i = 1; i <= 5; ++i) {
        const std::string prefix = "MeasPoints.MeasPoint" + std::to_string(i);
        m_settings.addCheck(prefix + ".Emissivity", emissivity);
        m_settings.addCheck(prefix + ".ReflectedTemperature", reflected);
    }
    for (const char* p : {"MeasPoint1", "MeasPoint2", "MeasPoint3", "MeasPoint4", "MeasPoint5", "DeltaT1",
                          "DeltaT2", "CenterSpot", "LaserSpot"})
        m_settings.addCheck(std::string("MeasPoints.") + p + ".Position", [inImage](const Variant& v) {
            const auto pt = v.value<cv::Point_<int>>();
            return inImage(cv::Rect(pt.x, pt.y, 1, 1));
        });
    for (int i = 1; i <= 3; ++i) {
        const std::string prefix = "MeasAreas.UserArea" + std::to_string(i);
        m_settings.addCheck(prefix + ".Emissivity", emissivity);
        m_settings.addCheck(prefix + ".ReflectedTemperature", reflected);
        m_settings.addCheck(prefix + ".Rect",
                            [inImage](const Variant& v) { return inImage(v.value<cv::Rect_<int>>()); });
    }
    for (const auto* key : {&Id::DeltaT::First, &Id::DeltaT::Second})
        m_settings.addCheck(*key, [](const Variant& v) {
            const auto& names = UserMeasurementElement::kResultNames;
            const auto& name = v.value<std::string>();
            std::string all;
            for (const auto n : names)
                (all += all.empty() ? "" : ", ") += n;
            return std::find(std::begin(names), std::end(names), name) != std::end(names)
                       ? std::string()
                       : "\"" + name + "\" is no result (" + all + ")";
        });
}

void Camera::addStage(const std::string& type, std::unique_ptr<StreamingElement> element,
                      const std::string& role, std::vector<STREAMING_DATATYPE> optional,
                      Pipeline::RunCondition condition) {
    m_stages.push_back({type, element->getName(), role});
    m_pipeline.add(std::move(element), std::move(optional), std::move(condition));
}

std::unique_ptr<Frame> Camera::nextVisual() {
    auto frame = m_visual->nextLive();
    if (frame) {
        m_cyclesWithoutVisual = 0;
        m_lastVisual = frame->getFrameData();
        m_lastVisualMeta = frame->getMetaData();
        return frame;
    }
    // A frame the camera did not deliver: the last one again (its time stamp tells the elements
    // that it is old), so that the image buffer stays in step; after half a second, nothing.
    if (++m_cyclesWithoutVisual <= 15 && !m_lastVisual.empty())
        return std::make_unique<Frame>(m_lastVisual, DataStorage<std::string>(m_lastVisualMeta));
    return nullptr;
}

void Camera::addVisualSources() {
    auto live = std::make_unique<CaptureElement>(STREAMING_DATATYPE_YUV422, [this] { return nextVisual(); });
    live->setName("VisualCapture");
    addStage("CaptureElement", std::move(live), "frame source: simulated visual camera (live)");
    auto still = std::make_unique<CaptureElement>(STREAMING_DATATYPE_YUV422_HIRES,
                                                  [this] { return m_visual->nextStill(); });
    still->setName("StillCapture");
    addStage("CaptureElement", std::move(still), "frame source: simulated visual camera (stills)");
}

void Camera::addImageWriter() {
    std::string folder = withSlash(m_options.outputDir.empty() ? std::string("./") : m_options.outputDir);
    folder.pop_back();
    const auto slot =
        m_options.highResolutionStills ? STREAMING_DATATYPE_YUV422_HIRES : STREAMING_DATATYPE_YUV422;
    if (m_visual && m_options.highResolutionStills)
        addStage("VisualStillElement", std::make_unique<VisualStillElement>(),
                 "still instead of the live frame");
    // While the visual camera delivers, an image waits for a cycle with a visual frame (the image
    // buffer refills for a few cycles after the camera changed its resolution); without one, images
    // are saved without.
    Pipeline::RunCondition condition;
    if (m_visual)
        condition = [this](const FrameMap& frames) {
            auto has = [&](STREAMING_DATATYPE s) {
                auto it = frames.find(s);
                return it != frames.end() && it->second;
            };
            return m_cyclesWithoutVisual > 15 || has(STREAMING_DATATYPE_YUV422) ||
                   has(STREAMING_DATATYPE_YUV422_HIRES);
        };
    addStage("ImageWriteElement",
             std::make_unique<ImageWriteElement>(
                 folder, &m_store, &m_commands, withRangeBorders(savedKeys()),
                 [](DataStorage<std::string>) {}, 0, m_srFlag, slot),
             "image saving", {slot}, std::move(condition));
}

bool Camera::has(const std::string& element) const {
    for (const auto& s : m_stages)
        if (s.type == element)
            return true;
    return false;
}

void Camera::buildChain() {
    const std::string& calib = m_options.calibrationDir;
    // Interchangeable lenses: per-lens transmission and distortion tables.
    const auto camType = norda::vision::RadiometricCamTypeB;

    // Source.
    if (m_sim) {
        addStage(
            "CaptureElement",
            std::make_unique<CaptureElement>(STREAMING_DATATYPE_RAW, [this] { return m_sim->nextFrame(); }),
            "frame source: simulated detector");
        if (m_visual)
            addVisualSources();
    } else {
        if (!norda::utils::existsFile(m_options.inputFile))
            throw SettingsError("input file " + m_options.inputFile + " does not exist");
        auto recorded = PlaybackMetadataElement::readRecording(m_options.inputFile);
        if (recorded.empty())
            throw SettingsError("input file " + m_options.inputFile + " holds no frame");
        addStage("FileReaderElement", std::make_unique<FileReaderElement>(m_options.inputFile),
                 "frame source: recording");
        addStage("PlaybackMetadataElement",
                 std::make_unique<PlaybackMetadataElement>(m_store, std::move(recorded)),
                 "recorded metadata of the played frames");
    }

    // Taps on the raw frames, before the offset element takes their metadata.
    // The recorder takes a copy in the otherwise unused slot 1 (see TeeElement).
    const auto recordSlot = static_cast<STREAMING_DATATYPE>(1);
    addStage("TeeElement", std::make_unique<TeeElement>(STREAMING_DATATYPE_RAW, recordSlot, "RawCopy"),
             "raw frame copy");
    addStage("PxmRecorderElement",
             std::make_unique<PxmRecorderElement>(
                 recordSlot, kRecorderName, m_commands, [this](bool on) { m_recording = on; },
                 [this](unsigned long long remaining) { m_recordRemaining = remaining; }),
             "raw recording");
    {
        auto element = std::make_unique<CoordinateValueElement>();
        auto* raw = element.get();
        m_rawLookup = [raw](unsigned short x, unsigned short y) { return raw->valuefromCoordinate(x, y); };
        addStage("CoordinateValueElement", std::move(element), "raw value lookup");
    }

    // Sensor correction.
    addStage("OffsetElement", std::make_unique<OffsetElement>(&m_store, calib, nullptr), "offset correction");
    addStage("BadPixelElement",
             std::make_unique<BadPixelElement>(&m_store, "BadPixelElement", STREAMING_DATATYPE_CORRECTED),
             "bad-pixel replacement");
    addStage("TnrElement", std::make_unique<TnrElement>(&m_store), "temporal noise reduction");
    addStage("SprElement", std::make_unique<SprElement>(&m_store), "static pattern removal");
    addStage("SnrElement", std::make_unique<SnrElement>(&m_store), "spatial noise removal");
    // The two filters take their settings only when a key is written: writing the store's values
    // again makes them run what the store shows.
    for (const std::string& key :
         {Id::SprElement::Threshold, Id::SprElement::LineLimit, Id::SprElement::FrameLimit})
        m_store.set(key, m_store.get(key), true);
    m_store.flush();
    addStage("RadiometryElement", std::make_unique<RadiometryElement>(&m_store, calib, camType),
             "radiometry");
    addStage("DistortionElement", std::make_unique<DistortionElement>(&m_store, calib, camType),
             "lens distortion");
    if (m_visual)
        addStage("ImageBufferElement",
                 std::make_unique<ImageBufferElement>(8, STREAMING_DATATYPE_YUV422, &m_store),
                 "visual frames delayed to the infrared frames' moment");
    // A saved image opened in the gallery takes the live frame's place from here on.
    addStage("ImageReadElement",
             std::make_unique<ImageReadElement>(&m_store,
                                                m_options.outputDir.empty() ? "." : m_options.outputDir,
                                                std::vector<std::string>{}, 0, STREAMING_DATATYPE_YUV422),
             "saved image from the gallery");
    if (m_visual)
        addStage("DetectLaserPositionElement",
                 std::make_unique<DetectLaserPositionElement>(&m_store, STREAMING_DATATYPE_YUV422),
                 "laser spot into the infrared image", {STREAMING_DATATYPE_YUV422, STREAMING_DATATYPE_RAD});

    // Measurement and display.
    addStage("MinMaxExtractionElement",
             std::make_unique<MinMaxExtractionElement>(&m_store, STREAMING_DATATYPE_RAD, false),
             "measurement, range automatics, scaling");
    addStage("UserMeasurementElement", std::make_unique<UserMeasurementElement>(&m_store),
             "user points, areas, delta-T, local parameters");
    addStage("StoreStampElement",
             std::make_unique<StoreStampElement>(m_store, STREAMING_DATATYPE_RAD_CONST,
                                                 withRangeBorders(displayKeys()), "DisplaySettings"),
             "display settings into the frame");
    if (m_visual)
        addStage("EmissionMarkerElement",
                 std::make_unique<EmissionMarkerElement>(&m_store, 8, 10, STREAMING_DATATYPE_YUV422),
                 "emissivity from a reference label", {STREAMING_DATATYPE_YUV422});
    // The radiometric stream sends the frame before the palette moves its metadata on.
    if (m_options.streams)
        addStage("SocketServerElement",
                 std::make_unique<SocketServerElement>(
                     STREAMING_DATATYPE_RAD_CONST, [this](Frame& f, unsigned long long, bool) { sendPxm(f); },
                     m_commands, kPxmStreamName, 0),
                 "radiometric stream");
    addStage("PaletteElement", std::make_unique<PaletteElement>(false), "palette");
    addStage("OverlayFrameTap", std::make_unique<OverlayFrameTap>(*m_overlay),
             "the frame an image is saved from, for its overlay");
    addImageWriter();
    if (m_visual)
        addStage("FusionElement", std::make_unique<FusionElement>(&m_store, STREAMING_DATATYPE_YUV422),
                 "visual image into the display (Fusion.Mode)");

    // Sinks.
    if (m_options.streams) {
        addStage("SocketServerElement",
                 std::make_unique<SocketServerElement>(
                     STREAMING_DATATYPE_RGB, [this](Frame& f, unsigned long long, bool) { sendJpeg(f); },
                     m_commands, kMjpegStreamName, 0),
                 "display stream");
        // A stream runs while someone watches it.
        auto demand = [this](const std::string& callable) {
            return [this, callable](bool on) {
                try {
                    if (on)
                        m_commands.call(callable, "Start", cmd::ParameterPack{makeVariant(0u)});
                    else
                        m_commands.call(callable, "Stop", cmd::ParameterPack{});
                } catch (const std::exception& e) {
                    norda::logging::Logger::createSharedLogger("NORDACAM", true)
                        ->log(norda::logging::LogLevel::error, "stream {}: {}", callable, e.what());
                }
            };
        };
        m_mjpegHub.setDemandCallback(demand(kMjpegStreamName));
        m_pxmHub.setDemandCallback(demand(kPxmStreamName));
    }
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

void Camera::onCycle(const FrameMap& frames, uint64_t cycle) {
    const auto now = std::chrono::steady_clock::now();
    if (m_lastCycleTime.time_since_epoch().count() != 0) {
        const double dt = std::chrono::duration<double>(now - m_lastCycleTime).count();
        if (dt > 0)
            m_fps = m_fps == 0.0 ? 1.0 / dt : 0.9 * m_fps + 0.1 / dt;
    }
    m_lastCycleTime = now;

    auto find = [&](STREAMING_DATATYPE slot) -> const Frame* {
        auto it = frames.find(slot);
        return it != frames.end() && it->second ? it->second.get() : nullptr;
    };
    const Frame* rad = find(STREAMING_DATATYPE_RAD_CONST);
    if (!rad)
        rad = find(STREAMING_DATATYPE_RAD);
    const Frame* rgb = find(STREAMING_DATATYPE_RGB);

    std::lock_guard<std::mutex> lock(m_snapshotMutex);
    m_snapshot.cycle = cycle;
    m_snapshot.fps = m_fps;
    if (rad && !rad->getFrameData().empty()) {
        m_snapshot.rad = rad->getFrameData().clone();
        // The palette moves the metadata on to the display image.
        m_snapshot.meta = rgb && rad->getMetaData().size() == 0 ? rgb->getMetaData() : rad->getMetaData();
        auto counter = m_snapshot.meta.getVariant("FrameCnt");
        if (counter && counter->holds<unsigned long long>())
            m_snapshot.frame = counter->value<unsigned long long>();
        if (m_sim)
            m_snapshot.truth = m_sim->truth();
        // The visual camera's results of the same cycle as the truth.
        if (m_visual) {
            m_snapshot.laserVisible = m_store.getValue<bool>(Id::MeasPoints::LaserSpot::Visible);
            m_snapshot.laser = m_store.getValue<cv::Point_<int>>(Id::MeasPoints::LaserSpot::Position);
            const auto position = m_store.getValue<std::vector<double>>(Id::Laser::InfraredPosition);
            if (position.size() == 2)
                m_snapshot.laserPosition = {position[0], position[1]};
            m_snapshot.laserDistance = m_store.getValue<float>(Id::Laser::Distance);
            m_snapshot.markerStatus = m_store.getValue<std::string>(Id::EmissionMarker::Status);
            m_snapshot.markerEmissivity =
                m_store.getValue<quantity::Relation<MarkedFloat>>(Id::EmissionMarker::Emissivity)
                    .getValue()
                    .toFloat();
            m_snapshot.markerRect = m_store.getValue<cv::Rect_<int>>(Id::EmissionMarker::Rect);
        }
    }
    if (rgb && !rgb->getFrameData().empty())
        m_snapshot.rgb = rgb->getFrameData().clone();
    if (const Frame* visual = find(STREAMING_DATATYPE_YUV422))
        m_snapshot.visual = visual->getFrameData(); // never written into again: shared, not copied
}

Camera::Snapshot Camera::snapshot() const {
    std::lock_guard<std::mutex> lock(m_snapshotMutex);
    return m_snapshot;
}

float Camera::temperatureAt(int x, int y) const {
    std::lock_guard<std::mutex> lock(m_snapshotMutex);
    const cv::Mat& rad = m_snapshot.rad;
    if (rad.empty())
        throw NotAvailable("a radiometric frame");
    if (x < 0 || y < 0 || x >= rad.cols || y >= rad.rows)
        throw std::out_of_range("position " + std::to_string(x) + "," + std::to_string(y) +
                                " is outside the " + std::to_string(rad.cols) + "x" +
                                std::to_string(rad.rows) + " image");
    return norda::vision::RadiometricTools::getFloat(rad.at<uint16_t>(y, x));
}

unsigned short Camera::rawAt(int x, int y) const {
    return m_rawLookup(static_cast<unsigned short>(std::max(0, x)),
                       static_cast<unsigned short>(std::max(0, y)));
}

void Camera::sendJpeg(Frame& frame) {
    const cv::Mat& rgb = frame.getFrameData();
    if (rgb.empty())
        return;
    cv::Mat bgr;
    cv::cvtColor(rgb, bgr, cv::COLOR_RGB2BGR);
    std::vector<uchar> jpeg;
    cv::imencode(".jpg", bgr, jpeg, {cv::IMWRITE_JPEG_QUALITY, 85});
    m_mjpegHub.publish(std::make_shared<const std::string>(jpeg.begin(), jpeg.end()));
}

void Camera::sendPxm(Frame& frame) {
    norda::vision::PxmEncoder encoder;
    auto encoded = encoder.encode(frame.getFrameData(), &frame.getMetaData());
    auto data = std::make_shared<std::string>(*encoded.header);
    data->append(reinterpret_cast<const char*>(encoded.payload), encoded.payloadSize);
    m_pxmHub.publish(std::move(data));
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
    m_recording = true;
    m_recordRemaining = frames;
}

void Camera::stopRecording() {
    m_commands.call(kRecorderName, "Stop", cmd::ParameterPack{});
}

} // namespace nordacam
