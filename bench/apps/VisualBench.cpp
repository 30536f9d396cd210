#ifdef NORDACAM_CORE
// The visual camera's detections on a 640 x 480 frame of the simulated scene (labels, a laser
// spot, white print, a red object): goal 0.5 ms a frame each, on one core. The fusion of that
// frame with a 640 x 480 display image in each mode, beside OpenCV doing the alpha blend.
#include "apps/nordacam/RigRegistration.h"
#include "apps/nordacam/sim/SceneSimulator.h"
#include "apps/nordacam/sim/VisualCamera.h"

#include "nordalib/core/keys/DefaultParameters.h"
#include "nordalib/vision/imgproc/ColorConvert.h"
#include "nordalib/vision/registration/EmissionMarkerFinder.h"
#include "nordalib/vision/registration/Fusion.h"
#include "nordalib/vision/registration/LaserSpotDetector.h"

#include <benchmark/benchmark.h>
#include <opencv2/core/utility.hpp>
#include <opencv2/imgproc.hpp>

using namespace norda::vision;

namespace {

struct VisualFrame {
    VisualFrame() {
        norda::exp::setDefaultParameters(store);
        nordacam::sim::VisualCamera camera(store, scene, {});
        uyvy = nordacam::sim::VisualCamera::toUyvy(camera.render({640, 480}, 0.5));
        registration = nordacam::rigRegistration(config.rig, config.lens, {640, 480});
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

// 1 alpha blend, 2 picture in picture, 3 edges.
void BM_Fusion(benchmark::State& state) {
    cv::setNumThreads(1);
    VisualFrame f;
    cv::Mat display(480, 640, CV_8UC3);
    cv::randu(display, 0, 256);
    Fusion fusion;
    const auto mode = FusionMode(state.range(0));
    for (auto _ : state)
        benchmark::DoNotOptimize(fusion.compose(mode, display, f.uyvy, f.registration, 3.0, 0.5f).data);
}
BENCHMARK(BM_Fusion)->DenseRange(1, 3)->Unit(benchmark::kMicrosecond);

// The alpha blend as OpenCV does it: colour conversion, cv::remap through fixed-point maps made
// once, cv::addWeighted.
void BM_Fusion_OpenCVRemapAddWeighted(benchmark::State& state) {
    cv::setNumThreads(1);
    VisualFrame f;
    cv::Mat display(480, 640, CV_8UC3);
    cv::randu(display, 0, 256);
    cv::Mat mapX, mapY, xy, fraction, warped, out;
    f.registration.infraredToVisualMaps(3.0, {640, 480}, {640, 480}, mapX, mapY);
    cv::convertMaps(mapX, mapY, xy, fraction, CV_16SC2);
    cv::Mat_<cv::Vec3b> rgb;
    for (auto _ : state) {
        ColorConvert::convertUY1VY0ToRGB(f.uyvy, rgb);
        cv::remap(rgb, warped, xy, fraction, cv::INTER_LINEAR, cv::BORDER_CONSTANT);
        cv::addWeighted(display, 0.5, warped, 0.5, 0.0, out);
    }
}
BENCHMARK(BM_Fusion_OpenCVRemapAddWeighted)->Unit(benchmark::kMicrosecond);

} // namespace
#endif
