// The fused resample-and-mix against OpenCV doing the same in two steps: cv::remap through the
// fixed-point maps cv::convertMaps makes of the same coordinates, then cv::addWeighted.
#include "nordalib/vision/imgproc/RemapBlend.h"

#include "tests/support/Messages.h"

#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>

using namespace norda::vision;

TEST(RemapBlend, IsRemapThenAddWeightedInOnePass) {
    const cv::Size size(203, 61), source(190, 70);
    cv::RNG rng(3);
    cv::Mat src(source, CV_8UC3), base(size, CV_8UC3);
    rng.fill(src, cv::RNG::UNIFORM, 0, 256);
    rng.fill(base, cv::RNG::UNIFORM, 0, 256);
    // A turned, scaled view reaching past every edge of the source, and random coordinates, some
    // on exact 1/64 steps (the rounding ties of the 1/32 grid).
    cv::Mat turnedX(size, CV_32F), turnedY(size, CV_32F), randomX(size, CV_32F), randomY(size, CV_32F);
    for (int y = 0; y < size.height; ++y)
        for (int x = 0; x < size.width; ++x) {
            turnedX.at<float>(y, x) = float(0.97 * x + 0.05 * y - 4.3);
            turnedY.at<float>(y, x) = float(-0.04 * x + 1.1 * y - 2.2);
            const bool tie = (x + y) % 3 == 0;
            randomX.at<float>(y, x) =
                tie ? float(rng.uniform(-128, 64 * 192)) / 64 : rng.uniform(-3.f, 193.f);
            randomY.at<float>(y, x) = tie ? float(rng.uniform(-128, 64 * 72)) / 64 : rng.uniform(-3.f, 73.f);
        }
    for (const auto& [mapX, mapY] : {std::pair(turnedX, turnedY), std::pair(randomX, randomY)}) {
        cv::Mat xy, fraction, warped;
        cv::convertMaps(mapX, mapY, xy, fraction, CV_16SC2);
        cv::remap(src, warped, xy, fraction, cv::INTER_LINEAR, cv::BORDER_CONSTANT, cv::Scalar::all(0));
        RemapBlend blend(mapX, mapY, source);
        for (float alpha : {0.0f, 0.3f, 0.5f, 1.0f}) {
            SCOPED_TRACE(alpha);
            cv::Mat out, expected;
            blend.apply(src, base, alpha, out);
            cv::addWeighted(base, alpha, warped, 1.0 - alpha, 0.0, expected);
            // The resampling is exact (alpha 0 and 1 show each side alone); the mix rounds its
            // exact sum half up where addWeighted rounds a float sum half to even: one step apart
            // at most, and only there.
            EXPECT_LE(cv::norm(out, expected, cv::NORM_INF), alpha == 0.0f || alpha == 1.0f ? 0.0 : 1.0);
        }
        // The luma of a UYVY frame: extractChannel and remap, byte for byte.
        cv::Mat uyvy(source, CV_8UC2), luma, expectedLuma, warpedLuma;
        rng.fill(uyvy, cv::RNG::UNIFORM, 0, 256);
        cv::extractChannel(uyvy, luma, 1);
        cv::remap(luma, expectedLuma, xy, fraction, cv::INTER_LINEAR, cv::BORDER_CONSTANT,
                  cv::Scalar::all(0));
        RemapBlend(mapX, mapY, source, false, RemapBlend::Source::UyvyLuma).warpLuma(uyvy, warpedLuma);
        EXPECT_EQ(cv::norm(warpedLuma, expectedLuma, cv::NORM_INF), 0.0);
        // Picture in picture: only where the coordinates lie within the source, the rest untouched.
        RemapBlend inside(mapX, mapY, source, true);
        cv::Mat out = base.clone(), expected = base.clone();
        const cv::Mat mask =
            (mapX >= 0) & (mapX <= source.width - 1) & (mapY >= 0) & (mapY <= source.height - 1);
        warped.copyTo(expected, mask);
        inside.apply(src, out, 0.0f, out);
        EXPECT_EQ(cv::norm(out, expected, cv::NORM_INF), 0.0);
        ASSERT_GT(cv::countNonZero(mask), 0);
        ASSERT_LT(cv::countNonZero(mask), size.area());
    }
    // Written in place into the framed buffer, the source needs no copy and gives the same.
    RemapBlend blend(turnedX, turnedY, source);
    cv::Mat copied, inPlace;
    blend.apply(src, base, 0.4f, copied);
    cv::Mat view = blend.source();
    src.copyTo(view);
    blend.apply(view, base, 0.4f, inPlace);
    EXPECT_EQ(cv::norm(copied, inPlace, cv::NORM_INF), 0.0);
    EXPECT_EQ(norda::test::messageOf([&] { blend.apply(base, base, 0.5f, copied); }),
              "remap source must be CV_8UC3 of 190x70");
}
