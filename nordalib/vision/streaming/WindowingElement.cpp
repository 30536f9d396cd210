#include "nordalib/vision/streaming/WindowingElement.h"

#include "nordalib/vision/streaming/SlotAccess.h"

#include <cstring>

namespace norda::exp::streaming {

WindowingElement::WindowingElement(uint16_t width, uint16_t height, STREAMING_DATATYPE input,
                                   STREAMING_DATATYPE output)
    : StreamingElement({input}, {output}, "WindowingElement", nullptr, false, 0), m_width(width),
      m_height(height), m_input(input), m_output(output) {}

void WindowingElement::setWindowSize(uint16_t width, uint16_t height) {
    m_width = width;
    m_height = height;
}

bool WindowingElement::process(FrameMap& inputs, FrameMap& outputs) {
    static const char* function = "norda::exp::streaming::WindowingElement::process";
    Frame& input = requireFrame(inputs, m_input, function);
    const cv::Mat& image = input.getFrameData();
    if (image.data == nullptr || image.total() == 0) {
        passThrough(inputs, m_input, outputs, m_output);
        return true;
    }
    if (image.cols < m_width || image.rows < m_height)
        throw Exception("Windowing Failed! ROI outside of current image! " + std::to_string(image.cols) +
                            ", " + std::to_string(image.rows),
                        formatLocation("nordalib/vision/streaming/WindowingElement", 50, function));
    if (image.cols == m_width || image.rows == m_height) {
        passThrough(inputs, m_input, outputs, m_output);
        return true;
    }
    // The origin is computed on 16-bit sizes, so wider frames would wrap; and the copy reads
    // 16-bit words, so narrower pixels would run past the end of the rows.
    if (image.cols > 65535 || image.rows > 65535)
        throw Exception("Windowing supports frames up to 65535 x 65535, got " + std::to_string(image.cols) +
                            " x " + std::to_string(image.rows),
                        NORDA_LOCATION(function));
    if (image.elemSize() < 2)
        throw Exception("Windowing needs pixels of at least 16 bits, got type " +
                            std::to_string(image.type()),
                        NORDA_LOCATION(function));
    const int x0 = (uint16_t(image.cols) - m_width) / 2;
    const int y0 = (uint16_t(image.rows) - m_height) / 2;
    cv::Mat window(m_height, m_width, CV_16UC1);
    for (int r = 0; r < m_height; ++r)
        std::memcpy(window.ptr<uint16_t>(r), image.ptr<uint8_t>(y0 + r) + size_t(x0) * 2,
                    size_t(m_width) * 2);
    emit(outputs, m_output, std::make_unique<Frame>(window, input.releaseMetaData()));
    return true;
}

} // namespace norda::exp::streaming
