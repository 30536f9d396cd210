// Reading given files with the library: a saved image (NORDA_BENCH_RIX) and the frames of a raw
// recording (NORDA_BENCH_PXM). bench/python/bench_io.py runs these beside the Python module doing
// the same on the same files; without the variables the benchmarks are skipped.
#include "nordalib/vision/imageio/ImageDecoderPxM.h"
#include "nordalib/vision/rix/Rix.h"

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <string>

namespace {

const char* fileFromEnvironment(benchmark::State& state, const char* variable) {
    const char* path = std::getenv(variable);
    if (!path)
        state.SkipWithError((std::string(variable) + " is not set").c_str());
    return path;
}

} // namespace

// As a program going through images does: the last image is released once the next is loaded.
static void BM_Rix_LoadGivenFile(benchmark::State& state) {
    const char* path = fileFromEnvironment(state, "NORDA_BENCH_RIX");
    if (!path)
        return;
    norda::vision::Rix last;
    for (auto _ : state) {
        norda::vision::Rix rix;
        rix.load(path);
        benchmark::DoNotOptimize(rix.getRadiometricImage().data);
        last = std::move(rix);
    }
}
BENCHMARK(BM_Rix_LoadGivenFile)->Unit(benchmark::kMicrosecond);

// One frame after the other, the file reopened at its end (a small share for long recordings).
static void BM_Pxm_GrabGivenFile(benchmark::State& state) {
    const char* path = fileFromEnvironment(state, "NORDA_BENCH_PXM");
    if (!path)
        return;
    norda::vision::ImageDecoderPxM decoder;
    decoder.open(path);
    cv::Mat frame;
    for (auto _ : state) {
        if (!decoder.grab(frame, nullptr)) {
            decoder.open(path);
            decoder.grab(frame, nullptr);
        }
        benchmark::DoNotOptimize(frame.data);
    }
}
BENCHMARK(BM_Pxm_GrabGivenFile)->Unit(benchmark::kMicrosecond);
