#include "nordalib/vision/registration/LaserSpotDetector.h"

#include "nordalib/core/exception/Exception.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace norda::vision {

void LaserSpotDetector::mask(const cv::Mat& uyvy, cv::Mat& out) {
    // The red channel clips (R >= 250, i.e. 298 (Y - 16) + 409 (V - 128) + 128 >= 250 << 8) only
    // from a luma that depends on the pair's V: a table of that luma lets the pairs that cannot
    // clip, nearly all of a frame, go with one comparison.
    static const std::array<int, 256> minLuma = [] {
        std::array<int, 256> t{};
        for (int v = 0; v < 256; ++v)
            t[v] = 16 + int(std::ceil((250.0 * 256 - 128 - 409.0 * (v - 128)) / 298.0));
        return t;
    }();
    out.create(uyvy.size(), CV_8UC1);
    const int pairs = uyvy.cols / 2;
    for (int y = 0; y < uyvy.rows; ++y) {
        const uint8_t* in = uyvy.ptr<uint8_t>(y);
        uint8_t* o = out.ptr<uint8_t>(y);
        for (int i = 0; i < pairs; ++i) {
            const uint8_t* p = in + 4 * i;
            if (std::max(p[1], p[3]) < minLuma[p[2]]) {
                o[2 * i] = o[2 * i + 1] = 0;
                continue;
            }
            // Integer BT.601 as ColorConvert computes it.
            const int u = p[0] - 128, v = p[2] - 128;
            const int rv = 409 * v, gv = -100 * u - 208 * v;
            for (int k = 0; k < 2; ++k) {
                const int c = 298 * (p[1 + 2 * k] - 16);
                const int r = (c + rv + 128) >> 8, g = (c + gv + 128) >> 8;
                const int redness = std::clamp(r - std::clamp(g, 0, 255), 1, 255);
                o[2 * i + k] = uint8_t(r >= 250 ? redness : 0);
            }
        }
    }
}

LaserSpotDetector::Result LaserSpotDetector::detect(const cv::Mat& uyvy, const Registration& registration,
                                                    cv::Size infraredSize, Spot& spot) {
    if (uyvy.type() != CV_8UC2 || uyvy.cols % 2 != 0 || uyvy.empty())
        NORDA_THROW("a visual frame must be UYVY (CV_8UC2) of even width, not " +
                        cv::typeToString(uyvy.type()) + " " + std::to_string(uyvy.cols) + "x" +
                        std::to_string(uyvy.rows),
                    "norda::vision::LaserSpotDetector::detect");
    // Both throw for a frame of another aspect.
    (void)registration.visualAt(uyvy.size());
    (void)registration.infraredAt(infraredSize);
    mask(uyvy, m_mask);
    const double scale = uyvy.cols / 640.0;
    const double maxArea = kMaxAreaShare * double(uyvy.total());
    m_candidates = 0;
    int found = 0;
    for (const auto& c : m_components.compute(m_mask)) {
        if (c.max < kMinRedness || c.area > maxArea)
            continue;
        const double aspect = double(c.box.width) / c.box.height;
        if (aspect < 0.5 || aspect > 2.0 || c.fill() < 0.45)
            continue;
        ++m_candidates;
        if (c.box.x == 0 || c.box.y == 0 || c.box.br().x == uyvy.cols || c.box.br().y == uyvy.rows)
            continue;
        const auto fix = registration.laserTriangulation(c.centroid, uyvy.size(), infraredSize);
        if (fix.distance < 0.3 || fix.distance > 100.0 || fix.offLine > kMaxOffLine * scale)
            continue;
        if (++found == 1)
            spot = {c.centroid, fix, c.area};
    }
    return found == 1 ? Result::Found : found == 0 ? Result::NotFound : Result::Ambiguous;
}

} // namespace norda::vision
