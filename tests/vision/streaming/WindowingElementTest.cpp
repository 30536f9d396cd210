#include "nordalib/vision/streaming/WindowingElement.h"
#include "nordalib/core/exception/Exception.h"
#include "tests/support/Frames.h"
#include "tests/support/Messages.h"

#include <gtest/gtest.h>

using namespace norda;
using namespace norda::exp;
using namespace norda::exp::streaming;
using norda::test::makeFrame;

namespace {
cv::Mat ramp(int rows, int cols) {
    cv::Mat m(rows, cols, CV_16UC1);
    for (int r = 0; r < rows; ++r)
        for (int c = 0; c < cols; ++c)
            m.at<uint16_t>(r, c) = uint16_t(r * 256 + c);
    return m;
}
} // namespace

TEST(WindowingElement, CutsCentredWindowOrPassesOnAsPrescribed) {
    WindowingElement element(320, 200, STREAMING_DATATYPE_RAW, STREAMING_DATATYPE_CORRECTED);

    // One matching dimension is enough for the frame to go on uncut, as the very object.
    FrameMap in, out;
    in[STREAMING_DATATYPE_RAW] = makeFrame(ramp(240, 320));
    Frame* original = in[STREAMING_DATATYPE_RAW].get();
    EXPECT_TRUE(element.process(in, out));
    EXPECT_EQ(out[STREAMING_DATATYPE_CORRECTED].get(), original);
    EXPECT_EQ(in[STREAMING_DATATYPE_RAW], nullptr);

    // A smaller window is cut from the centre: (320 - 160) / 2 = 80, (240 - 120) / 2 = 60.
    element.setWindowSize(160, 120);
    for (cv::Size size : {cv::Size(320, 240), cv::Size(321, 241)}) {
        in[STREAMING_DATATYPE_RAW] = makeFrame(ramp(size.height, size.width), "ir");
        EXPECT_TRUE(element.process(in, out));
        const cv::Mat& window = out[STREAMING_DATATYPE_CORRECTED]->getFrameData();
        ASSERT_EQ(window.size(), cv::Size(160, 120));
        EXPECT_EQ(window.type(), CV_16UC1);
        EXPECT_EQ(window.at<uint16_t>(0, 0), 60 * 256 + 80);
        EXPECT_EQ(window.at<uint16_t>(119, 159), 179 * 256 + 239);
        EXPECT_EQ(out[STREAMING_DATATYPE_CORRECTED]->getMetaData().get<std::string>("Origin"), "ir");
    }

    // Too small in one dimension: the message ends with the frame's columns and rows.
    element.setWindowSize(330, 120);
    in[STREAMING_DATATYPE_RAW] = makeFrame(ramp(240, 320));
    out.clear();
    EXPECT_EQ(test::failureOf([&] { element.process(in, out); }),
              std::make_pair(std::string("Windowing Failed! ROI outside of current image! 320, 240"),
                             std::string("nordalib/vision/streaming/WindowingElement: 50: "
                                         "norda::exp::streaming::WindowingElement::process(..)")));
    EXPECT_TRUE(out.empty());

    // Empty frames pass on; 8-bit frames cannot be cut as 16-bit words and are refused.
    in[STREAMING_DATATYPE_RAW] = makeFrame(cv::Mat());
    original = in[STREAMING_DATATYPE_RAW].get();
    EXPECT_TRUE(element.process(in, out));
    EXPECT_EQ(out[STREAMING_DATATYPE_CORRECTED].get(), original);
    element.setWindowSize(16, 16);
    in[STREAMING_DATATYPE_RAW] = makeFrame(cv::Mat(64, 64, CV_8UC1));
    EXPECT_THROW(element.process(in, out), Exception);

    // Same slot in and out: a pass-through leaves the frame where it is.
    WindowingElement inPlace(32, 10, STREAMING_DATATYPE_RAD, STREAMING_DATATYPE_RAD);
    in[STREAMING_DATATYPE_RAD] = makeFrame(ramp(20, 32));
    original = in[STREAMING_DATATYPE_RAD].get();
    EXPECT_TRUE(inPlace.process(in, in));
    EXPECT_EQ(in[STREAMING_DATATYPE_RAD].get(), original);
}
