// The measurement overlay on a 640 x 480 video frame, as the palette plugin, the RTSP streams and
// the snapshots draw it on every frame: hot and cold spot, five points, three areas, delta-T, the
// colour scale and the status line. Drawing and blending apart and together, beside OpenCV's
// nearest jobs: a weighted sum of two whole RGB frames (cv::addWeighted) and a masked copy of one
// onto the other (cv::Mat::copyTo with a mask), what a full-frame blend costs at the least.
#include "nordalib/vision/imgproc/Palettes.h"
#include "nordalib/vision/overlay/ThermalOverlay.h"

#include <opencv2/imgproc.hpp>

#include <benchmark/benchmark.h>

using namespace norda::vision;

namespace {

const cv::Size kFrame(640, 480);

OverlayContent crowdedFrame() {
    OverlayContent c;
    c.imageSize = kFrame;
    c.paletteColours = Palettes::colors("iron");
    c.scaleLow = {18.2f, 0, false};
    c.scaleHigh = {61.4f, 0, false};
    c.bands.push_back({40.0f, 45.0f, 0x00FF00});
    c.spots.push_back({SpotKind::Hot, "", {214, 238}, {60.3f, 0, false}, ""});
    c.spots.push_back({SpotKind::Cold, "", {590, 440}, {18.9f, 0, false}, ""});
    for (int i = 0; i < 5; ++i)
        c.spots.push_back({SpotKind::User,
                           std::to_string(i + 1),
                           {120 + 90 * i, 90 + 60 * (i % 3)},
                           {24.5f + i, i == 4 ? 1u : 0u, false},
                           i == 0 ? "e 0.80 Tr 35.0\xC2\xB0"
                                    "C"
                                  : ""});
    for (int i = 0; i < 3; ++i)
        c.areas.push_back({std::to_string(i + 1),
                           {60 + 170 * i, 300, 120, 120},
                           {25.0f + i, 0, false},
                           {31.0f + i, 0, false},
                           {20.0f + i, 0, false},
                           {80 + 170 * i, 320},
                           {150 + 170 * i, 400},
                           ""});
    c.deltaT = OverlayDeltaT{{120, 90}, {210, 150}, "dT -1.0 K"};
    c.status = "e 0.95  Tr 20.0\xC2\xB0"
               "C  2026-11-23 15:40:12";
    return c;
}

// A palette picture: a diagonal ramp of colours.
cv::Mat picture() {
    cv::Mat rgb(kFrame, CV_8UC3);
    for (int y = 0; y < rgb.rows; ++y)
        for (int x = 0; x < rgb.cols; ++x)
            rgb.at<cv::Vec3b>(y, x) = cv::Vec3b(x * 255 / 639, y * 255 / 479, (x + y) % 256);
    return rgb;
}

} // namespace

// One frame's overlay: drawn and blended over the picture.
static void BM_Overlay_DrawAndBlend(benchmark::State& state) {
    const OverlayContent content = crowdedFrame();
    const cv::Mat source = picture();
    cv::Mat rgb = source.clone();
    for (auto _ : state) {
        const cv::Mat canvas = ThermalOverlay::render(content, kFrame);
        ThermalOverlay::blendOntoRgb(canvas, rgb);
        benchmark::DoNotOptimize(rgb.data);
    }
}
BENCHMARK(BM_Overlay_DrawAndBlend)->Unit(benchmark::kMicrosecond);

// The same as a video frame has it drawn (the canvas kept from frame to frame). Range 0: a still
// scene, the same values every frame. 1: a live one, every value flickering over five readings
// (noise in the last digit). 2: every value new in every frame, the worst case.
static void BM_Overlay_DrawOntoRgb(benchmark::State& state) {
    const OverlayContent still = crowdedFrame();
    OverlayContent content = still;
    cv::Mat rgb = picture();
    uint64_t frame = 0;
    for (auto _ : state) {
        if (state.range(0) > 0) {
            ++frame;
            int k = 0;
            auto vary = [&](OverlayValue& v, float base) {
                const uint64_t step = state.range(0) == 1 ? (frame * 7 + k * 3) % 5 : frame;
                v.value = base + 0.1f * static_cast<float>(step % 10000);
                ++k;
            };
            for (size_t i = 0; i < content.spots.size(); ++i)
                vary(content.spots[i].value, still.spots[i].value.value);
            for (size_t i = 0; i < content.areas.size(); ++i)
                vary(content.areas[i].mean, still.areas[i].mean.value);
        }
        ThermalOverlay::drawOntoRgb(content, rgb);
        benchmark::DoNotOptimize(rgb.data);
    }
    state.SetLabel(state.range(0) == 0 ? "still" : state.range(0) == 1 ? "flickering" : "all new");
}
BENCHMARK(BM_Overlay_DrawOntoRgb)->DenseRange(0, 2)->Unit(benchmark::kMicrosecond);

static void BM_Overlay_Draw(benchmark::State& state) {
    const OverlayContent content = crowdedFrame();
    for (auto _ : state) {
        const cv::Mat canvas = ThermalOverlay::render(content, kFrame);
        benchmark::DoNotOptimize(canvas.data);
    }
}
BENCHMARK(BM_Overlay_Draw)->Unit(benchmark::kMicrosecond);

static void BM_Overlay_Blend(benchmark::State& state) {
    const cv::Mat canvas = ThermalOverlay::render(crowdedFrame(), kFrame);
    cv::Mat rgb = picture();
    for (auto _ : state) {
        ThermalOverlay::blendOntoRgb(canvas, rgb);
        benchmark::DoNotOptimize(rgb.data);
    }
}
BENCHMARK(BM_Overlay_Blend)->Unit(benchmark::kMicrosecond);

static void BM_Overlay_OpenCvAddWeighted(benchmark::State& state) {
    const cv::Mat overFrame = cv::Mat(kFrame, CV_8UC3, cv::Scalar(30, 60, 90));
    cv::Mat rgb = picture();
    for (auto _ : state) {
        cv::addWeighted(overFrame, 0.4, rgb, 0.6, 0.0, rgb);
        benchmark::DoNotOptimize(rgb.data);
    }
}
BENCHMARK(BM_Overlay_OpenCvAddWeighted)->Unit(benchmark::kMicrosecond);

static void BM_Overlay_OpenCvMaskedCopy(benchmark::State& state) {
    const cv::Mat canvas = ThermalOverlay::render(crowdedFrame(), kFrame);
    cv::Mat over, alpha;
    cv::cvtColor(canvas, over, cv::COLOR_BGRA2RGB);
    cv::extractChannel(canvas, alpha, 3);
    cv::Mat rgb = picture();
    for (auto _ : state) {
        over.copyTo(rgb, alpha);
        benchmark::DoNotOptimize(rgb.data);
    }
}
BENCHMARK(BM_Overlay_OpenCvMaskedCopy)->Unit(benchmark::kMicrosecond);
