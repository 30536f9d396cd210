#pragma once
// Views of a grid target rendered through a known lens, for the calibration tests: every dot's
// outline is projected with cv::projectPoints and filled anti-aliased, so perspective and
// distortion shape the dots as a real lens would.

#include "nordalib/vision/calibration/DistortionCalibration.h"

#include <opencv2/calib3d.hpp>
#include <opencv2/imgproc.hpp>

#include <cmath>
#include <string>
#include <vector>

namespace norda::test {

struct Lens {
    cv::Size size;
    cv::Matx33d K;
    cv::Mat dist;
};

// The infrared lens of the tests: off-centre, fx != fy, strong barrel distortion.
inline Lens infraredLens() {
    return {{384, 288},
            {400.0, 0.0, 195.3, 0.0, 396.0, 141.8, 0.0, 0.0, 1.0},
            (cv::Mat_<double>(1, 5) << -0.30, 0.12, 0.0010, -0.0008, 0.0)};
}

inline vision::GridTarget gridTarget(bool warmDots = true) {
    vision::GridTarget t;
    t.points = {9, 6};
    t.spacing = 0.025;
    t.warmDots = warmDots;
    return t;
}

// The target at pose (rvec, tvec) through `lens`: warm dots on a cooler board as a 16-bit raw
// frame with noise, or dark dots on a light board as an 8-bit visual image.
inline cv::Mat renderGrid(const Lens& lens, const cv::Vec3d& rvec, const cv::Vec3d& tvec, cv::RNG& rng,
                          bool infrared = true) {
    constexpr double kDotRadius = 0.0075; // metres
    cv::Mat mask(lens.size, CV_8U, cv::Scalar(0));
    for (const auto& c : gridTarget().objectPoints()) {
        std::vector<cv::Point3f> rim;
        for (int k = 0; k < 48; ++k) {
            const double a = 2.0 * CV_PI * k / 48.0;
            rim.emplace_back(float(c.x + kDotRadius * std::cos(a)), float(c.y + kDotRadius * std::sin(a)),
                             0.0f);
        }
        std::vector<cv::Point2f> projected;
        cv::projectPoints(rim, rvec, tvec, lens.K, lens.dist, projected);
        std::vector<cv::Point> fixed;
        for (const auto& p : projected)
            fixed.emplace_back(cvRound(p.x * 16.0), cvRound(p.y * 16.0));
        cv::fillPoly(mask, std::vector<std::vector<cv::Point>>{fixed}, cv::Scalar(255), cv::LINE_AA, 4);
    }
    cv::Mat noise(lens.size, CV_64F), m64, image;
    rng.fill(noise, cv::RNG::NORMAL, 0.0, infrared ? 15.0 : 2.0);
    mask.convertTo(m64, CV_64F, (infrared ? 3000.0 : -160.0) / 255.0);
    cv::Mat(m64 + noise + (infrared ? 29000.0 : 200.0)).convertTo(image, infrared ? CV_16U : CV_8U);
    return image;
}

// Twelve poses (in the infrared camera's coordinates) that put the target in every part of its
// image, tilted up to 23 degrees, 0.5 to 0.6 m away.
struct Pose {
    cv::Vec3d rvec, tvec;
};
inline std::vector<Pose> gridPoses() {
    const Lens lens = infraredLens();
    std::vector<Pose> poses;
    int n = 0;
    for (double v : {85.0, 144.0, 203.0})
        for (double u : {105.0, 160.0, 230.0, 285.0}) {
            const double z = 0.5 + 0.05 * (n % 3);
            const cv::Vec3d rvec(0.4 * std::sin(n * 1.7), 0.4 * std::cos(n * 2.3), 0.1 * (n % 5 - 2));
            cv::Matx33d R;
            cv::Rodrigues(rvec, R);
            const cv::Vec3d at((u - lens.K(0, 2)) / lens.K(0, 0) * z, (v - lens.K(1, 2)) / lens.K(1, 1) * z,
                               z);
            poses.push_back({rvec, at - R * cv::Vec3d(0.1, 0.0625, 0.0)}); // the target's centre at (u, v)
            ++n;
        }
    return poses;
}

inline std::vector<vision::GridView> infraredGridViews(cv::RNG& rng) {
    std::vector<vision::GridView> views;
    for (const auto& p : gridPoses())
        views.push_back(
            {"pose" + std::to_string(views.size()), renderGrid(infraredLens(), p.rvec, p.tvec, rng)});
    return views;
}

} // namespace norda::test
