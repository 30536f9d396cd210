#pragma once
// TemporalNoiseReduction: motion-adaptive recursive filter for thermal video.
//
// Each pixel keeps a history h (in 1/16 counts). For a new value x the difference d = x - h
// decides how much history survives:
//     h' = x + a(|d|) * (h - x),   a = feedback            for |d| <= gain
//                                   a = feedback * (2 gain - |d|) / gain   up to |d| = 2 gain
//                                   a = 0                   beyond (motion: the new value is taken)
// `feedbackFactor` is a Q11 fraction (2048 = 1; 1843 ~ 0.9, which lowers stationary white noise
// about 4.4x); values above 2047 are limited to 2047 so the recursion stays stable. `controlGain`
// is the difference in counts up to which a change counts as noise rather than motion; 0 turns
// the filter off. Integer arithmetic only; the weight is computed per pixel (no
// table), so the loop vectorises. The setters may be called from another thread than process().

#include <opencv2/core.hpp>

#include <atomic>
#include <cstdint>

namespace norda::vision {

template <typename T> class TemporalNoiseReduction {
public:
    TemporalNoiseReduction(uint8_t controlGain, uint16_t feedbackFactor);

    void setControlGain(uint8_t gain) { m_gain = gain; }
    void setFeedbackFactor(uint16_t factor) { m_feedback = factor; }
    uint8_t controlGain() const { return m_gain; }
    uint16_t feedbackFactor() const { return m_feedback; }

    // Filters a single-channel frame of T in place. A frame of another size restarts the history.
    void process(cv::Mat& frame);
    void reset() { m_history.release(); }

private:
    std::atomic<uint8_t> m_gain;
    std::atomic<uint16_t> m_feedback;
    cv::Mat m_history; // CV_32S, value * 16
};

extern template class TemporalNoiseReduction<short>;
extern template class TemporalNoiseReduction<unsigned short>;

} // namespace norda::vision
