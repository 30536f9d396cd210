#include "apps/nordacam/Demo.h"

#include "apps/nordacam/Measure.h"
#include "apps/nordacam/ReflectedTemperatureFigure.h"
#include "apps/nordacam/RtspStreams.h"
#include "apps/nordacam/TruthFigures.h"

#include "nordalib/core/datatypes/Quantity.h"
#include "nordalib/core/keys/DefaultParameters.h"
#include "nordalib/core/keys/Keys.h"
#include "nordalib/core/utils/FileUtils.h"

#include "nordalib/vision/imageio/ImageIO.h"
#include "nordalib/vision/registration/Registration.h"

#include <fmt/format.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <csignal>
#include <ctime>
#include <filesystem>
#include <iostream>
#include <map>
#include <set>
#include <thread>
#include <unistd.h>

namespace nordacam {

using namespace norda::exp;
using Temp = quantity::Temperature<MarkedFloat>;
namespace fs = std::filesystem;

namespace {

std::string bar(double fraction, int width) {
    const int full = static_cast<int>(std::clamp(fraction, 0.0, 1.0) * width);
    std::string text(width + 2, '.');
    text.front() = '[';
    text.back() = ']';
    std::fill_n(text.begin() + 1, full, '#');
    return text;
}

std::string temp(const SpotReading& s) {
    if (!s.valid)
        return "--";
    return fmt::format("{:.1f}°C{}", s.celsius,
                       s.mark == 0   ? ""
                       : s.mark == 5 ? "↑"
                       : s.mark == 3 ? "↓"
                                     : "~");
}

std::map<std::string, fs::file_time_type> listFiles(const std::string& dir) {
    std::map<std::string, fs::file_time_type> files;
    std::error_code ec;
    for (const auto& entry : fs::directory_iterator(dir, ec))
        if (entry.is_regular_file())
            files[entry.path().filename().string()] = entry.last_write_time();
    return files;
}

// "20261121-103141": recordings of different runs do not overwrite each other.
std::string fileStamp() {
    const std::time_t now = std::time(nullptr);
    std::tm tm{};
    localtime_r(&now, &tm);
    char buf[32];
    std::strftime(buf, sizeof buf, "%Y%m%d-%H%M%S", &tm);
    return buf;
}

std::atomic<bool> g_interrupted{false};
void onInterrupt(int) {
    g_interrupted = true;
}

struct Accuracy {
    struct Sums {
        double sum = 0, worst = 0;
        int n = 0;
        float lastTrue = 0, lastMeasured = 0;
        void add(float measured, float truth) {
            const double e = measured - truth;
            sum += e;
            worst = std::max(worst, std::abs(e));
            ++n;
            lastTrue = truth;
            lastMeasured = measured;
        }
        double mean() const { return n ? sum / n : 0.0; }
    };
    std::map<std::string, Sums> objects;
    Sums hotSpot, centreSpot;
    unsigned long long lastFrame = ~0ull, lastVisualFrame = ~0ull;
    // The visual camera: laser error per distance (infrared pixels), emissivity per plate.
    std::map<double, Sums> laser;
    std::map<double, int> laserMissed;
    std::map<std::string, Sums> emissivity;
};

// Where the registration file puts visual pixels against where the simulated rig shows them,
// over the infrared image at each distance: the worst error in infrared pixels.
std::map<double, double> registrationErrors(Camera& camera) {
    std::map<double, double> out;
    const auto& scene = camera.simulator()->scene();
    norda::vision::Registration reg;
    try {
        reg = norda::vision::Registration::load(
            camera.store().getValue<std::string>(Id::Registration::CalibrationFile));
    } catch (const std::exception&) {
        return out;
    }
    const cv::Size live(640, 480);
    for (double d : {0.5, 1.0, 2.0, 5.0, 10.0}) {
        double worst = 0;
        for (int y = 20; y < 480; y += 55)
            for (int x = 20; x < 640; x += 60) {
                const cv::Point3d p((x - 319.5) / 560.0 * d, (y - 239.5) / 560.0 * d, d);
                const cv::Point2d truthIr = scene.project(p);
                const cv::Point2d seen = camera.visualCamera()->projectTruth(p, live);
                worst =
                    std::max(worst, cv::norm(reg.visualToInfrared(seen, d, live, scene.size()) - truthIr));
            }
        out[d] = worst;
    }
    return out;
}

} // namespace

int runLive(const RunOptions& options, std::ostream& out) {
    CameraOptions cameraOptions = options.camera;
    cameraOptions.rtsp = options.rtspPort >= 0;
    Camera camera(cameraOptions);
    const auto rtsp = startRtsp(camera, "127.0.0.1", options.rtspPort, out);
    const bool simulated = camera.simulator() != nullptr;
    ReflectedTemperatureFigure reflected(camera);
    out << "nordacam: " << (simulated ? "simulated 640x480 camera" : "recording " + options.camera.inputFile)
        << ", " << options.frames << " frames, output folder " << options.camera.outputDir << "\n";
    if (simulated)
        out << "  detector response: " << camera.simulator()->describe() << "\n";
    out << "  chain:";
    for (const auto& s : camera.stages())
        out << " " << s.element;
    out << "\n";

    const auto before = listFiles(options.camera.outputDir);
    const std::string recording = options.camera.outputDir + "/RAW" + fileStamp() + ".pxm";
    bool recordingStarted = false;
    if (options.record && camera.has("PxmRecorderElement")) {
        camera.startRecording(recording, options.recordFrames);
        recordingStarted = true;
    }
    std::set<uint64_t> saveAt;
    for (unsigned i = 1; i <= options.saves; ++i)
        saveAt.insert(options.frames * i / (options.saves + 1));
    std::vector<std::string> saveErrors;

    // Ctrl-C ends the run early but cleanly: the recording is closed and the summary printed.
    g_interrupted = false;
    auto previousInt = std::signal(SIGINT, onInterrupt);
    auto previousTerm = std::signal(SIGTERM, onInterrupt);
    camera.start(options.frames);
    const bool tty = ::isatty(STDOUT_FILENO) && &out == &std::cout;
    Accuracy accuracy;
    auto lastPrint = std::chrono::steady_clock::now() - std::chrono::seconds(10);
    std::string lastLine;
    while (true) {
        const bool running = camera.pipeline().isRunning();
        const auto snap = camera.snapshot();
        const uint64_t cycle = camera.pipeline().cycles();

        // Scheduled saves.
        while (!saveAt.empty() && cycle >= *saveAt.begin()) {
            saveAt.erase(saveAt.begin());
            if (camera.has("ImageWriteElement")) {
                try {
                    camera.commands().call(kImageWriteCallable, "TriggerImageSave",
                                           cmd::ParameterPack{makeVariant(false)});
                } catch (const std::exception& e) {
                    saveErrors.push_back(e.what());
                }
            }
        }

        // The emission marker measures the plates' labels in turn (the user taps one after the other).
        const bool visual = camera.visualCamera() && simulated;
        if (visual) {
            const auto& plates = camera.simulator()->scene().plates();
            const auto& label = plates[(cycle / 50) % plates.size()].label;
            const cv::Point_<int> at(int(label.x + label.width / 2), int(label.y + label.height / 2));
            if (camera.store().getValue<cv::Point_<int>>(Id::EmissionMarker::SearchPoint) != at)
                camera.store().setValue(Id::EmissionMarker::SearchPoint, at, true);
        }
        if (visual && !snap.rad.empty() && snap.truth && snap.frame != accuracy.lastVisualFrame) {
            accuracy.lastVisualFrame = snap.frame;
            const auto& t = *snap.truth;
            const double d = std::round(t.laser.distance * 100) / 100;
            if (snap.laserVisible)
                accuracy.laser[d].add(float(cv::norm(snap.laserPosition - t.laser.infrared)), 0.0f);
            else
                ++accuracy.laserMissed[d];
            // The label's emissivity rests on the reflected temperature too: counted once measured.
            if (snap.markerStatus == "Valid" && reflected.applied(snap)) {
                // The plate whose label the element measured.
                const cv::Point2f at(snap.markerRect.x + snap.markerRect.width / 2.0f,
                                     snap.markerRect.y + snap.markerRect.height / 2.0f);
                const sim::Plate* best = nullptr;
                for (const auto& p : t.plates)
                    if (p.label.contains(at))
                        best = &p;
                if (best)
                    accuracy.emissivity[best->name].add(snap.markerEmissivity, best->emissivity);
            }
        }

        // Accuracy once warm and the reflected temperature measured, one sample per radiometric
        // frame seen.
        reflected.sample(snap);
        if (!snap.rad.empty() && snap.truth && snap.frame != accuracy.lastFrame && warm(snap) &&
            snap.truth->shutterState == Id::Shutter::StateIdle && reflected.applied(snap)) {
            accuracy.lastFrame = snap.frame;
            for (const auto& o : measureObjects(snap))
                accuracy.objects[o.name].add(o.measuredC, o.trueC);
            for (const auto& s : readSpots(camera.store()))
                if (s.name == "hot" && s.valid)
                    accuracy.hotSpot.add(s.celsius, snap.truth->hotC);
                else if (s.name == "centre" && s.valid)
                    accuracy.centreSpot.add(s.celsius, snap.truth->centreC);
        }

        const auto now = std::chrono::steady_clock::now();
        if (options.status && (now - lastPrint > std::chrono::milliseconds(tty ? 150 : 2000) || !running)) {
            lastPrint = now;
            auto spots = readSpots(camera.store());
            if (snap.rad.empty()) // nothing measured yet: the store holds only its defaults
                for (auto& s : spots)
                    s.valid = false;
            const auto range = camera.store().getValue<unsigned char>(Id::ActiveMeasRange::Name);
            const auto bottom = camera.store().getValue<Temp>(Id::ActiveMeasRange::ToleranceBottom).celsius();
            const auto top = camera.store().getValue<Temp>(Id::ActiveMeasRange::ToleranceTop).celsius();
            const bool warmingUp = camera.store().getValue<bool>(Id::Streaming::WarmUp);
            std::string line = fmt::format(
                "{} {:3.0f}% {:5}/{} {:4.1f} fps | hot {} cold {} centre {} | range {} ({:.0f}..{:.0f}°C) | "
                "{} | {}",
                bar(static_cast<double>(cycle) / options.frames, 20), 100.0 * cycle / options.frames, cycle,
                options.frames, snap.fps, temp(spots[0]), temp(spots[1]), temp(spots[2]),
                static_cast<int>(range), bottom, top, warmingUp ? "warm-up" : "warm",
                camera.store().getValue<std::string>(Id::Shutter::State));
            if (camera.recording())
                line += fmt::format(" | REC {}", camera.recordingRemaining());
            if (tty)
                out << "\r" << line << "\033[K" << std::flush;
            else if (line != lastLine)
                out << line << "\n";
            lastLine = line;
        }
        if (!running)
            break;
        if (g_interrupted.load()) {
            camera.stop();
            continue; // one more round prints the final status
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    std::signal(SIGINT, previousInt);
    std::signal(SIGTERM, previousTerm);
    if (tty)
        out << "\n";
    camera.pipeline().join();
    if (recordingStarted && camera.recording())
        camera.stopRecording(), camera.runCycle(); // the next cycle closes the file

    // Summary.
    const auto stats = camera.pipeline().statistics();
    out << "\nPipeline: " << stats.cycles << " cycles, " << fmt::format("{:.1f}", stats.meanCycleMs)
        << " ms a cycle on average, worst " << fmt::format("{:.1f}", stats.worstCycleMs) << " ms\n";
    for (const auto& e : stats.elements)
        out << fmt::format(
            "  {:<26} {:>6} runs {:>5} skipped {:>4} failed  mean {:6.2f} ms  worst {:6.2f} ms{}\n", e.name,
            e.calls, e.skipped, e.failures, e.meanMs, e.worstMs,
            e.lastError.empty() ? "" : "  last error: " + e.lastError);

    int code = 0;
    if (simulated) {
        out << "\nMeasured against the live scene (after warm-up, shutter open, with the reflected "
               "temperature measured from the reflector; the physical simulator's frames, with air, "
               "point-spread function and lens distortion):\n";
        if (accuracy.objects.empty() && accuracy.hotSpot.n == 0)
            out << "  no radiometric frame after warm-up\n";
        for (const auto& [name, s] : accuracy.objects)
            out << fmt::format(
                "  {:<12} true {:7.2f}°C  measured {:7.2f}°C  mean error {:+.2f} K  worst {:.2f} K "
                "({} frames)\n",
                name, s.lastTrue, s.lastMeasured, s.mean(), s.worst, s.n);
        if (accuracy.centreSpot.n > 0) {
            const auto& c = accuracy.centreSpot;
            out << fmt::format(
                "  centre spot  true {:7.2f}°C  measured {:7.2f}°C  mean error {:+.2f} K  worst {:.2f} K\n",
                c.lastTrue, c.lastMeasured, c.mean(), c.worst);
        }
        if (accuracy.hotSpot.n > 0) {
            const auto& h = accuracy.hotSpot;
            const bool ok = std::abs(h.mean()) <= 0.5;
            out << fmt::format(
                "  hot spot     true {:7.2f}°C  measured {:7.2f}°C  mean error {:+.2f} K  worst {:.2f} K"
                "  -> {} (tolerance 0.5 K)\n"
                "               (the hottest pixel against the hot object's surface: the lens's blur, the "
                "uncorrected air and\n"
                "               the temporal filter's lag on the moving disc lower it, the noise's maxima "
                "raise it)\n",
                h.lastTrue, h.lastMeasured, h.mean(), h.worst, ok ? "within" : "OUTSIDE");
            if (!ok)
                code = 4;
        }
    }
    if (simulated && camera.visualCamera()) {
        out << "\nVisual camera against the simulated rig:\n";
        const auto reg = registrationErrors(camera);
        double worst = 0;
        for (const auto& [d, e] : reg) {
            out << fmt::format("  registration at {:4.1f} m: worst {:.3f} infrared px\n", d, e);
            worst = std::max(worst, e);
        }
        if (reg.empty())
            out << "  registration: no calibration file\n";
        else
            out << fmt::format("  registration            -> {} (tolerance 1 px, 0.5 ... 10 m)\n",
                               worst <= 1.0 ? "within" : "OUTSIDE");
        out << fmt::format("  laser: {}, emission marker: {} (last cycle)\n",
                           camera.store().getValue<std::string>(Id::Laser::Status),
                           camera.store().getValue<std::string>(Id::EmissionMarker::Status));
        double laserWorst = 0;
        for (const auto& [d, s] : accuracy.laser) {
            out << fmt::format(
                "  laser at {:5.2f} m: {:4} frames found, {:3} not, mean error {:.2f} px, worst {:.2f} px\n",
                d, s.n, accuracy.laserMissed[d], s.mean(), s.worst);
            laserWorst = std::max(laserWorst, s.worst);
        }
        if (!accuracy.laser.empty())
            out << fmt::format("  laser spot              -> {} (tolerance 2 px)\n",
                               laserWorst <= 2.0 ? "within" : "OUTSIDE");
        double emWorst = 0;
        for (const auto& [name, s] : accuracy.emissivity) {
            out << fmt::format(
                "  emissivity of {}: true {:.2f}, from the label {:.3f} (mean of {} valid frames), "
                "worst error {:.3f}\n",
                name, s.lastTrue, s.lastTrue + s.mean(), s.n, s.worst);
            emWorst = std::max(emWorst, s.worst);
        }
        if (!accuracy.emissivity.empty())
            out << fmt::format("  emissivity              -> {} (tolerance 0.03)\n",
                               emWorst <= 0.03 ? "within" : "OUTSIDE");
    }
    reflected.print(out);
    if (simulated && options.truthFigures)
        printTruthFigures(options.camera.calibrationDir.empty() ? defaultCalibrationDir()
                                                                : options.camera.calibrationDir,
                          out);
    if (!camera.snapshot().rad.empty()) {
        out << "\nLast measurement:";
        for (const auto& s : readSpots(camera.store()))
            out << "  " << s.name << " " << temp(s) << (s.valid ? fmt::format(" at ({}, {})", s.x, s.y) : "");
        out << "\n";
    }
    for (const auto& e : saveErrors)
        out << "  image save failed: " << e << "\n";

    const auto after = listFiles(options.camera.outputDir);
    out << "\nFiles written to " << options.camera.outputDir << ":\n";
    int written = 0;
    for (const auto& [name, time] : after) {
        auto it = before.find(name);
        if (it != before.end() && it->second == time)
            continue;
        std::error_code ec;
        const auto size = fs::file_size(fs::path(options.camera.outputDir) / name, ec);
        out << fmt::format("  {:<24} {:>10} bytes\n", name, ec ? 0 : size);
        ++written;
    }
    if (written == 0)
        out << "  none\n";
    return code;
}

int simulateRecording(const CameraOptions& options, const std::string& file, uint64_t frames,
                      std::ostream& out) {
    DataProxy<std::string> store;
    setDefaultParameters(store);
    Settings settings(store);
    if (!options.settingsFile.empty() && norda::utils::existsFile(options.settingsFile))
        settings.loadFile(options.settingsFile);
    for (const auto& a : options.assignments)
        settings.applyAssignment(a);
    sim::SceneSimulator simulator(store, options.sim);
    MeasRangeFollower follower(store, [&](unsigned char r) { simulator.setRange(r); });
    norda::vision::ImageIO writer(8);
    writer.open(file);
    for (uint64_t i = 0; i < frames; ++i) {
        auto frame = simulator.nextFrame();
        writer.setMetaData(std::make_shared<DataStorage<std::string>>(frame->releaseMetaData()));
        writer.write(frame->getFrameData(), "");
        // Without an offset element the shutter closes by frame count; the offset element of a
        // later playback writes "Opening" after its four frames itself.
    }
    writer.close();
    out << "nordacam: wrote " << frames << " raw frames (" << options.sim.width << "x" << options.sim.height
        << ", 16 bit, with metadata) to " << file << "\n";
    return 0;
}

} // namespace nordacam
