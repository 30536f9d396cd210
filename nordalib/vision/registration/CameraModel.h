#pragma once
// CameraModel: a pinhole camera with Brown-Conrady lens distortion (k1, k2, p1, p2, k3), as
// OpenCV defines it, at a reference image size.
//
// Pixel coordinates put the centre of the top-left pixel at (0, 0). A camera that reads its sensor
// out at another size (binned or scaled modes of the same field of view) is the same camera with
// focal lengths and principal point scaled: scaled() gives it, and refuses a size whose aspect
// differs from the reference (a cropped mode would need its own calibration).

#include <opencv2/core.hpp>

namespace norda::vision {

struct CameraModel {
    cv::Size size; // reference image size
    double fx = 0, fy = 0, cx = 0, cy = 0;
    double k1 = 0, k2 = 0, p1 = 0, p2 = 0, k3 = 0;

    bool hasDistortion() const { return k1 != 0 || k2 != 0 || p1 != 0 || p2 != 0 || k3 != 0; }
    // Pixel of a point in the camera's coordinates (z > 0 in front of it).
    cv::Point2d project(const cv::Point3d& p) const;
    // Normalised undistorted image coordinates (x/z, y/z) of a pixel: the inverse of project.
    cv::Point2d normalised(const cv::Point2d& pixel) const;
    // Distorted pixel of normalised undistorted coordinates.
    cv::Point2d pixelOf(const cv::Point2d& normalisedPoint) const;
    // The same camera read out at `other`; throws norda::Exception for another aspect ratio.
    CameraModel scaled(cv::Size other) const;
    // Throws norda::Exception naming `what` and the first invalid value.
    void validate(const std::string& what) const;
};

} // namespace norda::vision
