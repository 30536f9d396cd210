#include "nordalib/vision/streaming/CaptureElement.h"
#include "tests/support/Frames.h"

#include <gtest/gtest.h>

using namespace norda::exp;
using namespace norda::exp::streaming;
using norda::test::makeFrame;

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
