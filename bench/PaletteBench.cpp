// Display image at 640 x 480: the palette converter's views and a whole palette element cycle,
// beside OpenCV's nearest job (scale to 8 bit, then a colour map). Both sides may run rows in
// parallel; OPENCV_FOR_THREADS_NUM=1 compares them on one core.
#include "nordalib/core/keys/DefaultParameters.h"
#include "nordalib/core/keys/Keys.h"
#include "nordalib/vision/imgproc/ColorPaletteConverter.h"
#include "nordalib/vision/imgproc/Palettes.h"
#include "nordalib/vision/radiometry/RadiometricTools.h"
#include "nordalib/vision/streaming/PaletteElement.h"

#include <opencv2/imgproc.hpp>

#include <benchmark/benchmark.h>

#include <random>

using namespace norda::exp;
using norda::vision::ColorPaletteConverter;
using norda::vision::Palettes;
using norda::vision::RadiometricTools;

namespace {
// A room-temperature scene with noise: 15 .. 45 °C.
cv::Mat_<uint16_t> scene() {
    cv::Mat_<uint16_t> raw(480, 640);
    std::mt19937 rng(7);
    for (int y = 0; y < raw.rows; ++y)
        for (int x = 0; x < raw.cols; ++x)
            raw(y, x) =
                static_cast<uint16_t>(RadiometricTools::getUint16(15.0f + 30.0f * x / raw.cols) + rng() % 40);
    return raw;
}
const uint16_t kLower = RadiometricTools::getUint16(15.0f);
const uint16_t kUpper = RadiometricTools::getUint16(46.0f);

void setRegions(ColorPaletteConverter& c) {
    c.createColorRegion(1, RadiometricTools::getUint16(32.0f), RadiometricTools::getUint16(30.0f), 0x00FF00);
    c.createColorRegion(2, 65535, RadiometricTools::getUint16(40.0f), 0xFF0000);
    c.createColorRegion(3, RadiometricTools::getUint16(18.0f), 0, 0x0000FF);
}
} // namespace

static void BM_Palette_Unchanged(benchmark::State& state) {
    const auto raw = scene();
    const auto& colours = Palettes::colors("iron");
    ColorPaletteConverter c;
    cv::Mat_<cv::Vec3b> rgb;
    c.palletize(raw, rgb, kLower, kUpper, true, colours);
    for (auto _ : state) {
        c.palletize(raw, rgb, kLower, kUpper, false, colours);
        benchmark::DoNotOptimize(rgb.data);
    }
}
BENCHMARK(BM_Palette_Unchanged)->Unit(benchmark::kMicrosecond);

static void BM_Palette_Changed(benchmark::State& state) {
    const auto raw = scene();
    const auto& colours = Palettes::colors("iron");
    ColorPaletteConverter c;
    cv::Mat_<cv::Vec3b> rgb;
    for (auto _ : state) {
        c.palletize(raw, rgb, kLower, kUpper, true, colours);
        benchmark::DoNotOptimize(rgb.data);
    }
}
BENCHMARK(BM_Palette_Changed)->Unit(benchmark::kMicrosecond);

static void BM_Palette_AllRegionsUnchanged(benchmark::State& state) {
    const auto raw = scene();
    const auto& colours = Palettes::colors("iron");
    ColorPaletteConverter c;
    setRegions(c);
    cv::Mat_<cv::Vec3b> rgb;
    for (auto _ : state) {
        setRegions(c); // as the element does every cycle
        c.palletize(raw, rgb, kLower, kUpper, false, colours);
        benchmark::DoNotOptimize(rgb.data);
    }
}
BENCHMARK(BM_Palette_AllRegionsUnchanged)->Unit(benchmark::kMicrosecond);

static void BM_Palette_AllRegionsChanged(benchmark::State& state) {
    const auto raw = scene();
    const auto& colours = Palettes::colors("iron");
    ColorPaletteConverter c;
    setRegions(c);
    cv::Mat_<cv::Vec3b> rgb;
    for (auto _ : state) {
        c.palletize(raw, rgb, kLower, kUpper, true, colours);
        benchmark::DoNotOptimize(rgb.data);
    }
}
BENCHMARK(BM_Palette_AllRegionsChanged)->Unit(benchmark::kMicrosecond);

static void BM_Palette_HumidUnchanged(benchmark::State& state) {
    const auto raw = scene();
    ColorPaletteConverter c;
    cv::Mat_<cv::Vec3b> rgb;
    const ColorPaletteConverter::Temperature air(20.0f);
    const ColorPaletteConverter::Relation rh(0.6f);
    for (auto _ : state) {
        c.palletizeHumid(raw, rgb, air, rh, false, {});
        benchmark::DoNotOptimize(rgb.data);
    }
}
BENCHMARK(BM_Palette_HumidUnchanged)->Unit(benchmark::kMicrosecond);

static void BM_Palette_HumidChanged(benchmark::State& state) {
    const auto raw = scene();
    ColorPaletteConverter c;
    cv::Mat_<cv::Vec3b> rgb;
    const ColorPaletteConverter::Temperature air(20.0f);
    const ColorPaletteConverter::Relation rh(0.6f);
    for (auto _ : state) {
        c.palletizeHumid(raw, rgb, air, rh, true, {});
        benchmark::DoNotOptimize(rgb.data);
    }
}
BENCHMARK(BM_Palette_HumidChanged)->Unit(benchmark::kMicrosecond);

// OpenCV's nearest equivalent: the same linear scaling to 8 bit, then its inferno map.
static void BM_OpenCv_ConvertToApplyColorMap(benchmark::State& state) {
    const auto raw = scene();
    const double scale = 255.0 / (kUpper - kLower);
    cv::Mat grey, bgr;
    for (auto _ : state) {
        raw.convertTo(grey, CV_8U, scale, -kLower * scale);
        cv::applyColorMap(grey, bgr, cv::COLORMAP_INFERNO);
        benchmark::DoNotOptimize(bgr.data);
    }
}
BENCHMARK(BM_OpenCv_ConvertToApplyColorMap)->Unit(benchmark::kMicrosecond);

// A whole element cycle: frame in, metadata read, scaling, regions, colouring, frame out.
static void BM_PaletteElement_Cycle(benchmark::State& state) {
    const auto raw = scene();
    DataProxy<std::string> proxy;
    setDefaultParameters(proxy);
    DataStorage<std::string> meta;
    for (const auto& key : proxy.keys())
        meta.set(key, proxy.get(key));
    meta.setValue<unsigned short>(Id::Scaling::Min, kLower);
    meta.setValue<unsigned short>(Id::Scaling::Max, kUpper);
    meta.setValue(Id::Alarm::AlarmTopActive, state.range(0) != 0);
    meta.setValue(Id::Isotherme::IsothermeActive, state.range(0) != 0);
    streaming::PaletteElement element(false);
    streaming::FrameMap inputs, outputs;
    for (auto _ : state) {
        inputs[streaming::STREAMING_DATATYPE_RAD_CONST] =
            std::make_unique<Frame>(raw, DataStorage<std::string>(meta));
        element.process(inputs, outputs);
        benchmark::DoNotOptimize(outputs[streaming::STREAMING_DATATYPE_RGB].get());
    }
}
BENCHMARK(BM_PaletteElement_Cycle)->Arg(0)->Arg(1)->Unit(benchmark::kMicrosecond);
