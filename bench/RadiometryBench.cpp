// Rebuilding the radiometric table (65536 signal -> temperature entries) after a condition changed,
// with and without the air path, beside cv::log over as many values (one logarithm an entry is the
// table's floor). The table is rebuilt only when a condition changes; the goal is < 5 ms.
// Then a live 640 x 480 frame while the camera warms up (the board and its lag estimate change every
// frame, so the entries of the frame's signals are computed again) against the settled camera (the
// table stays, a lookup a pixel).
#include "nordalib/core/datatypes/Quantity.h"
#include "nordalib/vision/radiometry/RadiometryTypeA.h"

#include <benchmark/benchmark.h>
#include <opencv2/core.hpp>

#include <cmath>
#include <string>

using namespace norda;
using namespace norda::vision;

namespace {

using Temperature = exp::quantity::Temperature<exp::MarkedFloat>;

std::shared_ptr<exp::Variant> kelvin(float k) {
    return exp::makeVariant(Temperature(exp::MarkedFloat(k - 273.15f)));
}

// A frame holding every signal once, so that it costs the whole table's build (a camera frame
// fills the entries of the signals it holds only) and a lookup a signal.
void tableRebuild(benchmark::State& state, bool air) {
    RadiometryTypeA model(256, 256, 0.01f, std::string(NORDA_SOURCE_DIR) + "/data/calibration/");
    model.setData(RadiometryId::Emis, exp::makeVariant(0.95f));
    model.setData(RadiometryId::Treflected, kelvin(293.15f));
    model.setData(RadiometryId::TboardCurrent, kelvin(304.15f));
    model.setData(RadiometryId::TboardShuttering, kelvin(303.15f));
    model.setData(RadiometryId::TShutterShuttering, kelvin(298.15f));
    model.setData(RadiometryId::MeasRange, exp::makeVariant<unsigned char>(1));
    model.setData(RadiometryId::TBoardSlope, exp::makeVariant(0.0f));
    model.setData(RadiometryId::TauPg, exp::makeVariant(0.9f));
    model.setData(RadiometryId::EmisPg, exp::makeVariant(0.05f));
    ObjectParameters path;
    path.distanceM = air ? 30.0 : 0.0;
    path.airK = 303.15;
    cv::Mat_<short> raw(256, 256);
    for (int i = 0; i < 65536; ++i)
        raw(i / 256, i % 256) = static_cast<short>(i - 32768);
    double humidity = 50.0;
    for (auto _ : state) {
        humidity = humidity == 50.0 ? 51.0 : 50.0; // a changed condition: the table is rebuilt
        path.humidityPercent = humidity;
        model.setAirPath(path);
        benchmark::DoNotOptimize(model.processFrame(raw));
    }
    if (model.tableBuilds() != static_cast<unsigned>(state.iterations()))
        state.SkipWithError("the table was not rebuilt every frame");
}

void BM_RadiometryTable_AirOn(benchmark::State& state) {
    tableRebuild(state, true);
}
BENCHMARK(BM_RadiometryTable_AirOn)->Unit(benchmark::kMillisecond);

void BM_RadiometryTable_NoAir(benchmark::State& state) {
    tableRebuild(state, false);
}
BENCHMARK(BM_RadiometryTable_NoAir)->Unit(benchmark::kMillisecond);

// A scene from 0 to 90 C in range 1: about 4000 signals, as the live hall holds.
void liveFrames(benchmark::State& state, double boardSlopeKPerS) {
    RadiometryTypeA model(640, 480, 0.01f, std::string(NORDA_SOURCE_DIR) + "/data/calibration/");
    model.setData(RadiometryId::Emis, exp::makeVariant(0.95f));
    model.setData(RadiometryId::Treflected, kelvin(293.15f));
    model.setData(RadiometryId::TboardShuttering, kelvin(303.15f));
    model.setData(RadiometryId::TShutterShuttering, kelvin(298.15f));
    model.setData(RadiometryId::MeasRange, exp::makeVariant<unsigned char>(1));
    model.setData(RadiometryId::TBoardSlope, exp::makeVariant(float(boardSlopeKPerS * 60.0)));
    model.setData(RadiometryId::TauPg, exp::makeVariant(1.0f));
    model.setData(RadiometryId::EmisPg, exp::makeVariant(0.0f));
    cv::Mat_<short> raw(480, 640);
    cv::Mat_<float> ramp(480, 640), noise(480, 640);
    for (int y = 0; y < 480; ++y)
        for (int x = 0; x < 640; ++x)
            ramp(y, x) = -1200.0f + 3700.0f * float(x + 640 * y) / (640.0f * 480.0f);
    cv::randn(noise, 0.0, 2.0);
    cv::Mat(ramp + noise).convertTo(raw, CV_16S);
    double board = 303.15, uptimeMs = 60000.0; // a minute after switching on
    for (auto _ : state) {
        uptimeMs += 1000.0 / 30.0;
        board += boardSlopeKPerS / 30.0;
        model.setData(RadiometryId::UpTime,
                      exp::makeVariant<unsigned long long>((unsigned long long)uptimeMs));
        model.setData(RadiometryId::TboardCurrent, kelvin(float(board)));
        benchmark::DoNotOptimize(model.processFrame(raw));
    }
    state.counters["tables"] = benchmark::Counter(double(model.tableBuilds()) / double(state.iterations()));
}

// The simulated camera's board a minute after switching on: 18 K rise, 90 s time constant.
void BM_RadiometryLive_WarmUp(benchmark::State& state) {
    liveFrames(state, 18.0 / 90.0 * std::exp(-60.0 / 90.0));
}
BENCHMARK(BM_RadiometryLive_WarmUp)->Unit(benchmark::kMicrosecond);

void BM_RadiometryLive_Settled(benchmark::State& state) {
    liveFrames(state, 0.0);
}
BENCHMARK(BM_RadiometryLive_Settled)->Unit(benchmark::kMicrosecond);

void BM_RadiometryTable_CvLog(benchmark::State& state) {
    cv::Mat in(256, 256, CV_64F), out;
    cv::randu(in, 1.001, 50.0);
    for (auto _ : state) {
        cv::log(in, out);
        benchmark::DoNotOptimize(out.data);
    }
}
BENCHMARK(BM_RadiometryTable_CvLog)->Unit(benchmark::kMillisecond);

} // namespace
