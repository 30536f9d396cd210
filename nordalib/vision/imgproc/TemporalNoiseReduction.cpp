#include "nordalib/vision/imgproc/TemporalNoiseReduction.h"
#include "nordalib/core/utils/TargetClones.h"

#include "nordalib/core/exception/Exception.h"

#include <algorithm>
#include <cstdlib>

namespace norda::vision {

namespace {
// One row: h' = x + a(|x - h|) (h - x) in 1/16 counts, a in Q11. The weight is computed, not looked
// up, so the loop vectorises; built for AVX2 as well, chosen at load time.
template <typename T>
NORDA_TARGET_CLONES_AVX2 void filterRow(T* __restrict px, int32_t* __restrict h, int n, int32_t gain,
                                        int32_t slope) {
    for (int x = 0; x < n; ++x) {
        const int32_t v = static_cast<int32_t>(px[x]) * 16;
        const int32_t diff = h[x] - v;
        const int32_t t = std::min(std::max(2 * gain - (std::abs(diff) >> 4), 0), gain);
        const int32_t a = (t * slope) >> 8;
        const int32_t next = v + ((a * diff + 1024) >> 11);
        h[x] = next;
        px[x] = static_cast<T>((next + 8) >> 4);
    }
}
} // namespace

template <typename T>
TemporalNoiseReduction<T>::TemporalNoiseReduction(uint8_t controlGain, uint16_t feedbackFactor)
    : m_gain(controlGain), m_feedback(feedbackFactor) {}

template <typename T> void TemporalNoiseReduction<T>::process(cv::Mat& frame) {
    if (frame.type() != cv::DataType<T>::type)
        NORDA_THROW("temporal noise reduction: frame type " + std::to_string(frame.type()) + " is not " +
                        std::to_string(cv::DataType<T>::type),
                    "norda::vision::TemporalNoiseReduction::process");
    const int32_t gain = m_gain;
    const int32_t feedback = std::min<int32_t>(m_feedback, 2047);
    if (m_history.size() != frame.size() || gain == 0) {
        frame.convertTo(m_history, CV_32S, 16.0);
        return;
    }
    // a = feedback * min(max(2g - |d|, 0), g) / g, the division folded into a Q8 slope.
    const int32_t slope = (feedback << 8) / gain;
    for (int y = 0; y < frame.rows; ++y)
        filterRow<T>(frame.ptr<T>(y), m_history.ptr<int32_t>(y), frame.cols, gain, slope);
}

template class TemporalNoiseReduction<short>;
template class TemporalNoiseReduction<unsigned short>;

} // namespace norda::vision
