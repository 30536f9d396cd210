#include "nordalib/vision/streaming/ResizeElement.h"

#include "nordalib/vision/streaming/SlotAccess.h"

#include <opencv2/imgproc.hpp>

#include <iostream>

namespace norda::exp::streaming {

ResizeElement::ResizeElement(STREAMING_DATATYPE slot, cv::Size size)
    : StreamingElement({slot}, {slot}, "ResizeElement", nullptr, false, 0), m_size(size), m_slot(slot) {}

bool ResizeElement::process(FrameMap& inputs, FrameMap& outputs) {
    try {
        Frame& input = requireFrame(inputs, m_slot, "norda::exp::streaming::ResizeElement::process");
        const cv::Mat& image = input.getFrameData();
        if (image.cols == m_size.width && image.rows == m_size.height) {
            passThrough(inputs, m_slot, outputs, m_slot);
            return true;
        }
        cv::Mat result;
        cv::resize(image, result, cv::Size(m_size.width, m_size.height), 0, 0, cv::INTER_LINEAR);
        emit(outputs, m_slot, std::make_unique<Frame>(result, input.releaseMetaData()));
        return true;
    } catch (const std::exception& e) {
        std::cout << e.what() << std::endl;
        return false;
    }
}

} // namespace norda::exp::streaming
