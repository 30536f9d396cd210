#include "nordalib/vision/overlay/OverlayText.h"

#include <fmt/format.h>
#include <opencv2/imgproc.hpp>

#include <atomic>
#include <cstring>
#include <unordered_map>
#include <utility>

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

void drawText(cv::Mat& canvas, const std::string& text, cv::Point origin, const cv::Scalar& colour,
              double scale) {
    const auto parts = pieces(text);
    drawPieces(canvas, parts, origin, kOutline, scale, 2);
    drawPieces(canvas, parts, origin, colour, scale, 0);
}

// The thick anti-aliased strokes of the text are most of the overlay's cost, and a frame's texts
// mostly repeat the last frame's over the same pixels. Drawing blends each pixel with what lies
// under it, and moving the origin by whole pixels moves the strokes alike, so the same text over
// the same pixels comes out the same wherever it is drawn: the pixels around a text before and
// after it was drawn are kept, and the next time the text finds those pixels under it, the kept
// result is copied instead of drawn again.
struct Drawn {
    cv::Mat before, after;
};

// The pixels the text may touch around its origin: its box with room for what reaches above and
// below it (brackets, "j", "_"; about a sixth and a third of the line height), the outline and its
// anti-aliased edge.
cv::Rect reach(cv::Size textSize) {
    const int side = 6, above = 5 + textSize.height / 5, below = 6 + textSize.height * 2 / 5;
    return {-side, -textSize.height - above, textSize.width + 2 * side, textSize.height + above + below};
}

// Two generations: the texts drawn recently, and those of the generation before, which are kept
// while they are used again. Each text keeps its last few drawings over different pixels (a label's
// second line under a first one whose value flickers). 12 MB per drawing thread at most.
class DrawnTexts {
public:
    std::vector<Drawn>& at(const std::string& key) {
        if (const auto found = m_current.find(key); found != m_current.end())
            return found->second;
        if (m_bytes >= kGenerationBytes) {
            m_previous = std::exchange(m_current, {});
            m_bytes = 0;
        }
        auto& entry = m_current[key];
        if (const auto old = m_previous.find(key); old != m_previous.end()) {
            entry = std::move(old->second);
            for (const auto& d : entry)
                m_bytes += bytes(d);
        }
        return entry;
    }

    void keep(std::vector<Drawn>& drawings, Drawn d) {
        if (drawings.size() >= kDrawings) {
            m_bytes -= bytes(drawings.front());
            drawings.erase(drawings.begin());
        }
        m_bytes += bytes(d);
        drawings.push_back(std::move(d));
    }

private:
    static constexpr size_t kGenerationBytes = 6 << 20, kDrawings = 8;
    static size_t bytes(const Drawn& d) { return 2 * d.before.total() * d.before.elemSize(); }
    std::unordered_map<std::string, std::vector<Drawn>> m_current, m_previous;
    size_t m_bytes = 0;
};

bool same(const cv::Mat& a, const cv::Mat& b) {
    if (a.size() != b.size())
        return false;
    for (int y = 0; y < a.rows; ++y)
        if (std::memcmp(a.ptr(y), b.ptr(y), a.cols * a.elemSize()) != 0)
            return false;
    return true;
}

std::atomic<bool> copying{true};

// Draws the text, or copies it from the last time it was drawn over the same pixels.
void drawOrCopy(cv::Mat& canvas, const std::string& text, cv::Point origin, const cv::Scalar& colour,
                double scale, cv::Size textSize) {
    const cv::Rect reached = reach(textSize) + origin;
    const cv::Rect around = reached & cv::Rect(0, 0, canvas.cols, canvas.rows);
    if (around.empty() || !copying.load(std::memory_order_relaxed)) {
        drawText(canvas, text, origin, colour, scale);
        return;
    }
    thread_local DrawnTexts drawn;
    std::string key = text;
    key.append(reinterpret_cast<const char*>(&scale), sizeof scale);
    key.append(reinterpret_cast<const char*>(colour.val), sizeof colour.val);
    // Cut by the canvas's edge, the text is the same only at the same place on the same canvas.
    if (around != reached)
        for (const int v : {origin.x, origin.y, canvas.cols, canvas.rows})
            key.append(reinterpret_cast<const char*>(&v), sizeof v);
    auto& drawings = drawn.at(key);
    cv::Mat region = canvas(around);
    for (const auto& d : drawings)
        if (same(d.before, region)) {
            d.after.copyTo(region);
            return;
        }
    Drawn d{region.clone(), {}};
    drawText(canvas, text, origin, colour, scale);
    d.after = region.clone();
    drawn.keep(drawings, std::move(d));
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

void OverlayText::copyDrawnTexts(bool on) {
    copying.store(on, std::memory_order_relaxed);
}

cv::Rect OverlayText::draw(cv::Mat& canvas, const std::string& text, cv::Point origin,
                           const cv::Scalar& colour, double scale, Align align) {
    const cv::Size s = size(text, scale);
    if (align == Align::Right)
        origin.x -= s.width;
    else if (align == Align::Centre)
        origin.x -= s.width / 2;
    drawOrCopy(canvas, text, origin, colour, scale, s);
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
