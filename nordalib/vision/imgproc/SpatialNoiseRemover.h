#pragma once
// SpatialNoiseRemover: edge-preserving 3 x 3 smoothing (a range-weighted mean).
//
// Each output pixel is the weighted mean of itself (weight 1) and its eight neighbours, whose
// weight is 1 while they differ from the pixel by at most `gain` counts, falls linearly to 0 at
// 2 * gain and is 0 beyond. Noise (small differences) is averaged away, up to 3x for white noise;
// edges higher than 2 * gain keep their sharpness because the other side does not take part.
// `gain` <= 0 turns the filter off: the output then shares the input's pixels, no copy. Float
// weights, one division per pixel; the interior loop is branch-free so it vectorises. Borders use
// the replicated edge pixels.
// setGain may be called from another thread than process().

#include <opencv2/core.hpp>

#include <atomic>
#include <cstdint>

namespace norda::vision {

class SpatialNoiseRemover {
public:
    explicit SpatialNoiseRemover(int gain);

    void setGain(int gain) { m_gain = gain; }
    int gain() const { return m_gain; }

    // CV_16SC1 or CV_16UC1 in, same type out (allocated as needed; not the same matrix as `in`).
    void process(const cv::Mat& in, cv::Mat& out);

private:
    template <typename T> void run(const cv::Mat& in, cv::Mat& out, int gain) const;

    std::atomic<int> m_gain;
};

} // namespace norda::vision
