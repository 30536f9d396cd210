#pragma once
// RegistrationCalibration: where the visual camera and the laser pointer sit relative to the
// infrared camera, from views of a target both cameras see and from laser spots at known distances.
//
// Cameras: the grid target (dots warm for the infrared camera and dark for the visual one) in ten or
// more poses, each pose seen by both cameras. The infrared points are undistorted with the infrared
// lens fit (DistortionCalibration), since the registration's infrared camera is the chain's
// undistorted temperature frame; the visual camera's own lens is fitted from its views
// (cv::calibrateCamera); cv::stereoCalibrate with both lenses fixed then gives the pose of the
// visual camera in infrared coordinates (rotation: visual axes to infrared axes; translation: the
// visual camera's position).
//
// Laser: its spot's visual pixel on a flat surface at three or more known depths. Each spot, seen
// through the fitted visual camera at its depth, is a point of the ray; the ray is the line through
// them (cv::fitLine); its origin is reported where it crosses the infrared camera's plane (z = 0).
//
// Refused with a norda::Exception naming the view: views not in pairs or too few, a target not
// found, a stereo residual above `maxRmsPx`, laser spots at fewer than three distinct depths or
// further than `maxLaserOffMetres` off their line.

#include "nordalib/vision/calibration/DistortionCalibration.h"
#include "nordalib/vision/registration/Registration.h"

#include <opencv2/core.hpp>

#include <string>
#include <vector>

namespace norda::vision {

struct StereoView {
    std::string name;
    cv::Mat infrared; // CV_16UC1
    cv::Mat visual;   // CV_8UC1 or CV_8UC3 (BGR), full sensor
};

struct LaserSpot {
    double distance = 0; // depth of the surface (metres)
    cv::Point2d visual;  // spot in the visual image (full sensor)
};

struct RegistrationCalibrationSettings {
    unsigned minViews = 10;
    double maxRmsPx = 1.0;
    double maxLaserOffMetres = 0.002;
};

struct RegistrationFit {
    Registration registration;
    double stereoRmsPx = 0;
    double visualRmsPx = 0;
    double laserOffMetres = 0; // largest distance of a spot from the fitted ray
};

class RegistrationCalibration {
public:
    RegistrationCalibration(GridTarget infraredTarget, GridTarget visualTarget,
                            RegistrationCalibrationSettings settings = {});

    // Cameras only; the laser keeps the ray of `laserFrom` (default: straight ahead from the origin).
    RegistrationFit fit(const std::vector<StereoView>& views, const DistortionFit& infraredLens,
                        const Registration& laserFrom = {}) const;
    // The laser ray of a fitted registration from spots at several depths.
    void fitLaser(RegistrationFit& fit, const std::vector<LaserSpot>& spots) const;
    // Writes registration.json to `file`: all or nothing.
    static void write(const Registration& registration, const std::string& file);

private:
    GridTarget m_infraredTarget;
    GridTarget m_visualTarget;
    RegistrationCalibrationSettings m_settings;
};

} // namespace norda::vision
