#include "nordalib/vision/calibration/RegistrationCalibration.h"
#include "tests/vision/TestSupport.h"
#include "tests/vision/calibration/GridViews.h"

#include <gtest/gtest.h>

#include <opencv2/calib3d.hpp>

#include <cmath>

using namespace norda;
using namespace norda::vision;

namespace {
const test::Lens kVisual{{1296, 972},
                         {930.0, 0.0, 650.6, 0.0, 928.0, 484.1, 0.0, 0.0, 1.0},
                         (cv::Mat_<double>(1, 5) << -0.11, 0.02, 0.0004, -0.0003, 0.0)};
// The visual camera in infrared coordinates: a few centimetres aside, turned by a fraction of a degree.
const cv::Vec3d kTurn(0.004, -0.007, 0.003);
const cv::Vec3d kBaseline(0.045, -0.006, 0.004);

cv::Matx33d visualToInfrared() {
    cv::Matx33d R;
    cv::Rodrigues(kTurn, R);
    return R;
}

// Each pose seen by both cameras: p_visual = R^T (p_infrared - baseline).
std::vector<StereoView> stereoViews(cv::RNG& rng) {
    const cv::Matx33d Rt = visualToInfrared().t();
    std::vector<StereoView> views;
    for (const auto& p : test::gridPoses()) {
        cv::Matx33d R;
        cv::Rodrigues(p.rvec, R);
        cv::Vec3d rv;
        cv::Rodrigues(Rt * R, rv);
        const cv::Vec3d tv = Rt * (p.tvec - kBaseline);
        views.push_back({"pose" + std::to_string(views.size()),
                         test::renderGrid(test::infraredLens(), p.rvec, p.tvec, rng),
                         test::renderGrid(kVisual, rv, tv, rng, false)});
    }
    return views;
}

// The laser's spot in the visual image at depth z, projected by OpenCV through the true cameras.
const cv::Vec3d kLaserOrigin(0.02, 0.042, 0.01);
const cv::Vec3d kLaserDirection = cv::normalize(cv::Vec3d(0.01, -0.02, 1.0));
LaserSpot spotAt(double z) {
    const cv::Vec3d p = kLaserOrigin + (z - kLaserOrigin[2]) / kLaserDirection[2] * kLaserDirection;
    const cv::Matx33d Rt = visualToInfrared().t();
    cv::Vec3d rv;
    cv::Rodrigues(Rt, rv);
    std::vector<cv::Point2d> pixel;
    cv::projectPoints(std::vector<cv::Point3d>{{p[0], p[1], p[2]}}, rv, cv::Vec3d(-(Rt * kBaseline)),
                      kVisual.K, kVisual.dist, pixel);
    return {z, pixel[0]};
}
} // namespace

TEST(RegistrationCalibration, RecoversTheVisualCameraAndTheLaserRay) {
    cv::RNG rng(2);
    const auto infraredLens = DistortionCalibration(test::gridTarget()).fit(test::infraredGridViews(rng));
    const RegistrationCalibration calibration(test::gridTarget(), test::gridTarget(false));
    auto fit = calibration.fit(stereoViews(rng), infraredLens);
    const Registration& r = fit.registration;
    EXPECT_LT(fit.stereoRmsPx, 0.3);
    EXPECT_LT(cv::norm(r.translation - kBaseline), 0.002) << r.translation;
    cv::Vec3d turn;
    cv::Rodrigues(r.rotation, turn);
    EXPECT_LT(cv::norm(turn - kTurn), 0.003) << turn; // radians; an infrared pixel is 0.0025
    EXPECT_NEAR(r.visual.fx, kVisual.K(0, 0), 5.0);
    EXPECT_NEAR(r.visual.cy, kVisual.K(1, 2), 3.0);
    EXPECT_NEAR(r.visual.k1, -0.11, 0.02);
    EXPECT_EQ(r.visual.size, kVisual.size);
    EXPECT_FALSE(r.infrared.hasDistortion());

    calibration.fitLaser(fit, {spotAt(0.5), spotAt(1.0), spotAt(2.0), spotAt(4.0)});
    EXPECT_LT(cv::norm(r.laserDirection - kLaserDirection), 0.002) << r.laserDirection;
    // The origin where the ray crosses the infrared camera's plane.
    const cv::Vec3d atZero = kLaserOrigin - kLaserOrigin[2] / kLaserDirection[2] * kLaserDirection;
    EXPECT_LT(cv::norm(r.laserOrigin - atZero), 0.003) << r.laserOrigin;

    test::TempDir dir;
    RegistrationCalibration::write(r, dir.file("registration.json"));
    const auto back = Registration::load(dir.file("registration.json"));
    EXPECT_LT(cv::norm(back.translation - r.translation), 1e-9);

    // Refusals: laser spots at two depths, a spot off the line, a pose the visual camera missed.
    EXPECT_EQ(test::messageOf([&] {
                  calibration.fitLaser(fit, {spotAt(0.5), spotAt(1.0), spotAt(1.0)});
              }),
              "laser spots at 2 distinct distances, at least 3 needed");
    auto off = spotAt(2.0);
    off.visual.y += 30.0;
    EXPECT_NE(test::messageOf([&] {
                  calibration.fitLaser(fit, {spotAt(0.5), spotAt(1.0), off, spotAt(4.0)});
              }).find("off the line"),
              std::string::npos);
    auto views = stereoViews(rng);
    views[6].visual = cv::Mat(kVisual.size, CV_8U, cv::Scalar(200));
    EXPECT_EQ(test::messageOf([&] { calibration.fit(views, infraredLens); }),
              "view pose6 (visual): the 9x6 circle grid target was not found");
}
