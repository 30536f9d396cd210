#include "nordalib/vision/streaming/Yuv422ToRgb888Element.h"

#include "nordalib/vision/imgproc/ColorConvert.h"
#include "nordalib/vision/streaming/SlotAccess.h"

namespace norda::exp::streaming {

ColorConversionElement::ColorConversionElement()
    : StreamingElement({STREAMING_DATATYPE_YUV422}, {STREAMING_DATATYPE_RGB}, "ColorConversionElement",
                       nullptr, false, 0) {}

bool ColorConversionElement::process(FrameMap& inputs, FrameMap& outputs) {
    Frame& input = requireFrame(inputs, STREAMING_DATATYPE_YUV422,
                                "norda::exp::streaming::ColorConversionElement::process");
    const cv::Mat& yuv = input.getFrameData();
    if ((yuv.flags & 0xFFF) != CV_8UC2)
        throw Exception("Wrong Input Type for Conversion , must be Mat2b !!!",
                        formatLocation("nordalib/vision/streaming/Yuv422ToRgb888Element", 41,
                                       "norda::exp::streaming::ColorConversionElement::process"));
    cv::Mat_<cv::Vec3b> rgb;
    vision::ColorConvert::convertUY1VY0ToRGB(yuv, rgb);
    emit(outputs, STREAMING_DATATYPE_RGB, std::make_unique<Frame>(rgb, input.releaseMetaData()));
    return true;
}

} // namespace norda::exp::streaming
