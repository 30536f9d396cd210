// The whole live correction and display chain without pacing, on one core: offset, gain, bad pixels,
// TNR, SPR, SNR, radiometry, distortion, min/max (every cycle a refresh cycle) and palette.
// Counters: frames per second and each element's share of the cycle.
#include "nordalib/core/keys/DefaultParameters.h"
#include "nordalib/core/keys/Keys.h"
#include "nordalib/vision/imgproc/DistortionTable.h"
#include "nordalib/vision/imgproc/GainTable.h"
#include "nordalib/vision/radiometry/RadiometricCalibration.h"
#include "nordalib/vision/streaming/BadPixelElement.h"
#include "nordalib/vision/streaming/DistortionElement.h"
#include "nordalib/vision/streaming/GainElement.h"
#include "nordalib/vision/streaming/MinMaxExtractionElement.h"
#include "nordalib/vision/streaming/OffsetElement.h"
#include "nordalib/vision/streaming/PaletteElement.h"
#include "nordalib/vision/streaming/RadiometryElement.h"
#include "nordalib/vision/streaming/SnrElement.h"
#include "nordalib/vision/streaming/SprElement.h"
#include "nordalib/vision/streaming/TnrElement.h"

#ifdef NORDACAM_CORE
#include "apps/nordacam/RigRegistration.h"
#include "apps/nordacam/sim/SceneSimulator.h"
#include "apps/nordacam/sim/VisualCamera.h"
#include "nordalib/vision/imgproc/GradientEdges.h"
#include "nordalib/vision/registration/Fusion.h"
#include "nordalib/vision/streaming/DetectLaserPositionElement.h"
#include "nordalib/vision/streaming/EmissionMarkerElement.h"
#include "nordalib/vision/streaming/FusionElement.h"
#include "nordalib/vision/streaming/ImageBufferElement.h"
#endif

#include <benchmark/benchmark.h>
#include <opencv2/core/utility.hpp>
#include <opencv2/imgproc.hpp>

#include <chrono>
#include <filesystem>
#include <unistd.h>

using namespace norda::exp;
using namespace norda::exp::streaming;
using namespace norda::vision;

namespace {

struct Stage {
    const char* name;
    std::unique_ptr<StreamingElement> element;
    double seconds = 0;
};

class Chain {
public:
    // `visual`: a 640 x 480 visual camera beside the detector (image buffer, laser spot, emission
    // marker, fusion in the mode `fusion`).
    // `cameraFilters`: the pattern and spatial filters take the store's settings, as the camera and
    // the plugin's nordacorrect set them (else they keep their built-in state, see SprElement).
    explicit Chain(cv::Size size, bool visual = false, const std::string& fusion = "Off",
                   bool cameraFilters = false)
        : m_size(size) {
        static int instance = 0;
        m_dir = std::filesystem::temp_directory_path() /
                ("norda-chain-bench-" + std::to_string(size.width) + "x" + std::to_string(size.height) + "-" +
                 std::to_string(::getpid()) + "-" + std::to_string(++instance));
        std::filesystem::create_directories(m_dir);
        const std::string calib = m_dir.string() + "/";
        RadiometricCalibration::makeDefault().save(calib + RadiometricCalibration::kFileName);
        cv::Mat k = (cv::Mat_<double>(3, 3) << size.width * 0.9, 0, size.width / 2.0, 0, size.width * 0.9,
                     size.height / 2.0, 0, 0, 1);
        cv::Mat d = (cv::Mat_<double>(1, 5) << -0.12, 0.03, 0.0005, -0.0004, 0.0);
        DistortionTable::fromCameraModel(k, d, size).save(calib + "distort.pxm");
        cv::Mat gains(size, CV_32F);
        cv::randn(gains, 1.0, 0.002); // a detector's responsivity spread
        GainTable(gains).save(calib + "gain.pxm");

        setDefaultParameters(m_store);
        m_store.setValue<unsigned short>(Id::IrImage::Cols, static_cast<unsigned short>(size.width), false);
        m_store.setValue<unsigned short>(Id::IrImage::Rows, static_cast<unsigned short>(size.height), false);
        m_store.setValue(Id::DeviceFeatures::FastFrameAvailable, false, false);

        add("Offset", std::make_unique<OffsetElement>(&m_store, calib, nullptr));
        add("Gain", std::make_unique<GainElement>(&m_store, calib));
        add("BadPixel",
            std::make_unique<BadPixelElement>(&m_store, "BadPixel", STREAMING_DATATYPE_CORRECTED));
        add("Tnr", std::make_unique<TnrElement>(&m_store));
        add("Spr", std::make_unique<SprElement>(&m_store));
        add("Snr", std::make_unique<SnrElement>(&m_store));
        if (cameraFilters) {
            for (const std::string& key :
                 {Id::SprElement::Threshold, Id::SprElement::LineLimit, Id::SprElement::FrameLimit})
                m_store.set(key, m_store.get(key), true);
            m_store.flush();
        }
        add("Radiometry", std::make_unique<RadiometryElement>(&m_store, calib, RadiometricCamTypeA));
        add("Distortion", std::make_unique<DistortionElement>(&m_store, calib, RadiometricCamTypeA));
#ifdef NORDACAM_CORE
        if (visual) {
            // One frame of the simulated visual camera: scene, labels and a laser spot.
            nordacam::sim::SimulatorConfig sim;
            nordacam::sim::Scene scene(cv::Size(640, 480), sim.lens, sim.temperatures(), sim.rig);
            nordacam::sim::VisualCamera camera(m_store, scene, {});
            m_visual = nordacam::sim::VisualCamera::toUyvy(camera.render({640, 480}, 0.5));
            nordacam::rigRegistration(sim.rig, sim.lens, {640, 480}).save(calib + "registration.json");
            m_store.setValue(Id::Registration::CalibrationFile, calib + "registration.json", false);
            m_store.setValue(Id::Fusion::Mode, fusion, false);
            m_store.setValue(Id::Viscam::MaximumImageLatency, 100.0f, false); // three frames deep
            add("Buffer", std::make_unique<ImageBufferElement>(8, STREAMING_DATATYPE_YUV422, &m_store));
            add("Laser", std::make_unique<DetectLaserPositionElement>(&m_store, STREAMING_DATATYPE_YUV422));
        }
#else
        (void)fusion;
        if (visual)
            throw std::runtime_error("the dual chain needs the host's simulator");
#endif
        add("MinMax", std::make_unique<MinMaxExtractionElement>(&m_store, STREAMING_DATATYPE_RAD, true));
#ifdef NORDACAM_CORE
        if (visual)
            add("Marker",
                std::make_unique<EmissionMarkerElement>(&m_store, 8, 10, STREAMING_DATATYPE_YUV422));
#endif
        add("Palette", std::make_unique<PaletteElement>(false));
#ifdef NORDACAM_CORE
        if (visual)
            add("Fusion", std::make_unique<FusionElement>(&m_store, STREAMING_DATATYPE_YUV422));
#endif

        // A scene of a 25 °C background with a 60 °C object, as raw counts of a detector.
        const auto cal = RadiometricCalibration::makeDefault().ranges.at(1);
        RadiometricConditions cond;
        cond.emissivity = 0.95;
        m_shutter = cv::Mat(size, CV_16UC1, cv::Scalar(RadiometricTools::shutterCounts(cal, cond, 8000.0)));
        m_scene = cv::Mat(size, CV_16UC1, cv::Scalar(RadiometricTools::rawCounts(cal, cond, 298.15, 8000.0)));
        cv::circle(m_scene, {size.width / 3, size.height / 2}, size.height / 6,
                   cv::Scalar(RadiometricTools::rawCounts(cal, cond, 333.15, 8000.0)), -1);
        cv::Mat noise(size, CV_16SC1);
        cv::randn(noise, 0, 3);
        cv::add(m_scene, noise, m_scene, cv::noArray(), CV_16U);

        for (int i = 0; i < 4; ++i)
            cycle(m_shutter, Id::Shutter::StateCaptureOffsetFrame);
        for (int i = 0; i < 4; ++i) // the image buffer fills
            cycle(m_scene, Id::Shutter::StateIdle);
        for (auto& s : m_stages)
            s.seconds = 0;
    }
    ~Chain() {
        m_stages.clear();
        std::error_code ec;
        std::filesystem::remove_all(m_dir, ec);
    }

    // One cycle; returns whether a display image came out.
    bool cycle(const cv::Mat& raw, const std::string& shutterState) {
        FrameMap frames;
        m_uptime += 33;
        frames[STREAMING_DATATYPE_RAW] = std::make_unique<Frame>(raw.clone(), metadata(shutterState));
        if (!m_visual.empty()) {
            // Visual frames arrive two frames ahead of the infrared ones; the buffer lines them up.
            DataStorage<std::string> meta;
            meta.setValue(Id::Viscam::CaptureTime, 33.3f);
            meta.setValue<unsigned long long>(Id::Viscam::Timestamp, m_uptime + 66);
            frames[STREAMING_DATATYPE_YUV422] = std::make_unique<Frame>(m_visual, std::move(meta));
        }
        for (auto& s : m_stages) {
            bool present = true;
            for (auto slot : s.element->getInputTypes())
                present = present && frames.count(slot) && frames[slot];
            if (!present)
                return false;
            FrameMap outputs;
            const auto t0 = std::chrono::steady_clock::now();
            s.element->process(frames, outputs);
            s.seconds += std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
            for (auto& [slot, frame] : outputs)
                if (frame)
                    frames[slot] = std::move(frame);
        }
        return frames.count(STREAMING_DATATYPE_RGB) && frames[STREAMING_DATATYPE_RGB];
    }

    const cv::Mat& scene() const {
        return m_scene;
    }
    std::vector<Stage>& stages() {
        return m_stages;
    }

private:
    void add(const char* name, std::unique_ptr<StreamingElement> e) {
        m_stages.push_back({name, std::move(e)});
    }

    // What the host copies into every frame: shutter state, conditions and display settings.
    DataStorage<std::string> metadata(const std::string& state) {
        static const std::vector<std::string> keys = [] {
            std::vector<std::string> k = PaletteElement::metadataKeys();
            k.insert(k.end(),
                     {Id::Environment::EmissivityValue, Id::Environment::ReflectedTemperature,
                      Id::Temperatures::Current::TBoardSens50, Id::Temperatures::Current::TBoardSlope,
                      Id::Temperatures::Current::TLens, Id::Temperatures::Shuttering::TBoardSens50,
                      Id::Temperatures::Shuttering::TShutter, Id::ActiveMeasRange::Name,
                      Id::ActiveLens::Attached, Id::ActiveLens::Index, Id::ActiveLens::Serial,
                      Id::ProtectiveGlass::Attached, Id::ProtectiveGlass::Transmission,
                      Id::ProtectiveGlass::Emissivity});
            return k;
        }();
        DataStorage<std::string> meta;
        for (const auto& k : keys)
            meta.set(k, m_store.get(k));
        meta.setValue(Id::Shutter::State, state);
        meta.setValue(Id::Shutter::Closed, state != Id::Shutter::StateIdle);
        meta.setValue<unsigned long long>(Id::DeviceInfo::Uptime, m_uptime);
        return meta;
    }

    cv::Size m_size;
    std::filesystem::path m_dir;
    DataProxy<std::string> m_store;
    cv::Mat m_shutter, m_scene, m_visual;
    unsigned long long m_uptime = 600000;
    std::vector<Stage> m_stages; // last: destroyed before the store
};

void runChain(benchmark::State& state, Chain& chain) {
    int64_t frames = 0;
    for (auto _ : state) {
        if (!chain.cycle(chain.scene(), Id::Shutter::StateIdle)) {
            state.SkipWithError("the chain produced no display image");
            break;
        }
        ++frames;
    }
    double total = 0;
    for (auto& s : chain.stages())
        total += s.seconds;
    state.counters["fps"] = benchmark::Counter(static_cast<double>(frames), benchmark::Counter::kIsRate);
    for (auto& s : chain.stages())
        state.counters[std::string("share_") + s.name] = total > 0 ? s.seconds / total : 0;
}

void BM_WholeChain(benchmark::State& state) {
    const int threads = cv::getNumThreads();
    cv::setNumThreads(1);
    Chain chain({static_cast<int>(state.range(0)), static_cast<int>(state.range(1))});
    runChain(state, chain);
    cv::setNumThreads(threads);
}

// The same with the pattern and spatial filters set as the camera sets them: the chain
// BM_GstWholeChain/0 runs in the plugin.
void BM_WholeChainCameraFilters(benchmark::State& state) {
    const int threads = cv::getNumThreads();
    cv::setNumThreads(1);
    Chain chain({640, 480}, false, "Off", true);
    runChain(state, chain);
    cv::setNumThreads(threads);
}

#ifdef NORDACAM_CORE
// 640 x 480 infrared and 640 x 480 visual, in each fusion mode: 0 off, 1 alpha blend, 2 picture
// in picture, 3 edges.
void BM_WholeChainDual(benchmark::State& state) {
    static const char* const modes[] = {"Off", "AlphaBlend", "PictureInPicture", "Edges"};
    const int threads = cv::getNumThreads();
    cv::setNumThreads(1);
    Chain chain({640, 480}, true, modes[state.range(0)]);
    runChain(state, chain);
    state.SetLabel(modes[state.range(0)]);
    cv::setNumThreads(threads);
}
BENCHMARK(BM_WholeChainDual)->DenseRange(0, 3)->Unit(benchmark::kMillisecond)->UseRealTime();

// The edges of the edges fusion mode on the simulated visual camera's 640 x 480 luma: the one-pass
// gradient edges (0) beside cv::Canny with the thresholds it replaced (1).
void BM_FusionEdges(benchmark::State& state) {
    nordacam::sim::SimulatorConfig sim;
    nordacam::sim::Scene scene(cv::Size(640, 480), sim.lens, sim.temperatures(), sim.rig);
    DataProxy<std::string> store;
    setDefaultParameters(store);
    nordacam::sim::VisualCamera camera(store, scene, {});
    cv::Mat gray, edges;
    cv::cvtColor(camera.render({640, 480}, 0.5), gray, cv::COLOR_RGB2GRAY);
    const int threads = cv::getNumThreads();
    cv::setNumThreads(1);
    for (auto _ : state) {
        if (state.range(0) == 0)
            norda::vision::GradientEdges::detect(gray, edges, norda::vision::Fusion::kEdgeThreshold);
        else
            cv::Canny(gray, edges, 60, 150);
        benchmark::DoNotOptimize(edges.data);
    }
    state.counters["edge_share"] = cv::countNonZero(edges) / double(edges.total());
    state.SetLabel(state.range(0) == 0 ? "GradientEdges" : "cv::Canny");
    cv::setNumThreads(threads);
}
BENCHMARK(BM_FusionEdges)->DenseRange(0, 1)->Unit(benchmark::kMicrosecond);
#endif

} // namespace

BENCHMARK(BM_WholeChain)->Args({640, 480})->Args({1024, 768})->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_WholeChainCameraFilters)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime()->UseRealTime();
