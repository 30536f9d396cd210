#include "nordalib/vision/overlay/ThermalOverlay.h"

#include "nordalib/core/exception/Exception.h"
#include "nordalib/vision/overlay/OverlayBlend.h"

#include <opencv2/imgproc.hpp>

#include <cmath>

namespace norda::vision {

cv::Mat ThermalOverlay::render(const OverlayContent& content, cv::Size canvasSize, OverlayLayout* layout) {
    cv::Mat canvas(canvasSize, CV_8UC4, cv::Scalar::all(0));
    const OverlayLayout drawn = draw(canvas, content);
    if (layout)
        *layout = drawn;
    return canvas;
}

void ThermalOverlay::blendOntoRgb(const cv::Mat& canvas, cv::Mat& rgb) {
    if (canvas.type() != CV_8UC4 || rgb.type() != CV_8UC3 || canvas.size() != rgb.size())
        NORDA_THROW("an overlay canvas is blended onto an RGB picture of its size",
                    "norda::vision::ThermalOverlay::blendOntoRgb");
    for (int y = 0; y < canvas.rows; ++y)
        OverlayBlend::row(canvas.ptr<uint8_t>(y), rgb.ptr<uint8_t>(y), canvas.cols);
}

void ThermalOverlay::drawOntoRgb(const OverlayContent& content, cv::Mat& rgb) {
    if (rgb.type() != CV_8UC3 || rgb.empty())
        NORDA_THROW("the overlay is drawn over a non-empty 8-bit RGB picture",
                    "norda::vision::ThermalOverlay::drawOntoRgb");
    // One canvas per drawing thread, clear between frames: each frame clears what it drew while
    // blending it, instead of a new canvas cleared whole.
    thread_local cv::Mat canvas;
    if (canvas.size() != rgb.size())
        canvas = cv::Mat(rgb.size(), CV_8UC4, cv::Scalar::all(0));
    try {
        draw(canvas, content);
    } catch (...) {
        canvas.release(); // drawn in part: made anew next time
        throw;
    }
    for (int y = 0; y < canvas.rows; ++y)
        OverlayBlend::row(canvas.ptr<uint8_t>(y), rgb.ptr<uint8_t>(y), canvas.cols, canvas.ptr<uint8_t>(y));
}

OverlayLayout ThermalOverlay::draw(cv::Mat& canvas, const OverlayContent& content) {
    if (canvas.type() != CV_8UC4 || canvas.empty())
        NORDA_THROW("an overlay canvas is a non-empty CV_8UC4 image", "norda::vision::ThermalOverlay::draw");
    if (content.imageSize.width <= 0 || content.imageSize.height <= 0)
        NORDA_THROW("the overlay's image size must be positive", "norda::vision::ThermalOverlay::draw");
    // Text grows with the canvas: 0.4 on the 320 x 240 overlay of saved pictures.
    const double scale = 0.4 * canvas.cols / 320.0;
    const double sx = static_cast<double>(canvas.cols) / content.imageSize.width;
    const double sy = static_cast<double>(canvas.rows) / content.imageSize.height;
    // Image pixel centres to display pixel centres: the identity, or the inset's placement.
    double x0 = 0, y0 = 0, kx = 1, ky = 1;
    if (const auto& p = content.infraredPlacement; p.size() == 4) {
        x0 = p[0], y0 = p[1];
        kx = (p[2] - p[0]) / std::max(1, content.imageSize.width - 1);
        ky = (p[3] - p[1]) / std::max(1, content.imageSize.height - 1);
    }
    // An image edge coordinate (pixel x spans x .. x + 1) on the canvas.
    auto edgeX = [&](double x) { return (x0 + (x - 0.5) * kx + 0.5) * sx; };
    auto edgeY = [&](double y) { return (y0 + (y - 0.5) * ky + 0.5) * sy; };
    auto map = [&](cv::Point p) {
        return cv::Point(std::clamp(static_cast<int>(std::floor(edgeX(p.x + 0.5))), 0, canvas.cols - 1),
                         std::clamp(static_cast<int>(std::floor(edgeY(p.y + 0.5))), 0, canvas.rows - 1));
    };
    const int line = OverlayText::lineHeight(scale);
    OverlayLayout out;
    // The scale on the right edge, clear of the status line; drawn first, so labels keep off it.
    const int barWidth = std::max(6, canvas.cols / 40);
    const int top = line + 10, bottom = canvas.rows - 2 * line - 22;
    if (bottom - top > 4 * line)
        out.scale =
            ScaleBar::draw(canvas, cv::Rect(canvas.cols - barWidth - 4, top, barWidth, bottom - top),
                           content.paletteColours, content.scaleLow, content.scaleHigh, content.bands, scale);
    // The scale, the status line and every marker take their place before any label is placed,
    // so labels keep off all of them; each placed label is taken in turn.
    std::vector<cv::Rect> taken;
    if (!out.scale.empty())
        taken.push_back(out.scale);
    if (!content.status.empty())
        taken.emplace_back(0, canvas.rows - line - 8, canvas.cols, line + 8);
    for (const auto& s : content.spots)
        taken.emplace_back(map(s.position) - cv::Point(7, 7), cv::Size(15, 15));

    for (const auto& a : content.areas) {
        const cv::Rect r(static_cast<int>(edgeX(a.rect.x)), static_cast<int>(edgeY(a.rect.y)),
                         std::max(2, static_cast<int>(a.rect.width * kx * sx)),
                         std::max(2, static_cast<int>(a.rect.height * ky * sy)));
        out.labels.push_back(MeasurementMarks::drawArea(canvas, r, a.label, a.mean, map(a.hotPosition), a.hot,
                                                        map(a.coldPosition), a.cold, a.note, scale, &taken));
    }
    if (content.deltaT)
        out.labels.push_back(MeasurementMarks::drawDeltaT(
            canvas, map(content.deltaT->from), map(content.deltaT->to), content.deltaT->text, scale, &taken));
    for (const auto& s : content.spots)
        out.labels.push_back(MeasurementMarks::drawSpot(canvas, map(s.position), s.kind, s.label, s.value,
                                                        s.note, scale, &taken));

    if (!content.status.empty()) {
        const int h = line + 8;
        cv::rectangle(canvas, {0, canvas.rows - h}, {canvas.cols - 1, canvas.rows - 1},
                      cv::Scalar(0, 0, 0, 150), cv::FILLED);
        OverlayText::draw(canvas, content.status, {4, canvas.rows - 4}, cv::Scalar(255, 255, 255, 255),
                          scale * 0.95);
    }
    return out;
}

} // namespace norda::vision
