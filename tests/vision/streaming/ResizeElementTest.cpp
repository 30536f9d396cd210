#include "nordalib/vision/streaming/ResizeElement.h"
#include "tests/support/Frames.h"

#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>

using namespace norda;
using namespace norda::exp;
using namespace norda::exp::streaming;
using norda::test::makeFrame;

TEST(ResizeElement, PassesMatchingFramesAndScalesOthers) {
    ResizeElement element(STREAMING_DATATYPE_RGB, cv::Size(64, 48));
    FrameMap in, out;
    in[STREAMING_DATATYPE_RGB] = makeFrame(cv::Mat(48, 64, CV_8UC3, cv::Scalar(1, 2, 3)));
    Frame* original = in[STREAMING_DATATYPE_RGB].get();
    EXPECT_TRUE(element.process(in, out));
    EXPECT_EQ(out[STREAMING_DATATYPE_RGB].get(), original);

    cv::Mat big(96, 128, CV_8UC3);
    cv::randu(big, cv::Scalar::all(0), cv::Scalar::all(256));
    in[STREAMING_DATATYPE_RGB] = makeFrame(big, "big");
    EXPECT_TRUE(element.process(in, out));
    cv::Mat expected;
    cv::resize(big, expected, cv::Size(64, 48), 0, 0, cv::INTER_LINEAR);
    EXPECT_EQ(cv::norm(out[STREAMING_DATATYPE_RGB]->getFrameData(), expected, cv::NORM_INF), 0.0);
    EXPECT_EQ(out[STREAMING_DATATYPE_RGB]->getMetaData().get<std::string>("Origin"), "big");

    // Failures print their text and return false: an impossible target size, a missing frame.
    ResizeElement broken(STREAMING_DATATYPE_RGB, cv::Size(0, 0));
    in[STREAMING_DATATYPE_RGB] = makeFrame(big);
    testing::internal::CaptureStdout();
    EXPECT_FALSE(broken.process(in, out));
    EXPECT_FALSE(testing::internal::GetCapturedStdout().empty());
    FrameMap none;
    testing::internal::CaptureStdout();
    EXPECT_FALSE(element.process(none, out));
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "no frame in slot STREAMING_DATATYPE_RGB\n");
}
