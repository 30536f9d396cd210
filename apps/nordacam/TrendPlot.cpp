#include "apps/nordacam/TrendPlot.h"

#include "nordalib/core/datatypes/MarkedFloat.h"

#include <fmt/format.h>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>
#include <limits>
#include <optional>

namespace nordacam {

using norda::exp::MarkedFloat;

namespace {

// Plot axes: about `count` round steps over [lo, hi].
double niceStep(double span, int count) {
    const double raw = span / count;
    const double p = std::pow(10.0, std::floor(std::log10(raw)));
    for (double m : {1.0, 2.0, 5.0, 10.0})
        if (raw <= m * p)
            return m * p;
    return 10 * p;
}

// Hershey fonts lack "°": drawn as a small ring.
void text(cv::Mat& img, const std::string& s, cv::Point at, double scale, const cv::Scalar& colour) {
    const int font = cv::FONT_HERSHEY_SIMPLEX;
    size_t deg = s.find("\xC2\xB0");
    if (deg == std::string::npos) {
        cv::putText(img, s, at, font, scale, colour, 1, cv::LINE_AA);
        return;
    }
    const std::string head = s.substr(0, deg);
    int base = 0;
    const int w = cv::getTextSize(head, font, scale, 1, &base).width;
    cv::putText(img, head, at, font, scale, colour, 1, cv::LINE_AA);
    const int r = std::max(2, int(std::lround(scale * 5)));
    const int h = cv::getTextSize("C", font, scale, 1, &base).height;
    cv::circle(img, {at.x + w + r + 1, at.y - h + r}, r, colour, 1, cv::LINE_AA);
    text(img, s.substr(deg + 2), {at.x + w + 2 * r + 4, at.y}, scale, colour);
}

} // namespace

cv::Mat drawTrendPlot(const TrendSeries& s) {
    const cv::Size size(1200, 640);
    const cv::Rect plot(100, 40, 820, 520);
    cv::Mat img(size, CV_8UC3, cv::Scalar(255, 255, 255));
    double t0 = 0, t1 = 1, lo = std::numeric_limits<double>::max(),
           hi = std::numeric_limits<double>::lowest();
    bool any = false;
    for (size_t i = 0; i < s.time.size(); ++i) {
        if (!s.error[i].empty())
            continue;
        if (!any)
            t0 = t1 = s.time[i];
        any = true;
        t0 = std::min(t0, s.time[i]);
        t1 = std::max(t1, s.time[i]);
        for (float v : s.value[i])
            if (std::isfinite(v)) {
                lo = std::min<double>(lo, v);
                hi = std::max<double>(hi, v);
            }
    }
    if (!any || lo > hi)
        lo = 0, hi = 1;
    if (t1 - t0 < 1e-6)
        t1 = t0 + 1;
    if (hi - lo < 1.0)
        lo -= 0.5, hi += 0.5;
    const double ty = niceStep(hi - lo, 8), tx = niceStep(t1 - t0, 10);
    lo = std::floor(lo / ty) * ty;
    hi = std::ceil(hi / ty) * ty;
    auto X = [&](double t) { return plot.x + int(std::lround((t - t0) / (t1 - t0) * plot.width)); };
    auto Y = [&](double v) {
        return plot.y + plot.height - int(std::lround((v - lo) / (hi - lo) * plot.height));
    };
    const cv::Scalar grid(225, 225, 225), black(0, 0, 0);
    for (double v = lo; v <= hi + ty / 2; v += ty) {
        cv::line(img, {plot.x, Y(v)}, {plot.br().x, Y(v)}, grid);
        text(img, fmt::format("{:g}", std::round(v * 1000) / 1000), {plot.x - 60, Y(v) + 5}, 0.5, black);
    }
    for (double t = std::ceil(t0 / tx) * tx; t <= t1 + tx / 1000; t += tx) {
        cv::line(img, {X(t), plot.y}, {X(t), plot.br().y}, grid);
        text(img, fmt::format("{:g}", std::round(t * 1000) / 1000), {X(t) - 10, plot.br().y + 22}, 0.5,
             black);
    }
    cv::rectangle(img, plot, black);
    text(img, "time (s)", {plot.x + plot.width / 2 - 30, plot.br().y + 50}, 0.6, black);
    cv::Mat label(30, 200, CV_8UC3, cv::Scalar(255, 255, 255));
    text(label,
         "temperature (\xC2\xB0"
         "C)",
         {5, 22}, 0.6, black);
    cv::rotate(label, label, cv::ROTATE_90_COUNTERCLOCKWISE);
    label.copyTo(img(cv::Rect(10, plot.y + plot.height / 2 - 100, 30, 200)));
    text(img, "temperature over time", {plot.x, 28}, 0.7, black);

    static const cv::Scalar colours[] = {{40, 40, 220},  {200, 110, 30}, {40, 160, 40}, {160, 40, 160},
                                         {20, 140, 220}, {140, 140, 20}, {90, 90, 90},  {200, 60, 120}};
    for (size_t k = 0; k < s.tools.size(); ++k) {
        const cv::Scalar c = colours[k % 8];
        std::optional<cv::Point> previous;
        for (size_t i = 0; i < s.time.size(); ++i) {
            if (!s.error[i].empty() || !std::isfinite(s.value[i][k])) {
                previous.reset();
                continue;
            }
            const cv::Point p(X(s.time[i]), Y(s.value[i][k]));
            if (previous)
                cv::line(img, *previous, p, c, 2, cv::LINE_AA);
            if (s.mark[i][k] != MarkedFloat::Valid) // not trusted: crossed
                cv::drawMarker(img, p, c, cv::MARKER_TILTED_CROSS, 8, 1);
            previous = p;
        }
        const int y = plot.y + 20 + int(k) * 26;
        cv::line(img, {plot.br().x + 20, y - 5}, {plot.br().x + 50, y - 5}, c, 3);
        text(img, s.tools[k], {plot.br().x + 58, y}, 0.45, black);
    }
    const int y = plot.y + 20 + int(s.tools.size()) * 26 + 10;
    cv::drawMarker(img, {plot.br().x + 35, y - 5}, black, cv::MARKER_TILTED_CROSS, 8, 1);
    text(img, "not valid (range)", {plot.br().x + 58, y}, 0.45, black);
    return img;
}

} // namespace nordacam
