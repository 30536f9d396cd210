#include "nordalib/vision/overlay/ThermalOverlay.h"

#include "nordalib/core/exception/Exception.h"

#include <opencv2/imgproc.hpp>

#include <cmath>
#include <cstring>

namespace norda::vision {

cv::Mat ThermalOverlay::render(const OverlayContent& content, cv::Size canvasSize, OverlayLayout* layout) {
    cv::Mat canvas(canvasSize, CV_8UC4, cv::Scalar::all(0));
    const OverlayLayout drawn = draw(canvas, content);
    if (layout)
        *layout = drawn;
    return canvas;
}

namespace {

// x / 255 for x up to 255 * 255, without a division.
inline unsigned divide255(unsigned x) {
    return (x + 1 + (x >> 8)) >> 8;
}

// Whether eight canvas pixels are all clear (alpha 0).
inline bool clear8(const uint8_t* bgra) {
    uint64_t w0, w1, w2, w3; // two pixels each
    std::memcpy(&w0, bgra, 8);
    std::memcpy(&w1, bgra + 8, 8);
    std::memcpy(&w2, bgra + 16, 8);
    std::memcpy(&w3, bgra + 24, 8);
    return ((w0 | w1 | w2 | w3) & 0xFF000000FF000000ull) == 0;
}

// Without branches, so that eight pixels of text edges run straight through: alpha 0 leaves the
// picture's byte (u * 255 / 255), alpha 255 puts the canvas's.
inline void blendPixel(const uint8_t* over, uint8_t* under) {
    const unsigned a = over[3];
    for (int c = 0; c < 3; ++c)
        under[c] = static_cast<uint8_t>(divide255(over[2 - c] * a + under[c] * (255 - a)));
}

// One row of the canvas over one of the picture, eight pixels at a time where they are all
// clear (most of the canvas: the picture shows through). With `clear`, the canvas row (`over`
// itself) is left clear.
void blendRow(const uint8_t* over, uint8_t* under, int cols, uint8_t* clear = nullptr) {
    int x = 0;
    for (; x + 8 <= cols; x += 8) {
        if (clear8(over + 4 * x))
            continue;
        for (int i = x; i < x + 8; ++i)
            blendPixel(over + 4 * i, under + 3 * i);
        if (clear)
            std::memset(clear + 4 * x, 0, 32);
    }
    for (; x < cols; ++x)
        blendPixel(over + 4 * x, under + 3 * x);
    if (clear)
        std::memset(clear + 4 * (cols / 8 * 8), 0, 4 * (cols % 8));
}

} // namespace

void ThermalOverlay::blendOntoRgb(const cv::Mat& canvas, cv::Mat& rgb) {
    if (canvas.type() != CV_8UC4 || rgb.type() != CV_8UC3 || canvas.size() != rgb.size())
        NORDA_THROW("an overlay canvas is blended onto an RGB picture of its size",
                    "norda::vision::ThermalOverlay::blendOntoRgb");
    for (int y = 0; y < canvas.rows; ++y)
        blendRow(canvas.ptr<uint8_t>(y), rgb.ptr<uint8_t>(y), canvas.cols);
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
        blendRow(canvas.ptr<uint8_t>(y), rgb.ptr<uint8_t>(y), canvas.cols, canvas.ptr<uint8_t>(y));
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
