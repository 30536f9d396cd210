#pragma once
// ImageGeneratorElement: a paced synthetic test pattern for running a chain without a camera.
//
// Each cycle draws a CV_16SC1 frame: a vertical and a horizontal line (value 1) that move by one
// pixel per frame and wrap, two fixed vertical lines at x = 10 (value 10) and x = 50 (value 20),
// and the text "Testimage". The frame carries "FrameCnt" (unsigned long long, 0 for the first)
// and the call paces itself to one frame per 30 ms plus the drawing time.
// Slots: no inputs; output = the constructor's slot. The size must exceed 6 x 6 (the moving lines
// wrap modulo size - 6); at least 51 columns show the line at x = 50.

#include "nordalib/vision/streaming/StreamingElement.h"

#include <opencv2/core.hpp>

#include <cstdint>

namespace norda::exp::streaming {

class ImageGeneratorElement : public StreamingElement {
public:
    // Throws a norda::Exception for a width or height of 6 or less.
    ImageGeneratorElement(STREAMING_DATATYPE slot, cv::Size size);

    bool process(FrameMap& inputs, FrameMap& outputs) override;

private:
    STREAMING_DATATYPE m_slot;
    int m_width;
    int m_height;
    uint64_t m_lineCounter = 0;
    uint64_t m_frameCounter = 0;
};

} // namespace norda::exp::streaming
