#pragma once
// ColorConversionElement: turns the visual camera's packed YUV 4:2:2 frame (U Y0 V Y1, CV_8UC2)
// into an 8-bit RGB display image of the same size (BT.601, see ColorConvert).
//
// Slots: input STREAMING_DATATYPE_YUV422 (6), output STREAMING_DATATYPE_RGB (5); the metadata
// moves from the input frame to the RGB frame. Any other input type throws
// "Wrong Input Type for Conversion , must be Mat2b !!!" and writes nothing.

#include "nordalib/vision/streaming/StreamingElement.h"

namespace norda::exp::streaming {

class ColorConversionElement : public StreamingElement {
public:
    ColorConversionElement();

    bool process(FrameMap& inputs, FrameMap& outputs) override;
};

} // namespace norda::exp::streaming
