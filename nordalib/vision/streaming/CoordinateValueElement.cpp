#include "nordalib/vision/streaming/CoordinateValueElement.h"

#include <algorithm>

namespace norda::exp::streaming {

CoordinateValueElement::CoordinateValueElement()
    : StreamingElement({STREAMING_DATATYPE_RAW}, {}, "CoordinateValue", nullptr, false, 0) {}

bool CoordinateValueElement::process(FrameMap& frames, FrameMap& /*outputs*/) {
    try {
        auto& entry = frames[STREAMING_DATATYPE_RAW];
        if (!entry)
            return true;
        cv::Mat_<unsigned short> image;
        image = entry->getFrameData(); // shares a CV_16UC1 buffer, converts anything else
        setInMap(image);
    } catch (...) {
        // a tap never disturbs the cycle
    }
    return true;
}

unsigned short CoordinateValueElement::valuefromCoordinate(unsigned short x, unsigned short y) {
    cv::Mat_<unsigned short> image;
    getInMap(image); // keeps the buffer alive while it is read outside the lock
    if (image.data == nullptr || image.total() == 0)
        return 0;
    const int col = std::min<int>(x, image.cols - 1);
    const int row = std::min<int>(y, image.rows - 1);
    return image(row, col);
}

void CoordinateValueElement::setInMap(cv::Mat_<unsigned short>& img) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_latest = img;
}

void CoordinateValueElement::getInMap(cv::Mat_<unsigned short>& img) {
    std::lock_guard<std::mutex> lock(m_mutex);
    img = m_latest;
}

} // namespace norda::exp::streaming
