#pragma once
// DistortionCalibration: the lens's camera matrix and Brown-Conrady distortion from views of a
// heated grid target in ten or more poses, and from them the lens's distortion table.
//
// Each view is contrast-stretched to 8 bits (between the 0.5 % and 99.5 % levels, so a few dead or
// hot pixels do not flatten it); warm dots are inverted into the dark blobs cv::findCirclesGrid
// looks for. cv::calibrateCamera then fits focal lengths, principal point and k1, k2, p1, p2, k3 to
// the grid points of all views. The table (DistortionTable::fromCameraModel) resamples each frame to
// the same camera without distortion.
//
// Refused, with a norda::Exception naming the view: fewer than `minViews` views, views of different
// sizes, a view in which the target is not found, a reprojection residual above `maxRmsPx` (the
// worst view is named).

#include "nordalib/vision/imgproc/DistortionTable.h"

#include <opencv2/core.hpp>

#include <functional>
#include <string>
#include <vector>

namespace norda::vision {

struct GridTarget {
    enum class Pattern { SymmetricCircles, AsymmetricCircles, Chessboard };
    Pattern pattern = Pattern::SymmetricCircles;
    cv::Size points{9, 6}; // points per row, rows (inner corners of a chessboard)
    double spacing = 0.03; // metres between neighbouring points of a row
    bool warmDots = true;  // dots warmer than the board

    std::vector<cv::Point3f> objectPoints() const;
    std::string describe() const; // "9x6 circle grid"
};

struct GridView {
    std::string name;
    cv::Mat image; // CV_16UC1 (raw or temperature frame), CV_8UC1 or CV_8UC3 (BGR)
};

struct DistortionCalibrationSettings {
    unsigned minViews = 10;
    double maxRmsPx = 1.0;
    int flags = 0; // cv::calibrateCamera flags
    std::function<void(const std::string&)> progress;
};

struct DistortionFit {
    cv::Size size;
    cv::Matx33d cameraMatrix;
    cv::Mat distCoeffs; // 1x5: k1, k2, p1, p2, k3
    double rmsPx = 0;
    std::vector<double> viewRmsPx;
    std::vector<std::vector<cv::Point2f>> imagePoints; // per view, for stereo calibration
    std::vector<cv::Vec3d> rvecs, tvecs;

    DistortionTable table() const {
        return DistortionTable::fromCameraModel(cv::Mat(cameraMatrix), distCoeffs, size);
    }
};

class DistortionCalibration {
public:
    explicit DistortionCalibration(GridTarget target, DistortionCalibrationSettings settings = {})
        : m_target(target), m_settings(std::move(settings)) {}

    DistortionFit fit(const std::vector<GridView>& views) const;
    // The grid points of one view; throws naming the view when the target is not found.
    std::vector<cv::Point2f> findGrid(const GridView& view) const;
    // Writes the fit's table as the lens's distort.pxm to `file`: all or nothing.
    static void write(const DistortionFit& fit, const std::string& file);

    // An 8-bit view with the target's points dark on light (circles) or as drawn (chessboard).
    cv::Mat stretch(const cv::Mat& image) const;

private:
    GridTarget m_target;
    DistortionCalibrationSettings m_settings;
};

} // namespace norda::vision
