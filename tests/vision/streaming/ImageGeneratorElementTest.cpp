#include "nordalib/vision/streaming/ImageGeneratorElement.h"

#include <gtest/gtest.h>

#include <chrono>

using namespace norda;
using namespace norda::exp;
using namespace norda::exp::streaming;

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
        ASSERT_EQ(image.type(), CV_16SC1);
        ASSERT_EQ(image.size(), cv::Size(width, height));
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
