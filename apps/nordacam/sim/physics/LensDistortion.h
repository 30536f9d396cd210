#pragma once
// Brown-Conrady lens distortion: an ideal pinhole point (x, y) in normalised coordinates lands at
//   xd = x (1 + k1 r^2 + k2 r^4 + k3 r^6) + 2 p1 x y + p2 (r^2 + 2 x^2)
//   yd = y (1 + k1 r^2 + k2 r^4 + k3 r^6) + p1 (r^2 + 2 y^2) + 2 p2 x y,   r^2 = x^2 + y^2
// and pixel (fx xd + cx, fy yd + cy). The simulator needs the reverse, for each sensor pixel the
// ideal image point it looks at: the forward model inverted by fixed-point iteration.

#include "apps/nordacam/sim/physics/Parameters.h"

#include <opencv2/core.hpp>

namespace nordacam::sim::physics {

class LensDistortion {
public:
    explicit LensDistortion(const DistortionParameters& p = {});

    // Ideal (undistorted) pixel -> sensor pixel.
    cv::Point2d distort(cv::Point2d ideal) const;
    // Sensor pixel -> ideal pixel.
    cv::Point2d undistort(cv::Point2d sensor) const;
    // For every sensor pixel the ideal pixel it sees (CV_32FC2), for cv::remap.
    cv::Mat sensorMap(cv::Size size) const;
    const DistortionParameters& parameters() const { return m_p; }

private:
    DistortionParameters m_p;
};

} // namespace nordacam::sim::physics
