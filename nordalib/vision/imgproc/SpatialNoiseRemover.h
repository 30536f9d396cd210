#pragma once
// SpatialNoiseRemover: edge-preserving 3 x 3 smoothing (a range-weighted mean).
//
// Each output pixel is the weighted mean of itself (weight 1) and its eight neighbours, whose
// weight is 1 while they differ from the pixel by at most `gain` counts, falls linearly to 0 at
// 2 * gain and is 0 beyond. Noise (small differences) is averaged away, up to 3x for white noise;
// edges higher than 2 * gain keep their sharpness because the other side does not take part.
// `gain` <= 0 turns the filter off (the frame is copied). Integer arithmetic with table-driven
// weights and reciprocals; borders use the replicated edge pixels. setGain may be called from
// another thread than process().

#include <opencv2/core.hpp>

#include <atomic>
#include <cstdint>
#include <vector>

namespace norda::vision {

class SpatialNoiseRemover {
public:
    explicit SpatialNoiseRemover(int gain);

    void setGain(int gain) { m_gain = gain; }
    int gain() const { return m_gain; }

    // CV_16SC1 or CV_16UC1 in, same type out (allocated as needed; may not alias `in`).
    void process(const cv::Mat& in, cv::Mat& out);

private:
    template <typename T> void run(const cv::Mat& in, cv::Mat& out) const;
    void buildTables(int gain);

    std::atomic<int> m_gain;
    int m_tableGain = -1;
    std::vector<int32_t> m_weight;     // Q8 weight per |difference|, last entry 0
    std::vector<int32_t> m_reciprocal; // 2^24 / total weight (Q8 sum)
};

} // namespace norda::vision
