#include "nordalib/vision/overlay/MeasurementMarks.h"

#include <opencv2/imgproc.hpp>

#include <cmath>

namespace norda::vision {

namespace {

const cv::Scalar kBlack(0, 0, 0, 255);
// A label whose nearest point lies farther than this from its anchor gets a leader line, which
// starts this far out, clear of the marker.
constexpr double kLeaderBeyond = 14.0, kMarkerRadius = 8.0;

// The marker shape with a dark rim, so it stands out on bright and dark colours alike.
void crossHair(cv::Mat& canvas, cv::Point at, const cv::Scalar& colour, int size) {
    for (const auto& [c, w] : {std::pair{kBlack, 3}, std::pair{colour, 1}}) {
        cv::line(canvas, {at.x - size, at.y}, {at.x - 2, at.y}, c, w);
        cv::line(canvas, {at.x + 2, at.y}, {at.x + size, at.y}, c, w);
        cv::line(canvas, {at.x, at.y - size}, {at.x, at.y - 2}, c, w);
        cv::line(canvas, {at.x, at.y + 2}, {at.x, at.y + size}, c, w);
    }
}

void triangle(cv::Mat& canvas, cv::Point at, const cv::Scalar& colour, int size, bool up) {
    const int d = up ? -1 : 1;
    std::vector<cv::Point> pts = {
        {at.x, at.y + d * size}, {at.x - size, at.y - d * size / 2}, {at.x + size, at.y - d * size / 2}};
    cv::polylines(canvas, pts, true, kBlack, 3, cv::LINE_AA);
    cv::polylines(canvas, pts, true, colour, 1, cv::LINE_AA);
}

// A line from the mark at `mark` (starting at `from`, clear of it) to its label, drawn only where
// it does not cross what `taken` holds (labels and marks placed before) unless the mark itself
// lies there, so that it strikes through no other label's text.
void leader(cv::Mat& canvas, cv::Point mark, cv::Point from, cv::Point to, const cv::Scalar& colour,
            const std::vector<cv::Rect>* taken) {
    const cv::Rect bounds = cv::boundingRect(std::vector<cv::Point>{from, to});
    const cv::Rect inside = cv::Rect(bounds.tl() - cv::Point(2, 2), bounds.size() + cv::Size(4, 4)) &
                            cv::Rect(0, 0, canvas.cols, canvas.rows);
    if (inside.empty())
        return;
    cv::Mat drawn(inside.size(), CV_8UC4, cv::Scalar::all(0));
    const cv::Point shift = -inside.tl();
    cv::line(drawn, from + shift, to + shift, kBlack, 3, cv::LINE_AA);
    cv::line(drawn, from + shift, to + shift, colour, 1, cv::LINE_AA);
    if (taken)
        for (const auto& t : *taken)
            if (const cv::Rect clear = t & inside; !clear.empty() && !t.contains(mark))
                drawn(clear - inside.tl()).setTo(cv::Scalar::all(0));
    cv::Mat alpha;
    cv::extractChannel(drawn, alpha, 3);
    drawn.copyTo(canvas(inside), alpha);
}

// Places a block of lines beside the anchor: right of it, left of it, below or above, whichever
// first keeps inside the canvas (clear of the colour scale on its right) and off what `taken`
// already holds, else farther away with a leader line; the block is added to `taken`.
cv::Rect labelBlock(cv::Mat& canvas, cv::Point anchor,
                    const std::vector<std::pair<std::string, cv::Scalar>>& lines, double scale,
                    std::vector<cv::Rect>* taken) {
    const int text = OverlayText::lineHeight(scale), line = text + 4;
    int width = 0;
    for (const auto& l : lines)
        width = std::max(width, OverlayText::size(l.first, scale).width);
    // The block holds the text with its outline (2 pixels around).
    width += 4;
    const int height = line * static_cast<int>(lines.size()) + 4;
    const int right = canvas.cols - canvas.cols / 8;
    // Top left corners of the candidate blocks: beside the anchor, then the same stepped away from
    // it a line at a time (two sideways), so a crowded picture still finds a free place near the mark.
    const cv::Point beside[] = {{anchor.x + 8, anchor.y - text - 4},
                                {anchor.x - 8 - width, anchor.y - text - 4},
                                {anchor.x + 8, anchor.y + 6},
                                {anchor.x - 8 - width, anchor.y + 6},
                                {anchor.x - width / 2, anchor.y - 10 - height},
                                {anchor.x - width / 2, anchor.y + 10}};
    std::vector<cv::Point> candidates(std::begin(beside), std::end(beside));
    for (int step = 1; step <= 12; ++step)
        for (const cv::Point& c : beside)
            for (const cv::Point d : {cv::Point(0, -1), cv::Point(0, 1), cv::Point(-2, 0), cv::Point(2, 0),
                                      cv::Point(-2, -1), cv::Point(2, -1), cv::Point(-2, 1), cv::Point(2, 1)})
                candidates.push_back(c + d * (step * line));
    auto place = [&](cv::Point c) {
        c.x = std::clamp(c.x, 2, std::max(2, right - width));
        c.y = std::clamp(c.y, 2, std::max(2, canvas.rows - 2 - height));
        return cv::Rect(c.x, c.y, width, height);
    };
    // The first free candidate; when none is free, the one overlapping least of what is taken.
    auto overlap = [&](const cv::Rect& r) {
        int area = 0;
        if (taken)
            for (const auto& t : *taken)
                area += (t & r).area();
        return area;
    };
    cv::Rect block = place(candidates[0]);
    int least = overlap(block);
    for (size_t i = 1; i < candidates.size() && least > 0; ++i) {
        const cv::Rect r = place(candidates[i]);
        if (const int o = overlap(r); o < least) {
            block = r;
            least = o;
        }
    }
    // A label that had to move away from its mark is tied to it by a leader line, from the edge of
    // the marker to the nearest point of the label.
    const cv::Point nearest(std::clamp(anchor.x, block.x, block.x + block.width - 1),
                            std::clamp(anchor.y, block.y, block.y + block.height - 1));
    const cv::Point2d away = nearest - anchor;
    if (const double length = std::hypot(away.x, away.y); length > kLeaderBeyond)
        leader(canvas, anchor, anchor + cv::Point(away * (kMarkerRadius / length)), nearest,
               lines.front().second, taken);
    int y = block.y + text + 3;
    for (const auto& [t, colour] : lines) {
        OverlayText::draw(canvas, t, {block.x + 2, y}, colour, scale);
        y += line;
    }
    if (taken)
        taken->push_back(block);
    return block;
}

} // namespace

cv::Scalar MeasurementMarks::colourOf(SpotKind kind) {
    switch (kind) {
    case SpotKind::Hot:
        return {60, 60, 255, 255};
    case SpotKind::Cold:
        return {255, 170, 60, 255};
    case SpotKind::Centre:
        return {255, 255, 255, 255};
    case SpotKind::Laser:
        return {60, 255, 60, 255};
    case SpotKind::DeltaT:
        return {255, 120, 255, 255};
    case SpotKind::User:
    default:
        return {120, 255, 255, 255};
    }
}

cv::Rect MeasurementMarks::drawSpot(cv::Mat& canvas, cv::Point at, SpotKind kind, const std::string& label,
                                    const OverlayValue& value, const std::string& note, double textScale,
                                    std::vector<cv::Rect>* taken) {
    const cv::Scalar colour = colourOf(kind);
    switch (kind) {
    case SpotKind::Hot:
        triangle(canvas, at, colour, 5, true);
        break;
    case SpotKind::Cold:
        triangle(canvas, at, colour, 5, false);
        break;
    case SpotKind::Laser:
        cv::circle(canvas, at, 5, kBlack, 3, cv::LINE_AA);
        cv::circle(canvas, at, 5, colour, 1, cv::LINE_AA);
        break;
    default:
        crossHair(canvas, at, colour, 7);
        break;
    }
    std::vector<std::pair<std::string, cv::Scalar>> lines;
    const std::string text = OverlayText::format(value);
    lines.emplace_back(label.empty() ? text : label + " " + text,
                       value.valid() ? colour : OverlayText::colourOf(value));
    if (!note.empty())
        lines.emplace_back(note, cv::Scalar(230, 230, 230, 255));
    return labelBlock(canvas, at, lines, textScale, taken);
}

cv::Rect MeasurementMarks::drawArea(cv::Mat& canvas, const cv::Rect& rect, const std::string& label,
                                    const OverlayValue& mean, cv::Point hot, const OverlayValue& hotValue,
                                    cv::Point cold, const OverlayValue& coldValue, const std::string& note,
                                    double textScale, std::vector<cv::Rect>* taken) {
    const cv::Scalar colour = colourOf(SpotKind::User);
    cv::rectangle(canvas, rect, kBlack, 3);
    cv::rectangle(canvas, rect, colour, 1);
    triangle(canvas, hot, colourOf(SpotKind::Hot), 3, true);
    triangle(canvas, cold, colourOf(SpotKind::Cold), 3, false);
    // Title and mean always; maximum and minimum where the area has room for them inside.
    const int line = OverlayText::lineHeight(textScale) + 4;
    std::vector<std::pair<std::string, cv::Scalar>> lines;
    lines.emplace_back(label + " " + OverlayText::format(mean),
                       mean.valid() ? colour : OverlayText::colourOf(mean));
    if (!note.empty())
        lines.emplace_back(note, cv::Scalar(230, 230, 230, 255));
    const bool inside = rect.height > line * static_cast<int>(lines.size() + 3);
    if (inside) {
        lines.emplace_back("max " + OverlayText::format(hotValue), OverlayText::colourOf(hotValue));
        lines.emplace_back("min " + OverlayText::format(coldValue), OverlayText::colourOf(coldValue));
    }
    const cv::Point anchor =
        inside ? cv::Point(rect.x - 4, rect.y + line + 1)
               : cv::Point(rect.x - 4, rect.y - 4 - line * static_cast<int>(lines.size() - 1));
    return labelBlock(canvas, anchor, lines, textScale, taken);
}

cv::Rect MeasurementMarks::drawDeltaT(cv::Mat& canvas, cv::Point from, cv::Point to, const std::string& text,
                                      double textScale, std::vector<cv::Rect>* taken) {
    const cv::Scalar colour = colourOf(SpotKind::DeltaT);
    const double length = std::hypot(to.x - from.x, to.y - from.y);
    const int dashes = std::max(1, static_cast<int>(length / 6));
    for (int i = 0; i < dashes; i += 2) {
        const cv::Point a = from + (to - from) * (static_cast<double>(i) / dashes);
        const cv::Point b = from + (to - from) * (static_cast<double>(i + 1) / dashes);
        cv::line(canvas, a, b, colour, 1, cv::LINE_AA);
    }
    return labelBlock(canvas, (from + to) / 2, {{text, colour}}, textScale, taken);
}

} // namespace norda::vision
