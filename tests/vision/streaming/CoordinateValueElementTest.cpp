#include "nordalib/vision/streaming/CoordinateValueElement.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

using namespace norda::exp;
using namespace norda::exp::streaming;

TEST(CoordinateValueElement, AnswersFromTheLatestRawFrame) {
    CoordinateValueElement element;
    EXPECT_EQ(element.valuefromCoordinate(0, 0), 0);
    EXPECT_EQ(element.valuefromCoordinate(65535, 65535), 0);

    FrameMap frames, out;
    EXPECT_TRUE(element.process(frames, out)); // no frame: swallowed
    cv::Mat raw(4, 6, CV_16UC1);
    for (int r = 0; r < 4; ++r)
        for (int c = 0; c < 6; ++c)
            raw.at<uint16_t>(r, c) = uint16_t(100 * r + c);
    frames[STREAMING_DATATYPE_RAW] = std::make_unique<Frame>(raw);
    EXPECT_TRUE(element.process(frames, out));
    EXPECT_EQ(element.valuefromCoordinate(2, 3), 302);
    EXPECT_EQ(element.valuefromCoordinate(65535, 65535), 305);
    EXPECT_EQ(element.valuefromCoordinate(1, 999), 301);

    // The buffer is shared: a later writer changes the answer.
    frames[STREAMING_DATATYPE_RAW]->getFrameData().at<uint16_t>(0, 0) = 4242;
    EXPECT_EQ(element.valuefromCoordinate(0, 0), 4242);

    // Other types are converted (rounded, saturated) before being kept.
    cv::Mat floats(2, 2, CV_32FC1, cv::Scalar(3.6));
    floats.at<float>(1, 1) = -5.0f;
    frames[STREAMING_DATATYPE_RAW] = std::make_unique<Frame>(floats);
    EXPECT_TRUE(element.process(frames, out));
    EXPECT_EQ(element.valuefromCoordinate(0, 0), 4);
    EXPECT_EQ(element.valuefromCoordinate(1, 1), 0);
    frames[STREAMING_DATATYPE_RAW] = std::make_unique<Frame>(cv::Mat());
    EXPECT_TRUE(element.process(frames, out));
    EXPECT_EQ(element.valuefromCoordinate(0, 0), 0);
}

TEST(CoordinateValueElement, QueriesFromOtherThreadsWhileFramesArrive) {
    CoordinateValueElement element;
    std::atomic<bool> done{false};
    std::atomic<int> bad{0};
    std::thread reader([&] {
        while (!done) {
            const unsigned short v = element.valuefromCoordinate(65535, 0);
            if (v != 0 && v % 7 != 0)
                ++bad;
        }
    });
    FrameMap frames, out;
    for (int i = 1; i < 2000; ++i) {
        frames[STREAMING_DATATYPE_RAW] =
            std::make_unique<Frame>(cv::Mat(8, 8 + i % 5, CV_16UC1, cv::Scalar(7 * (i % 9000))));
        element.process(frames, out);
        frames.clear(); // the frame dies; the element's reference keeps the pixels alive
    }
    done = true;
    reader.join();
    EXPECT_EQ(bad, 0);
}
