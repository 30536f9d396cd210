#ifdef NORDACAM_CORE
// The physical camera simulator's frame (scene radiance, PSF, distortion, read-out) beside the
// OpenCV operations it is built from: a Gaussian blur of the same float frame (the PSF's core) and
// a remap of it (the lens distortion).
#include "apps/nordacam/sim/physics/PhysicalCamera.h"

#include <benchmark/benchmark.h>
#include <opencv2/imgproc.hpp>

using namespace nordacam::sim::physics;

namespace {

// One core, as the goal says: OpenCV would otherwise spread blur and remap over its threads.
struct OneThread {
    int saved = cv::getNumThreads();
    OneThread() { cv::setNumThreads(1); }
    ~OneThread() { cv::setNumThreads(saved); }
};

void BM_PhysicalSimulatorFrame(benchmark::State& state) {
    const OneThread one;
    PhysicalCamera camera;
    const PhysicalScene scene = PhysicalScene::hall();
    const CameraTemperatures t;
    camera.render(scene, t); // builds the per-distance tables
    for (auto _ : state)
        benchmark::DoNotOptimize(camera.render(scene, t));
    state.SetItemsProcessed(state.iterations() * 640 * 480);
}
BENCHMARK(BM_PhysicalSimulatorFrame)->Unit(benchmark::kMillisecond);

void BM_PhysicalSimulatorShutterFrame(benchmark::State& state) {
    const OneThread one;
    PhysicalCamera camera;
    const CameraTemperatures t;
    for (auto _ : state)
        benchmark::DoNotOptimize(camera.renderShutter(t));
    state.SetItemsProcessed(state.iterations() * 640 * 480);
}
BENCHMARK(BM_PhysicalSimulatorShutterFrame)->Unit(benchmark::kMillisecond);

void BM_OpenCvGaussianBlurFrame(benchmark::State& state) {
    const OneThread one;
    cv::Mat frame(480, 640, CV_32F), out;
    cv::randu(frame, 40.0, 60.0);
    for (auto _ : state) {
        cv::GaussianBlur(frame, out, cv::Size(), 0.7, 0, cv::BORDER_REPLICATE);
        benchmark::DoNotOptimize(out.data);
    }
    state.SetItemsProcessed(state.iterations() * 640 * 480);
}
BENCHMARK(BM_OpenCvGaussianBlurFrame)->Unit(benchmark::kMillisecond);

void BM_OpenCvRemapFrame(benchmark::State& state) {
    const OneThread one;
    cv::Mat frame(480, 640, CV_32F), out, map1, map2;
    cv::randu(frame, 40.0, 60.0);
    cv::convertMaps(LensDistortion().sensorMap(frame.size()), cv::Mat(), map1, map2, CV_16SC2);
    for (auto _ : state) {
        cv::remap(frame, out, map1, map2, cv::INTER_LINEAR, cv::BORDER_REPLICATE);
        benchmark::DoNotOptimize(out.data);
    }
    state.SetItemsProcessed(state.iterations() * 640 * 480);
}
BENCHMARK(BM_OpenCvRemapFrame)->Unit(benchmark::kMillisecond);

} // namespace
#endif
