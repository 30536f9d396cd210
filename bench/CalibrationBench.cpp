// Factory calibration fits: the radiometric fit of one range (60 blackbody views, from a far start)
// beside cv::solve on a linear least-squares problem of the same size, and the bad-pixel search on
// 640 x 480 flat fields beside cv::medianBlur of one of them. Each fit must finish well within a
// minute on the production line's PC.
#include "nordalib/vision/calibration/BadPixelCalibration.h"
#include "nordalib/vision/calibration/RadiometryFit.h"

#include <benchmark/benchmark.h>
#include <opencv2/imgproc.hpp>

#include <cmath>

using namespace norda::vision;

namespace {
std::vector<BlackbodyView> blackbodyViews() {
    const double R = 410000.0, B = 1550.0, F = 1.3, drift = 11.0;
    auto S = [&](double k) { return R / (std::exp(B / k) - F); };
    cv::RNG rng(1);
    std::vector<BlackbodyView> views;
    for (int i = 0; i < 10; ++i)
        for (double board : {298.15, 308.15, 318.15})
            for (double warming : {0.0, 1.5}) {
                BlackbodyView v;
                v.name = "bb";
                v.blackbodyK = 253.15 + 170.0 * i / 9.0;
                v.conditions.boardCurrentK = board;
                v.conditions.boardShutteringK = board - warming;
                v.conditions.shutterK = board - warming - 4.0;
                v.signal = S(v.blackbodyK) - S(v.conditions.shutterK) + drift * warming + rng.gaussian(0.05);
                v.noise = 0.05;
                views.push_back(v);
            }
    return views;
}

std::vector<FlatFieldView> flatFields() {
    cv::RNG rng(2);
    cv::Mat gain(480, 640, CV_64F), offset(480, 640, CV_64F), noise(480, 640, CV_64F);
    rng.fill(gain, cv::RNG::NORMAL, 1.0, 0.01);
    rng.fill(offset, cv::RNG::NORMAL, 9000.0, 25.0);
    std::vector<FlatFieldView> views;
    for (double level : {2000.0, 6000.0}) {
        views.push_back({"flat", {}});
        for (int i = 0; i < 8; ++i) {
            rng.fill(noise, cv::RNG::NORMAL, 0.0, 3.0);
            cv::Mat f;
            cv::Mat(offset + gain * level + noise).convertTo(f, CV_16U);
            views.back().frames.push_back(f);
        }
    }
    return views;
}
} // namespace

static void BM_RadiometryFitOneRange(benchmark::State& state) {
    const auto views = blackbodyViews();
    for (auto _ : state)
        benchmark::DoNotOptimize(RadiometryFit().fit(views));
}
BENCHMARK(BM_RadiometryFitOneRange)->Unit(benchmark::kMillisecond);

static void BM_OpenCvSolveLinearLeastSquares60x4(benchmark::State& state) {
    cv::Mat A(60, 4, CV_64F), b(60, 1, CV_64F), x;
    cv::randu(A, 0, 1);
    cv::randu(b, 0, 1);
    for (auto _ : state) {
        cv::solve(A, b, x, cv::DECOMP_SVD);
        benchmark::DoNotOptimize(x.data);
    }
}
BENCHMARK(BM_OpenCvSolveLinearLeastSquares60x4)->Unit(benchmark::kMicrosecond);

static void BM_BadPixelCalibration640x480(benchmark::State& state) {
    const auto views = flatFields();
    for (auto _ : state)
        benchmark::DoNotOptimize(BadPixelCalibration().find(views));
}
BENCHMARK(BM_BadPixelCalibration640x480)->Unit(benchmark::kMillisecond);

static void BM_OpenCvMedianBlur5x5Float640x480(benchmark::State& state) {
    cv::Mat in(480, 640, CV_32F), out;
    cv::randu(in, 0, 1);
    for (auto _ : state) {
        cv::medianBlur(in, out, 5);
        benchmark::DoNotOptimize(out.data);
    }
}
BENCHMARK(BM_OpenCvMedianBlur5x5Float640x480)->Unit(benchmark::kMillisecond);
