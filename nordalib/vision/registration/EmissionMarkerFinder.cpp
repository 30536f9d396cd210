#include "nordalib/vision/registration/EmissionMarkerFinder.h"

#include "nordalib/core/exception/Exception.h"

#include <opencv2/imgproc.hpp>

#include <cmath>

namespace norda::vision {

const char* EmissionMarkerFinder::name(Result r) {
    switch (r) {
    case Result::Found:
        return "Found";
    case Result::NotFound:
        return "NotFound";
    case Result::OutsideImage:
        return "OutsideImage";
    case Result::PartlyCovered:
        return "PartlyCovered";
    case Result::OutsideInfrared:
        return "OutsideInfrared";
    case Result::TooSmall:
        return "TooSmall";
    }
    return "?";
}

EmissionMarkerFinder::Result EmissionMarkerFinder::find(const cv::Mat& uyvy, const Registration& reg,
                                                        cv::Point searchPoint, cv::Size infraredSize,
                                                        double labelSize, Marker& marker) {
    if (uyvy.type() != CV_8UC2 || uyvy.cols % 2 != 0 || uyvy.empty())
        NORDA_THROW("a visual frame must be UYVY (CV_8UC2) of even width, not " +
                        cv::typeToString(uyvy.type()) + " " + std::to_string(uyvy.cols) + "x" +
                        std::to_string(uyvy.rows),
                    "norda::vision::EmissionMarkerFinder::find");
    const CameraModel cam = reg.visualAt(uyvy.size());
    const CameraModel ir = reg.infraredAt(infraredSize); // throws for a size of another aspect
    m_mask.create(uyvy.size(), CV_8UC1);
    const int pairs = uyvy.cols / 2;
    for (int y = 0; y < uyvy.rows; ++y) {
        const uint8_t* in = uyvy.ptr<uint8_t>(y);
        uint8_t* o = m_mask.ptr<uint8_t>(y);
        for (int i = 0; i < pairs; ++i) {
            const uint8_t on = (in[4 * i] > 140) & (in[4 * i + 2] > 168) ? 255 : 0;
            o[2 * i] = o[2 * i + 1] = on;
        }
    }
    const double scale = uyvy.cols / 640.0;
    const double minArea = kMinArea * scale * scale;
    const auto& comps = m_components.compute(m_mask);

    // The label nearest to the search point (mapped at the scene distance the labels suggest).
    const ComponentStats* best = nullptr;
    double bestDistance = 1e18;
    for (const auto& c : comps) {
        if (c.area < minArea)
            continue;
        const double d = cam.fx * labelSize / std::sqrt(double(c.area));
        const cv::Point2d p = reg.visualToInfrared(c.centroid, d, uyvy.size(), infraredSize);
        const double e = std::hypot(p.x - searchPoint.x, p.y - searchPoint.y);
        if (e < bestDistance)
            bestDistance = e, best = &c;
    }
    if (!best)
        return Result::NotFound;
    const auto& c = *best;
    if (c.box.x == 0 || c.box.y == 0 || c.box.br().x == uyvy.cols || c.box.br().y == uyvy.rows)
        return Result::OutsideImage;
    const double aspect = double(c.box.width) / c.box.height;
    if (aspect < 0.71 || aspect > 1.4 || c.fill() < 0.8)
        return Result::PartlyCovered;
    const int reach = std::max(c.box.width, c.box.height) / 2 + 2;
    const cv::Rect near(c.box.x - reach, c.box.y - reach, c.box.width + 2 * reach, c.box.height + 2 * reach);
    for (const auto& other : comps)
        if (other.label != c.label && other.area * 10 >= c.area && (other.box & near).area() > 0)
            return Result::PartlyCovered;

    marker = {};
    marker.visualBox = c.box;
    marker.distance = cam.fx * labelSize / std::sqrt(double(c.area));
    // The label in the infrared image: its visual box's corners at its distance.
    double x0 = 1e9, y0 = 1e9, x1 = -1e9, y1 = -1e9;
    for (int k = 0; k < 4; ++k) {
        const cv::Point2d v(c.box.x - 0.5 + (k & 1) * c.box.width, c.box.y - 0.5 + (k >> 1) * c.box.height);
        const cv::Point2d p = reg.visualToInfrared(v, marker.distance, uyvy.size(), infraredSize);
        x0 = std::min(x0, p.x), y0 = std::min(y0, p.y), x1 = std::max(x1, p.x), y1 = std::max(y1, p.y);
    }
    marker.infraredBox = cv::Rect(cv::Point(int(std::floor(x0)), int(std::floor(y0))),
                                  cv::Point(int(std::ceil(x1)), int(std::ceil(y1))));
    const int ring = std::max(4, marker.infraredBox.width / 2);
    const cv::Rect inner(marker.infraredBox.x - 3, marker.infraredBox.y - 3, marker.infraredBox.width + 6,
                         marker.infraredBox.height + 6);
    const cv::Rect outer(inner.x - ring, inner.y - ring, inner.width + 2 * ring, inner.height + 2 * ring);
    if ((outer & cv::Rect(cv::Point(0, 0), infraredSize)) != outer)
        return Result::OutsideInfrared;

    // The label's mask eroded by two infrared pixels (in visual pixels at its distance).
    const int erosion = int(std::ceil(2.0 * cam.fx / ir.fx));
    cv::Mat roi = m_mask(c.box + cv::Size(0, 0)), label;
    cv::Mat padded;
    cv::copyMakeBorder(roi, padded, 1, 1, 1, 1, cv::BORDER_CONSTANT, 0);
    cv::erode(padded, label, cv::getStructuringElement(cv::MORPH_RECT, {2 * erosion + 1, 2 * erosion + 1}));
    for (int y = marker.infraredBox.y; y < marker.infraredBox.br().y; ++y)
        for (int x = marker.infraredBox.x; x < marker.infraredBox.br().x; ++x) {
            const cv::Point2d v =
                reg.infraredToVisual({double(x), double(y)}, marker.distance, uyvy.size(), infraredSize);
            const int lx = int(std::lround(v.x)) - c.box.x + 1, ly = int(std::lround(v.y)) - c.box.y + 1;
            if (lx >= 0 && ly >= 0 && lx < label.cols && ly < label.rows && label.at<uint8_t>(ly, lx))
                marker.label.emplace_back(x, y);
        }
    for (int y = outer.y; y < outer.br().y; ++y)
        for (int x = outer.x; x < outer.br().x; ++x)
            if (!inner.contains({x, y}))
                marker.surface.emplace_back(x, y);
    return marker.label.size() < 4 ? Result::TooSmall : Result::Found;
}

} // namespace norda::vision
