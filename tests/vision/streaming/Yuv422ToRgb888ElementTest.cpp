#include "nordalib/vision/streaming/Yuv422ToRgb888Element.h"
#include "nordalib/vision/imgproc/ColorConvert.h"
#include "tests/support/Frames.h"
#include "tests/support/Messages.h"

#include <gtest/gtest.h>

using namespace norda;
using namespace norda::exp;
using namespace norda::exp::streaming;
using norda::test::makeFrame;

TEST(ColorConversionElement, ConvertsUyvyAndRejectsOtherTypes) {
    ColorConversionElement element;
    cv::Mat yuv(48, 64, CV_8UC2);
    cv::randu(yuv, cv::Scalar::all(0), cv::Scalar::all(256));
    FrameMap in, out;
    in[STREAMING_DATATYPE_YUV422] = makeFrame(yuv, "visual");
    EXPECT_TRUE(element.process(in, out));
    cv::Mat_<cv::Vec3b> expected;
    vision::ColorConvert::convertUY1VY0ToRGB(yuv, expected);
    EXPECT_EQ(cv::norm(out[STREAMING_DATATYPE_RGB]->getFrameData(), expected, cv::NORM_INF), 0.0);
    EXPECT_EQ(out[STREAMING_DATATYPE_RGB]->getMetaData().get<std::string>("Origin"), "visual");
    EXPECT_TRUE(in[STREAMING_DATATYPE_YUV422]->getMetaData().empty());

    for (int type : {CV_8UC3, CV_16UC1, CV_8UC1}) {
        FrameMap bad, result;
        bad[STREAMING_DATATYPE_YUV422] = makeFrame(cv::Mat(4, 4, type));
        EXPECT_EQ(test::failureOf([&] { element.process(bad, result); }),
                  std::make_pair(std::string("Wrong Input Type for Conversion , must be Mat2b !!!"),
                                 std::string("nordalib/vision/streaming/Yuv422ToRgb888Element: 41: "
                                             "norda::exp::streaming::ColorConversionElement::process(..)")));
        EXPECT_TRUE(result.empty());
        EXPECT_FALSE(bad[STREAMING_DATATYPE_YUV422]->getMetaData().empty());
    }
}
