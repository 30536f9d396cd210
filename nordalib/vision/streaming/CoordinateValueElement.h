#pragma once
// CoordinateValueElement: a tap on the raw sensor stream that answers "which raw value is at
// (x, y)?" from any thread.
//
// Each cycle it keeps the latest raw frame (sharing its pixels, no copy; other types are
// converted to 16-bit unsigned first) and writes nothing back. valuefromCoordinate clamps the
// coordinates to the image silently and returns 0 before the first frame. Since the pixels are
// shared, a later element writing into that buffer changes what a query returns.
// Slots: input STREAMING_DATATYPE_RAW (0), no outputs; every cycle returns true, failures are
// swallowed.

#include "nordalib/vision/streaming/StreamingElement.h"

#include <opencv2/core.hpp>

#include <mutex>

namespace norda::exp::streaming {

class CoordinateValueElement : public StreamingElement {
public:
    CoordinateValueElement();

    bool process(FrameMap& frames, FrameMap& outputs) override;

    unsigned short valuefromCoordinate(unsigned short x, unsigned short y);

private:
    void setInMap(cv::Mat_<unsigned short>& img);
    void getInMap(cv::Mat_<unsigned short>& img);

    cv::Mat_<unsigned short> m_latest;
    std::mutex m_mutex; // guards only the exchange of the image header
};

} // namespace norda::exp::streaming
