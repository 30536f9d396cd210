#pragma once
// The visual camera and the laser pointer beside the infrared camera (RigParameters): what the
// visual camera sees of a printed grid target and of the laser's spot, and where the rig truly
// puts a point of the scene. The visual picture is rendered through the visual lens's own
// distortion along each pixel's line of sight from the visual lens's position; the spot comes from
// LaserSpot (radiometry of the beam) with the laser expressed in the visual camera's coordinates.

#include "apps/nordacam/sim/physics/LaserSpot.h"
#include "apps/nordacam/sim/physics/LensDistortion.h"
#include "apps/nordacam/sim/physics/Parameters.h"
#include "apps/nordacam/sim/physics/PhysicalScene.h"

#include <opencv2/core.hpp>

namespace nordacam::sim::physics {

struct RigLaserTruth {
    cv::Point3d hit;     // where the beam meets the surface, infrared camera coordinates
    cv::Point2d visual;  // its image on the visual sensor (distorted, full size)
    LaserSpotTruth spot; // the spot's radiometry
};

class VisualRig {
public:
    explicit VisualRig(const RigParameters& rig = {}, const LaserParameters& laser = {});

    cv::Size visualSize() const { return {m_rig.visualWidth, m_rig.visualHeight}; }
    // Visual sensor pixel (full size, distorted) of a point in infrared camera coordinates.
    cv::Point2d project(const cv::Point3d& infrared) const;
    // The same in a readout of `size` (the full sensor scaled: a binned or skipped mode).
    cv::Point2d project(const cv::Point3d& infrared, cv::Size size) const;
    // Every pixel's line of sight (infrared axes, CV_32FC3) in a readout of `size`, the lens's
    // distortion undone.
    cv::Mat rays(cv::Size size) const;
    // The laser's spot alone (no ambient light) in a readout of `size` on a matt surface facing the
    // camera at infrared depth `depth` with reflectance `rho`: photo-electrons per pixel (CV_32F).
    cv::Mat laserSpot(double depth, double rho, cv::Size size, double exposureS,
                      RigLaserTruth* truth = nullptr) const;
    // The grid target (dots printed black on a white plate) in its pose, 8-bit grey, full size.
    cv::Mat gridImage(const GridTarget& target);
    // The laser's spot on a matt surface facing the camera at infrared depth `depth` with
    // reflectance `rho`: 8-bit red-channel counts, full size, at the exposure given.
    cv::Mat laserImage(double depth, double rho, double exposureS, RigLaserTruth* truth = nullptr);
    // The laser ray in infrared coordinates (unit direction).
    cv::Vec3d laserOrigin() const { return m_rig.laserOrigin; }
    cv::Vec3d laserDirection() const { return m_rig.laserDirection / cv::norm(m_rig.laserDirection); }

private:
    // The visual lens at a readout of `size`.
    DistortionParameters lensAt(cv::Size size) const;
    cv::Mat spotElectrons(double depth, double rho, cv::Size size, double exposureS, double ambient,
                          RigLaserTruth* truth) const;

    RigParameters m_rig;
    LaserParameters m_laser;
    LensDistortion m_lens;
    cv::Matx33d m_rotation; // visual axes -> infrared axes
    cv::Mat m_rays;         // per visual pixel its line of sight in infrared axes (CV_32FC3)
    cv::RNG m_rng;
};

} // namespace nordacam::sim::physics
