#include "nordalib/vision/overlay/ScaleBar.h"

#include <opencv2/imgproc.hpp>

#include <algorithm>

namespace norda::vision {

namespace {

cv::Scalar paletteColour(const std::vector<uint8_t>& colours, int index) {
    if (colours.size() < 256 * 3)
        return cv::Scalar(index, index, index, 255);
    const uint8_t* c = &colours[static_cast<size_t>(index) * 3];
    return cv::Scalar(c[2], c[1], c[0], 255); // R, G, B -> canvas B, G, R
}

} // namespace

cv::Rect ScaleBar::draw(cv::Mat& canvas, const cv::Rect& bar, const std::vector<uint8_t>& colours,
                        const OverlayValue& low, const OverlayValue& high,
                        const std::vector<ColourBand>& bands, double textScale) {
    if (bar.height < 2 || bar.width < 1)
        return {};
    const int h = bar.height;
    // Row by row, highest colour on top; what lies off the canvas is left out.
    const cv::Rect shown = bar & cv::Rect(0, 0, canvas.cols, canvas.rows);
    for (int y = shown.y; y < shown.y + shown.height; ++y) {
        const int index = 255 - static_cast<int>((y - bar.y) * 255.0 / (h - 1) + 0.5);
        const cv::Scalar c = paletteColour(colours, index);
        const cv::Vec4b pixel(static_cast<uint8_t>(c[0]), static_cast<uint8_t>(c[1]),
                              static_cast<uint8_t>(c[2]), 255);
        auto* row = canvas.ptr<cv::Vec4b>(y);
        std::fill(row + shown.x, row + shown.x + shown.width, pixel);
    }
    // The isotherm and alarm colours, where they fall inside the span.
    const float span = high.value - low.value;
    if (span > 0 && !low.percent)
        for (const auto& band : bands) {
            const float lo = std::max(band.lowC, low.value), hi = std::min(band.highC, high.value);
            if (hi <= lo)
                continue;
            const int y0 = bar.y + static_cast<int>((high.value - hi) / span * (h - 1) + 0.5);
            const int y1 = bar.y + static_cast<int>((high.value - lo) / span * (h - 1) + 0.5);
            const cv::Scalar c((band.rgb & 0xFF), (band.rgb >> 8) & 0xFF, (band.rgb >> 16) & 0xFF, 255);
            cv::rectangle(canvas, {bar.x, y0}, {bar.x + bar.width - 1, y1}, c, cv::FILLED);
        }
    cv::rectangle(canvas, {bar.x - 1, bar.y - 1}, {bar.x + bar.width, bar.y + h}, cv::Scalar(0, 0, 0, 255),
                  1);

    const int right = bar.x + bar.width;
    const int line = OverlayText::lineHeight(textScale);
    cv::Rect covers(bar.x - 1, bar.y - 1, bar.width + 2, h + 2);
    covers |= OverlayText::draw(canvas, OverlayText::format(high), {right, bar.y - 5},
                                OverlayText::colourOf(high), textScale, OverlayText::Align::Right);
    covers |= OverlayText::draw(canvas, OverlayText::format(low), {right, bar.y + h + line + 5},
                                OverlayText::colourOf(low), textScale, OverlayText::Align::Right);
    if (!low.percent && low.valid() && high.valid() && bar.height > 6 * line) {
        OverlayValue mid{(low.value + high.value) / 2.0f, 0, false};
        const int y = bar.y + h / 2;
        cv::line(canvas, {bar.x - 4, y}, {bar.x - 1, y}, cv::Scalar(255, 255, 255, 255), 1);
        covers |= OverlayText::draw(canvas, OverlayText::format(mid), {bar.x - 6, y + line / 2},
                                    OverlayText::colourOf(mid), textScale * 0.9, OverlayText::Align::Right);
    }
    return covers;
}

} // namespace norda::vision
