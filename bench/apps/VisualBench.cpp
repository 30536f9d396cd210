#ifdef NORDACAM_CORE
// The visual camera's detections on a 640 x 480 frame of the simulated scene (labels, a laser
// spot, white print, a red object): goal 0.5 ms a frame each, on one core.
#include "apps/nordacam/sim/SceneSimulator.h"
#include "apps/nordacam/sim/VisualCamera.h"

#include "nordalib/core/keys/DefaultParameters.h"
#include "nordalib/vision/registration/EmissionMarkerFinder.h"
#include "nordalib/vision/registration/LaserSpotDetector.h"

#include <benchmark/benchmark.h>
#include <opencv2/core/utility.hpp>

using namespace norda::vision;

namespace {

struct VisualFrame {
    VisualFrame() {
        norda::exp::setDefaultParameters(store);
        nordacam::sim::VisualCamera camera(store, scene, {});
        uyvy = nordacam::sim::VisualCamera::toUyvy(camera.render({640, 480}, 0.5));
        registration = config.rig.registration(config.lens, {640, 480});
    }
    norda::exp::DataProxy<std::string> store;
    nordacam::sim::SimulatorConfig config;
    nordacam::sim::Scene scene{cv::Size(640, 480), config.lens, config.temperatures(), config.rig};
    cv::Mat uyvy;
    Registration registration;
};

void BM_LaserSpotDetector(benchmark::State& state) {
    cv::setNumThreads(1);
    VisualFrame f;
    LaserSpotDetector detector;
    LaserSpotDetector::Spot spot;
    for (auto _ : state)
        if (detector.detect(f.uyvy, f.registration, {640, 480}, spot) != LaserSpotDetector::Result::Found)
            state.SkipWithError("no spot");
}
BENCHMARK(BM_LaserSpotDetector)->Unit(benchmark::kMicrosecond);

void BM_EmissionMarkerFinder(benchmark::State& state) {
    cv::setNumThreads(1);
    VisualFrame f;
    EmissionMarkerFinder finder;
    EmissionMarkerFinder::Marker marker;
    const auto label = f.scene.plates()[1].label;
    const cv::Point at(int(label.x + label.width / 2), int(label.y + label.height / 2));
    for (auto _ : state)
        if (finder.find(f.uyvy, f.registration, at, {640, 480}, 0.05, marker) !=
            EmissionMarkerFinder::Result::Found)
            state.SkipWithError("no label");
}
BENCHMARK(BM_EmissionMarkerFinder)->Unit(benchmark::kMicrosecond);

} // namespace
#endif
