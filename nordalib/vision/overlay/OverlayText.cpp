#include "nordalib/vision/overlay/OverlayText.h"

#include <fmt/format.h>
#include <opencv2/imgproc.hpp>

namespace norda::vision {

namespace {

constexpr int kFont = cv::FONT_HERSHEY_SIMPLEX;
const std::string kDegree = "\xC2\xB0";
const cv::Scalar kOutline(0, 0, 0, 255);

int strokeOf(double scale) {
    return scale >= 0.45 ? 2 : 1;
}

// The text split at each "°": the pieces and whether a ring follows each.
std::vector<std::string> pieces(const std::string& text) {
    std::vector<std::string> out;
    size_t start = 0;
    for (size_t pos; (pos = text.find(kDegree, start)) != std::string::npos; start = pos + kDegree.size())
        out.push_back(text.substr(start, pos - start));
    out.push_back(text.substr(start));
    return out;
}

int ringWidth(double scale) {
    return std::max(3, static_cast<int>(scale * 12.0 + 0.5));
}

int pieceWidth(const std::string& piece, double scale) {
    int baseline = 0;
    return piece.empty() ? 0 : cv::getTextSize(piece, kFont, scale, strokeOf(scale), &baseline).width;
}

// Draws the pieces with one pen; `extra` widens the strokes for the outline pass.
void drawPieces(cv::Mat& canvas, const std::vector<std::string>& parts, cv::Point origin,
                const cv::Scalar& colour, double scale, int extra) {
    const int stroke = strokeOf(scale) + extra;
    const int height = OverlayText::lineHeight(scale);
    int x = origin.x;
    for (size_t i = 0; i < parts.size(); ++i) {
        if (!parts[i].empty()) {
            cv::putText(canvas, parts[i], {x, origin.y}, kFont, scale, colour, stroke, cv::LINE_AA);
            x += pieceWidth(parts[i], scale);
        }
        if (i + 1 < parts.size()) {
            const int r = std::max(1, ringWidth(scale) / 3);
            cv::circle(canvas, {x + r + 1, origin.y - height + r}, r, colour,
                       std::max(1, stroke - 1 + extra / 2), cv::LINE_AA);
            x += ringWidth(scale);
        }
    }
}

} // namespace

int OverlayText::lineHeight(double scale) {
    int baseline = 0;
    return cv::getTextSize("0", kFont, scale, strokeOf(scale), &baseline).height;
}

cv::Size OverlayText::size(const std::string& text, double scale) {
    const auto parts = pieces(text);
    int width = 0;
    for (size_t i = 0; i < parts.size(); ++i)
        width += pieceWidth(parts[i], scale) + (i + 1 < parts.size() ? ringWidth(scale) : 0);
    return {width, lineHeight(scale)};
}

cv::Rect OverlayText::draw(cv::Mat& canvas, const std::string& text, cv::Point origin,
                           const cv::Scalar& colour, double scale, Align align) {
    const cv::Size s = size(text, scale);
    if (align == Align::Right)
        origin.x -= s.width;
    else if (align == Align::Centre)
        origin.x -= s.width / 2;
    const auto parts = pieces(text);
    drawPieces(canvas, parts, origin, kOutline, scale, 2);
    drawPieces(canvas, parts, origin, colour, scale, 0);
    return cv::Rect(origin.x - 2, origin.y - s.height - 2, s.width + 4, s.height + 5);
}

std::string OverlayText::format(const OverlayValue& v) {
    const std::string number =
        v.percent ? fmt::format("{:.0f} %", v.value) : fmt::format("{:.1f}", v.value) + kDegree + "C";
    switch (v.mark) {
    case 0:
        return number;
    case 3:
        return "<" + number;
    case 5:
        return ">" + number;
    default:
        return "(" + number + ")";
    }
}

cv::Scalar OverlayText::colourOf(const OverlayValue& v) {
    return v.valid() ? cv::Scalar(255, 255, 255, 255) : cv::Scalar(40, 190, 255, 255);
}

} // namespace norda::vision
