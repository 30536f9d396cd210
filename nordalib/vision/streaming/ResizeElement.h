#pragma once
// ResizeElement: scales the frame of one slot to a fixed size (bilinear).
//
// Slots: the constructor's slot is input and output. A frame that already has the target size is
// passed on as the very same object; otherwise a new frame carries the scaled image and the
// metadata. Standard exceptions are swallowed: their text goes to standard output and the cycle
// returns false.

#include "nordalib/vision/streaming/StreamingElement.h"

#include <opencv2/core.hpp>

namespace norda::exp::streaming {

class ResizeElement : public StreamingElement {
public:
    ResizeElement(STREAMING_DATATYPE slot, cv::Size size);

    bool process(FrameMap& inputs, FrameMap& outputs) override;

private:
    cv::Size m_size;
    STREAMING_DATATYPE m_slot;
};

} // namespace norda::exp::streaming
