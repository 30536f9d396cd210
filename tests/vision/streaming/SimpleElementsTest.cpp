// The simple elements: capture, resize, test image, colour conversion, windowing.
#include "nordalib/vision/imgproc/ColorConvert.h"
#include "nordalib/vision/streaming/CaptureElement.h"
#include "nordalib/vision/streaming/ImageGeneratorElement.h"
#include "nordalib/vision/streaming/ResizeElement.h"
#include "nordalib/vision/streaming/WindowingElement.h"
#include "nordalib/vision/streaming/Yuv422ToRgb888Element.h"
#include "tests/support/Frames.h"
#include "tests/support/Messages.h"

#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>

#include <chrono>

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

TEST(CaptureElement, HandsOnWhatTheSourceGivesAndSwallowsFailures) {
    int calls = 0;
    std::unique_ptr<Frame> next;
    CaptureElement capture(STREAMING_DATATYPE_YUV422, [&]() -> std::unique_ptr<Frame> {
        if (++calls == 3)
            throw std::runtime_error("driver gone");
        return std::move(next);
    });
    FrameMap in, out;
    next = makeFrame(cv::Mat(2, 2, CV_8UC2));
    Frame* given = next.get();
    EXPECT_TRUE(capture.process(in, out));
    EXPECT_EQ(out[STREAMING_DATATYPE_YUV422].get(), given);
    // An empty result empties the slot and is no capture.
    EXPECT_FALSE(capture.process(in, out));
    EXPECT_EQ(out[STREAMING_DATATYPE_YUV422], nullptr);
    // A throwing source (or none) leaves the slot as it was and prints the fixed line.
    out[STREAMING_DATATYPE_YUV422] = makeFrame(cv::Mat(1, 1, CV_8UC2));
    Frame* previous = out[STREAMING_DATATYPE_YUV422].get();
    CaptureElement none(STREAMING_DATATYPE_YUV422, nullptr);
    for (CaptureElement* c : {&capture, &none}) {
        testing::internal::CaptureStdout();
        EXPECT_FALSE(c->process(in, out));
        EXPECT_EQ(testing::internal::GetCapturedStdout(), "exception thrown in CaptureElement::process\n");
        EXPECT_EQ(out[STREAMING_DATATYPE_YUV422].get(), previous);
    }
}

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
    in[STREAMING_DATATYPE_RGB] = makeFrame(cv::Mat(48, 100, CV_8UC3)); // one matching side is not enough
    EXPECT_TRUE(element.process(in, out));
    EXPECT_EQ(out[STREAMING_DATATYPE_RGB]->getFrameData().size(), cv::Size(64, 48));

    // Failures print their text and return false.
    FrameMap none;
    testing::internal::CaptureStdout();
    EXPECT_FALSE(element.process(none, out));
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "no frame in slot STREAMING_DATATYPE_RGB\n");
}

TEST(ImageGeneratorElement, DrawsMovingPatternCountsAndPaces) {
    const int width = 57, height = 40; // the moving line wraps after 51 frames
    ImageGeneratorElement generator(STREAMING_DATATYPE_CORRECTED, cv::Size(width, height));
    FrameMap in, out;
    auto previous = std::chrono::steady_clock::now();
    for (int i = 0; i <= width - 6; ++i) {
        ASSERT_TRUE(generator.process(in, out));
        const auto now = std::chrono::steady_clock::now();
        EXPECT_GE(now - previous, std::chrono::milliseconds(30));
        previous = now;
        Frame& frame = *out[STREAMING_DATATYPE_CORRECTED];
        EXPECT_EQ(frame.getMetaData().get<unsigned long long>("FrameCnt"), unsigned(i));
        const cv::Mat& image = frame.getFrameData();
        const int x = i % (width - 6);
        const int row = height - 2; // below the text, away from the horizontal line's early rows
        if (i == 0 || i == width - 6) {
            EXPECT_EQ(x, 0);
            EXPECT_EQ(image.at<int16_t>(row, 0), 1);
            EXPECT_EQ(image.at<int16_t>(row, 2), 1);
            EXPECT_EQ(image.at<int16_t>(row, 4), 0);
        }
        EXPECT_EQ(image.at<int16_t>(row, 10), 10);
        EXPECT_EQ(image.at<int16_t>(row, 50), 20);
    }
}

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
