// Min/max extraction: one element cycle per frame against the OpenCV calls doing the nearest job
// (cv::minMaxLoc for the extremes and their first positions, cv::mean for the mean).
#include "nordalib/core/keys/DefaultParameters.h"
#include "nordalib/core/keys/Keys.h"
#include "nordalib/vision/radiometry/RadiometricTools.h"
#include "nordalib/vision/streaming/MinMaxExtractionElement.h"

#include <benchmark/benchmark.h>
#include <opencv2/core.hpp>

#include <random>

using namespace norda::exp;
using namespace norda::exp::streaming;
using norda::vision::RadiometricTools;

namespace {

// A wall at 18..24 °C with sensor noise and a warm patch: realistic value spread, extremes in the
// middle of the image rather than at its start.
cv::Mat scene(int cols, int rows) {
    cv::Mat img(rows, cols, CV_16UC1);
    std::mt19937 rng(1);
    std::normal_distribution<float> noise(0.0f, 0.05f);
    for (int y = 0; y < rows; ++y)
        for (int x = 0; x < cols; ++x) {
            float t = 18.0f + 6.0f * x / cols + noise(rng);
            if (std::abs(x - cols / 2) < cols / 10 && std::abs(y - rows / 2) < rows / 10)
                t += 15.0f;
            img.at<unsigned short>(y, x) = RadiometricTools::getUint16(t);
        }
    return img;
}

struct Cycle {
    DataProxy<std::string> proxy;
    std::unique_ptr<MinMaxExtractionElement> element;
    cv::Mat img;
    Cycle(int cols, int rows) : img(scene(cols, rows)) {
        setDefaultParameters(proxy);
        for (const auto& key : {Id::MeasPoints::MeasPoint1::Visible, Id::MeasPoints::MeasPoint2::Visible,
                                Id::MeasPoints::MeasPoint3::Visible, Id::MeasPoints::MeasPoint4::Visible,
                                Id::MeasPoints::MeasPoint5::Visible, Id::MeasPoints::LaserSpot::Visible})
            proxy.setValue(key, true, false);
        element = std::make_unique<MinMaxExtractionElement>(&proxy, STREAMING_DATATYPE_RAD, true);
    }
    void run() {
        DataStorage<std::string> meta;
        meta.setValue<unsigned char>(Id::ActiveMeasRange::Name, 1);
        meta.setValue<unsigned long long>(Id::DeviceInfo::Uptime, 500000);
        FrameMap in, out;
        in[STREAMING_DATATYPE_RAD] = std::make_unique<Frame>(img, std::move(meta));
        element->process(in, out);
        benchmark::DoNotOptimize(out);
    }
};

constexpr int kPeriod = 20; // FastFrameAvailable in the default parameters

// The cycle that refreshes points and area and tests the range (every 20th); the throttled ones
// run untimed.
void BM_MinMaxElement_RefreshCycle(benchmark::State& state) {
    Cycle c(static_cast<int>(state.range(0)), static_cast<int>(state.range(1)));
    for (auto _ : state) {
        c.run();
        state.PauseTiming();
        for (int i = 1; i < kPeriod; ++i)
            c.run();
        state.ResumeTiming();
    }
    c.proxy.flush();
    state.SetItemsProcessed(state.iterations() * c.img.total());
}

// A throttled cycle: extremes, statistics, metadata and scaling only.
void BM_MinMaxElement_ThrottledCycle(benchmark::State& state) {
    Cycle c(static_cast<int>(state.range(0)), static_cast<int>(state.range(1)));
    int cycle = 0;
    for (auto _ : state) {
        if (cycle++ % kPeriod == 0) {
            state.PauseTiming();
            c.run();
            state.ResumeTiming();
            ++cycle;
        }
        c.run();
    }
    c.proxy.flush();
    state.SetItemsProcessed(state.iterations() * c.img.total());
}

void BM_OpenCV_MinMaxLocAndMean(benchmark::State& state) {
    const cv::Mat img = scene(static_cast<int>(state.range(0)), static_cast<int>(state.range(1)));
    for (auto _ : state) {
        double mn = 0, mx = 0;
        cv::Point pmin, pmax;
        cv::minMaxLoc(img, &mn, &mx, &pmin, &pmax);
        cv::Scalar m = cv::mean(img);
        benchmark::DoNotOptimize(mn);
        benchmark::DoNotOptimize(m);
    }
    state.SetItemsProcessed(state.iterations() * img.total());
}

} // namespace

BENCHMARK(BM_MinMaxElement_RefreshCycle)
    ->Args({16, 12})
    ->Args({640, 480})
    ->Args({1024, 768})
    ->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_MinMaxElement_ThrottledCycle)
    ->Args({16, 12})
    ->Args({640, 480})
    ->Args({1024, 768})
    ->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_OpenCV_MinMaxLocAndMean)->Args({640, 480})->Args({1024, 768})->Unit(benchmark::kMicrosecond);
