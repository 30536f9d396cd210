#include "nordalib/vision/imgproc/ColorConvert.h"
#include "nordalib/core/exception/Exception.h"

#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>

using norda::vision::ColorConvert;

namespace {
cv::Mat randomYuv(int rows, int cols, int seed) {
    cv::Mat m(rows, cols, CV_8UC2);
    cv::theRNG().state = uint64_t(seed);
    cv::randu(m, cv::Scalar::all(0), cv::Scalar::all(256));
    return m;
}

double maxDiff(const cv::Mat& a, const cv::Mat& b) {
    cv::Mat d;
    cv::absdiff(a, b, d);
    double mx = 0;
    cv::minMaxLoc(d.reshape(1), nullptr, &mx);
    return mx;
}
} // namespace

TEST(ColorConvert, AgreesWithOpenCvWithinTwoOnRandomInput) {
    // 640 covers the vector path, 38 its tail, 2 the plain loop alone.
    for (int cols : {640, 38, 2}) {
        cv::Mat yuv = randomYuv(48, cols, cols);
        cv::Mat_<cv::Vec3b> rgb, bgr;
        cv::Mat refRgb, refBgr;
        ColorConvert::convertUY1VY0ToRGB(yuv, rgb);
        ColorConvert::convertUY1VY0ToBGR(yuv, bgr);
        cv::cvtColor(yuv, refRgb, cv::COLOR_YUV2RGB_UYVY);
        cv::cvtColor(yuv, refBgr, cv::COLOR_YUV2BGR_UYVY);
        ASSERT_EQ(rgb.size(), yuv.size());
        EXPECT_LE(maxDiff(rgb, refRgb), 2.0) << cols;
        EXPECT_LE(maxDiff(bgr, refBgr), 2.0) << cols;
    }
    // Extremes saturate instead of wrapping.
    cv::Mat extreme(1, 4, CV_8UC2);
    const uint8_t bytes[] = {0, 255, 255, 0, 255, 255, 0, 0};
    std::memcpy(extreme.data, bytes, sizeof(bytes));
    cv::Mat_<cv::Vec3b> rgb;
    cv::Mat ref;
    ColorConvert::convertUY1VY0ToRGB(extreme, rgb);
    cv::cvtColor(extreme, ref, cv::COLOR_YUV2RGB_UYVY);
    EXPECT_LE(maxDiff(rgb, ref), 2.0);
}

TEST(ColorConvert, CositedConversionInterpolatesOddPixelsOnly) {
    cv::Mat yuv = randomYuv(6, 102, 11); // 51 pairs: wide vectors, narrow vectors and plain tail
    cv::Mat_<cv::Vec3b> cosited, replicated;
    ColorConvert::convertUYVYToRGB(yuv, cosited);
    ColorConvert::convertUY1VY0ToRGB(yuv, replicated);
    // Even pixels carry their own pair's chroma in both conversions.
    for (int x = 0; x < yuv.cols; x += 2)
        EXPECT_EQ(maxDiff(cosited.col(x), replicated.col(x)), 0.0);
    // Odd pixel 2k+1 equals an even pixel built from its luma and the rounded mean chroma of pairs
    // k and k+1 (the last pair repeats its own chroma).
    cv::Mat probe = yuv.clone();
    const int pairs = yuv.cols / 2;
    for (int r = 0; r < yuv.rows; ++r)
        for (int k = 0; k < pairs; ++k) {
            const uint8_t* s = yuv.ptr<uint8_t>(r) + 4 * k;
            const uint8_t* n = k + 1 < pairs ? s + 4 : s;
            uint8_t* p = probe.ptr<uint8_t>(r) + 4 * k;
            p[0] = uint8_t((s[0] + n[0] + 1) / 2);
            p[1] = s[3];
            p[2] = uint8_t((s[2] + n[2] + 1) / 2);
        }
    cv::Mat_<cv::Vec3b> expected;
    ColorConvert::convertUY1VY0ToRGB(probe, expected);
    for (int k = 0; k < pairs; ++k)
        ASSERT_EQ(maxDiff(cosited.col(2 * k + 1), expected.col(2 * k)), 0.0) << k;
}

TEST(ColorConvert, RejectsWrongTypesAndOddWidths) {
    cv::Mat_<cv::Vec3b> out;
    EXPECT_THROW(ColorConvert::convertUY1VY0ToRGB(cv::Mat(4, 4, CV_8UC3), out), norda::Exception);
    EXPECT_THROW(ColorConvert::convertUYVYToRGB(cv::Mat(4, 4, CV_16UC1), out), norda::Exception);
    EXPECT_THROW(ColorConvert::convertUY1VY0ToBGR(cv::Mat(4, 5, CV_8UC2), out), norda::Exception);
    ColorConvert::convertUY1VY0ToRGB(cv::Mat(0, 0, CV_8UC2), out);
    EXPECT_TRUE(out.empty());
}
