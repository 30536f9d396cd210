#pragma once
// Replaces bad pixels by values interpolated from their good neighbours.
//
// For each bad pixel the plan takes the good pixels at the smallest Chebyshev distance that has
// any (1 for an isolated pixel, more inside a cluster, up to kMaxRadius), weighted by inverse
// squared Euclidean distance, so a cluster is filled from the nearest good pixels around it and
// never from other bad ones. The plan is built once per list and frame size; applying it costs a
// few integer multiply-adds per bad pixel, in place. A bad pixel with no good pixel within
// kMaxRadius keeps its value.

#include "nordalib/vision/imgproc/BadPixel.h"

#include <opencv2/core.hpp>

#include <cstdint>
#include <vector>

namespace norda::vision {

class BadPixelCorrector {
public:
    static constexpr int kMaxRadius = 8;

    BadPixelCorrector() = default;
    // Pixels outside `size` are ignored.
    BadPixelCorrector(const BadPixelList& list, cv::Size size);

    cv::Size size() const { return m_size; }
    bool empty() const { return m_targets.empty(); }
    size_t replaced() const { return m_targets.size(); }

    // In place; the frame must be CV_16UC1 or CV_16SC1 of the plan's size.
    void apply(cv::Mat& frame) const;

private:
    template <typename T> void applyT(cv::Mat& frame) const;

    struct Target {
        uint32_t index; // row-major pixel index
        uint32_t first; // first source in m_sources
        uint32_t count;
    };
    struct Source {
        uint32_t index;
        uint32_t weight; // Q16, the weights of one target add up to 65536
    };
    cv::Size m_size;
    std::vector<Target> m_targets;
    std::vector<Source> m_sources;
};

} // namespace norda::vision
