// ConnectedComponent beside cv::connectedComponentsWithStats on 640 x 480 masks: the sparse mask
// of a laser search (a few small dots), smooth blobs (a thresholded scene), and 50 % noise (the
// worst case for a run-based labelling). Both write the label image.
#include "nordalib/vision/imgproc/ConnectedComponent.h"

#include <benchmark/benchmark.h>
#include <opencv2/core/utility.hpp>
#include <opencv2/imgproc.hpp>

namespace {

cv::Mat mask(int kind) {
    cv::RNG rng(3);
    cv::Mat m = cv::Mat::zeros(480, 640, CV_8UC1);
    if (kind == 0) {
        for (int i = 0; i < 6; ++i)
            cv::circle(m, {rng.uniform(0, 640), rng.uniform(0, 480)}, 3, cv::Scalar(255), -1);
    } else if (kind == 1) {
        cv::Mat smooth(480, 640, CV_32FC1);
        rng.fill(smooth, cv::RNG::NORMAL, 0, 1);
        cv::GaussianBlur(smooth, smooth, {0, 0}, 6);
        m = smooth > 0.05;
    } else {
        rng.fill(m, cv::RNG::UNIFORM, 0, 2);
        m *= 255;
    }
    return m;
}

const char* kKinds[] = {"sparse", "blobs", "noise"};

void BM_ConnectedComponent(benchmark::State& state) {
    const cv::Mat m = mask(int(state.range(0)));
    norda::vision::ConnectedComponent<uint8_t> cc;
    cv::Mat labels;
    for (auto _ : state)
        benchmark::DoNotOptimize(cc.compute(m, &labels).size());
    state.SetLabel(kKinds[state.range(0)]);
}

void BM_ConnectedComponentOpenCv(benchmark::State& state) {
    const int threads = cv::getNumThreads();
    cv::setNumThreads(1);
    const cv::Mat m = mask(int(state.range(0)));
    cv::Mat labels, stats, centroids;
    for (auto _ : state)
        benchmark::DoNotOptimize(cv::connectedComponentsWithStats(m, labels, stats, centroids, 8, CV_32S));
    state.SetLabel(kKinds[state.range(0)]);
    cv::setNumThreads(threads);
}

} // namespace

BENCHMARK(BM_ConnectedComponent)->DenseRange(0, 2)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_ConnectedComponentOpenCv)->DenseRange(0, 2)->Unit(benchmark::kMicrosecond);
