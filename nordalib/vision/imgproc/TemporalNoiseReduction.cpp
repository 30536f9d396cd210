#include "nordalib/vision/imgproc/TemporalNoiseReduction.h"

#include "nordalib/core/exception/Exception.h"

#include <algorithm>
#include <cstdlib>

namespace norda::vision {

template <typename T>
TemporalNoiseReduction<T>::TemporalNoiseReduction(uint8_t controlGain, uint16_t feedbackFactor)
    : m_gain(controlGain), m_feedback(feedbackFactor) {}

template <typename T> void TemporalNoiseReduction<T>::buildTable(uint8_t gain, uint16_t feedback) {
    const int32_t a = std::min<int32_t>(feedback, 2047);
    m_alpha.assign(static_cast<size_t>(2 * gain) + 1, 0);
    for (int d = 0; d < 2 * gain; ++d)
        m_alpha[static_cast<size_t>(d)] = d <= gain ? a : a * (2 * gain - d) / gain;
    m_tableGain = gain;
    m_tableFeedback = feedback;
    m_tableValid = true;
}

template <typename T> void TemporalNoiseReduction<T>::process(cv::Mat& frame) {
    if (frame.type() != cv::DataType<T>::type)
        NORDA_THROW("temporal noise reduction: frame type " + std::to_string(frame.type()) + " is not " +
                        std::to_string(cv::DataType<T>::type),
                    "norda::vision::TemporalNoiseReduction::process");
    const uint8_t gain = m_gain;
    const uint16_t feedback = m_feedback;
    if (!m_tableValid || gain != m_tableGain || feedback != m_tableFeedback)
        buildTable(gain, feedback);

    if (m_history.size() != frame.size()) {
        frame.convertTo(m_history, CV_32S, 16.0);
        return;
    }
    const int32_t* alpha = m_alpha.data();
    const uint32_t last = static_cast<uint32_t>(m_alpha.size()) - 1; // entry holding 0
    for (int y = 0; y < frame.rows; ++y) {
        T* px = frame.ptr<T>(y);
        int32_t* h = m_history.ptr<int32_t>(y);
        for (int x = 0; x < frame.cols; ++x) {
            const int32_t v = static_cast<int32_t>(px[x]) * 16;
            const int32_t diff = h[x] - v;
            const uint32_t ad = std::min(static_cast<uint32_t>(std::abs(diff)) >> 4, last);
            const int32_t next = v + ((alpha[ad] * diff + 1024) >> 11);
            h[x] = next;
            px[x] = static_cast<T>((next + 8) >> 4);
        }
    }
}

template class TemporalNoiseReduction<short>;
template class TemporalNoiseReduction<unsigned short>;

} // namespace norda::vision
