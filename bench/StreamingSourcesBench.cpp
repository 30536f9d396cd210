// Frame sources, sinks and reshaping: element paths beside the nearest OpenCV operation.

#include "nordalib/vision/imgproc/ColorConvert.h"

#include <benchmark/benchmark.h>
#include <opencv2/imgproc.hpp>

namespace {

cv::Mat randomMat(int rows, int cols, int type) {
    cv::Mat m(rows, cols, type);
    cv::randu(m, cv::Scalar::all(0), cv::Scalar::all(CV_MAT_DEPTH(type) == CV_8U ? 256 : 65536));
    return m;
}

void BM_ColorConvert_UY1VY0ToRGB_640x480(benchmark::State& state) {
    cv::Mat yuv = randomMat(480, 640, CV_8UC2);
    cv::Mat_<cv::Vec3b> rgb;
    for (auto _ : state) {
        norda::vision::ColorConvert::convertUY1VY0ToRGB(yuv, rgb);
        benchmark::DoNotOptimize(rgb.data);
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_ColorConvert_UY1VY0ToRGB_640x480)->UseRealTime();

void BM_ColorConvert_UYVYToRGB_640x480(benchmark::State& state) {
    cv::Mat yuv = randomMat(480, 640, CV_8UC2);
    cv::Mat_<cv::Vec3b> rgb;
    for (auto _ : state) {
        norda::vision::ColorConvert::convertUYVYToRGB(yuv, rgb);
        benchmark::DoNotOptimize(rgb.data);
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_ColorConvert_UYVYToRGB_640x480)->UseRealTime();

void BM_OpenCV_cvtColor_YUV2RGB_UYVY_640x480(benchmark::State& state) {
    cv::Mat yuv = randomMat(480, 640, CV_8UC2);
    cv::Mat rgb;
    for (auto _ : state) {
        cv::cvtColor(yuv, rgb, cv::COLOR_YUV2RGB_UYVY);
        benchmark::DoNotOptimize(rgb.data);
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_OpenCV_cvtColor_YUV2RGB_UYVY_640x480)->UseRealTime();

} // namespace
