#include "nordalib/vision/calibration/DistortionCalibration.h"
#include "tests/vision/TestSupport.h"
#include "tests/vision/calibration/GridViews.h"

#include <gtest/gtest.h>

#include <opencv2/calib3d.hpp>
#include <opencv2/imgproc.hpp>

#include <cmath>

using namespace norda;
using namespace norda::vision;

namespace {
const test::Lens kLens = test::infraredLens();

// Source position of an output pixel in a table entry.
cv::Point2d source(const DistortionTable& t, int x, int y) {
    const int i = y * t.cols() + x;
    const auto& e = t.entries()[size_t(i)];
    const int s = i + e.offset;
    return {s % t.cols() + (e.w01 + e.w11) / 65536.0, s / t.cols() + (e.w10 + e.w11) / 65536.0};
}
} // namespace

TEST(DistortionCalibration, RecoversTheLensFromRenderedGridViews) {
    cv::RNG rng(11);
    const auto views = test::infraredGridViews(rng);
    const DistortionFit fit = DistortionCalibration(test::gridTarget()).fit(views);
    EXPECT_LT(fit.rmsPx, 0.15);
    EXPECT_EQ(fit.viewRmsPx.size(), views.size());
    EXPECT_NEAR(fit.cameraMatrix(0, 0), kLens.K(0, 0), 2.0);
    EXPECT_NEAR(fit.cameraMatrix(1, 1), kLens.K(1, 1), 2.0);
    EXPECT_NEAR(fit.cameraMatrix(0, 2), kLens.K(0, 2), 1.0);
    EXPECT_NEAR(fit.cameraMatrix(1, 2), kLens.K(1, 2), 1.0);
    EXPECT_NEAR(fit.distCoeffs.at<double>(0), kLens.dist.at<double>(0), 0.02);
    // k2 and k3 trade against each other over the image: the table below checks their sum effect.
    EXPECT_NEAR(fit.distCoeffs.at<double>(2), kLens.dist.at<double>(2), 5e-4);
    EXPECT_NEAR(fit.distCoeffs.at<double>(3), kLens.dist.at<double>(3), 5e-4);

    // The written table resamples from where OpenCV's undistortion of the true lens reads.
    test::TempDir dir;
    DistortionCalibration::write(fit, dir.file("lens2/distort.pxm"));
    const auto table = DistortionTable::load(dir.file("lens2/distort.pxm"), kLens.size.height, kLens.size.width);
    cv::Mat mapX, mapY;
    cv::initUndistortRectifyMap(kLens.K, kLens.dist, cv::Mat(), kLens.K, kLens.size, CV_32FC1, mapX, mapY);
    double worst = 0;
    for (int y = 10; y < kLens.size.height - 10; y += 7)
        for (int x = 10; x < kLens.size.width - 10; x += 7) {
            const cv::Point2d expected(mapX.at<float>(y, x), mapY.at<float>(y, x));
            if (expected.x < 1 || expected.y < 1 || expected.x > kLens.size.width - 2 ||
                expected.y > kLens.size.height - 2)
                continue;
            worst = std::max(worst, cv::norm(source(table, x, y) - expected));
        }
    EXPECT_LT(worst, 0.5);
}

TEST(DistortionCalibration, RefusesTooFewViewsAMissingTargetAndALargeResidual) {
    cv::RNG rng(5);
    auto views = test::infraredGridViews(rng);
    auto fails = [&](const std::vector<GridView>& v, DistortionCalibrationSettings s = {}) {
        return test::messageOf([&] { DistortionCalibration(test::gridTarget(), s).fit(v); });
    };
    EXPECT_EQ(fails({views.begin(), views.begin() + 9}), "9 grid views given, at least 10 poses needed");
    auto blank = views;
    blank[4].image = cv::Mat(kLens.size, CV_16U, cv::Scalar(29000));
    EXPECT_EQ(fails(blank), "view pose4: the 9x6 circle grid target was not found");
    DistortionCalibrationSettings strict;
    strict.maxRmsPx = 0.001;
    EXPECT_NE(fails(views, strict).find("more than 0.00 px; worst view pose"), std::string::npos)
        << fails(views, strict);
}
