#include "nordalib/vision/imgproc/GradientEdges.h"

#include "nordalib/core/exception/Exception.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <vector>

namespace norda::vision {

namespace {

// One row's gradient: the magnitude, and all ones where it runs mainly along x. 16-bit lanes
// throughout (|gx| + |gy| <= 2040), so the compiler packs eight pixels into a vector.
void gradientRow(const uint8_t* up, const uint8_t* mid, const uint8_t* down, int width, int16_t* magnitude,
                 int16_t* horizontal) {
    magnitude[0] = magnitude[width - 1] = 0;
    horizontal[0] = horizontal[width - 1] = 0;
    for (int x = 1; x < width - 1; ++x) {
        const int16_t gx = static_cast<int16_t>((up[x + 1] - up[x - 1]) + 2 * (mid[x + 1] - mid[x - 1]) +
                                                (down[x + 1] - down[x - 1]));
        const int16_t gy = static_cast<int16_t>((down[x - 1] - up[x - 1]) + 2 * (down[x] - up[x]) +
                                                (down[x + 1] - up[x + 1]));
        const int16_t ax = gx < 0 ? static_cast<int16_t>(-gx) : gx,
                      ay = gy < 0 ? static_cast<int16_t>(-gy) : gy;
        magnitude[x] = static_cast<int16_t>(ax + ay);
        horizontal[x] = static_cast<int16_t>(-(ax >= ay));
    }
}

// One row of edges from the magnitudes of it and its neighbours: the two neighbours across the
// edge are picked by mask, not by branch.
void edgeRow(const int16_t* up, const int16_t* m, const int16_t* down, const int16_t* horizontal, int width,
             int16_t threshold, uint8_t* out) {
    for (int x = 1; x < width - 1; ++x) {
        const int16_t h = horizontal[x], v = m[x];
        const int16_t before = static_cast<int16_t>((m[x - 1] & h) | (up[x] & ~h));
        const int16_t after = static_cast<int16_t>((m[x + 1] & h) | (down[x] & ~h));
        // The larger neighbour wins a tie on one side only, so a two-pixel ridge keeps one.
        out[x] = static_cast<uint8_t>(-((v >= threshold) & (v >= before) & (v > after)));
    }
}

} // namespace

void GradientEdges::detect(const cv::Mat& gray, cv::Mat& edges, int threshold) {
    if (gray.type() != CV_8UC1)
        NORDA_THROW("edges are found in a CV_8UC1 image, not " + cv::typeToString(gray.type()),
                    "norda::vision::GradientEdges::detect");
    edges.create(gray.size(), CV_8UC1);
    edges.setTo(0);
    const int w = gray.cols, h = gray.rows;
    if (w < 3 || h < 3)
        return;
    // Three rows of magnitudes rolling down the image: above, this one, below. Rows 0 and h - 1
    // have no gradient: their magnitudes stay 0.
    std::vector<int16_t> magnitude(3 * static_cast<size_t>(w), 0), horizontal(3 * static_cast<size_t>(w), 0);
    auto row = [&](int y) { return static_cast<size_t>(y % 3) * w; };
    const auto t = static_cast<int16_t>(std::clamp(threshold, 0, 32767));
    gradientRow(gray.ptr<uint8_t>(0), gray.ptr<uint8_t>(1), gray.ptr<uint8_t>(2), w, &magnitude[row(1)],
                &horizontal[row(1)]);
    for (int y = 1; y < h - 1; ++y) {
        if (y + 1 < h - 1)
            gradientRow(gray.ptr<uint8_t>(y), gray.ptr<uint8_t>(y + 1), gray.ptr<uint8_t>(y + 2), w,
                        &magnitude[row(y + 1)], &horizontal[row(y + 1)]);
        else
            std::fill_n(&magnitude[row(y + 1)], w, int16_t(0));
        edgeRow(&magnitude[row(y - 1)], &magnitude[row(y)], &magnitude[row(y + 1)], &horizontal[row(y)], w, t,
                edges.ptr<uint8_t>(y));
    }
}

} // namespace norda::vision
