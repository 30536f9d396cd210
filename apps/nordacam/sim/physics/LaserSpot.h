#pragma once
// The laser pointer's spot as the visual camera sees it, from radiometry. A Gaussian beam of
// 1/e^2 radius w(s) = sqrt(w0^2 + (s theta / 2)^2) after s metres hits a matt (Lambertian) surface
// facing the camera at depth d, with peak irradiance E0 = 2 P cos(a) / (pi w^2) (a: the beam's
// angle to the surface normal). The surface's radiance rho E / pi reaches the sensor as image
// irradiance pi L cos^4(t) / (4 N^2) (t: off the optical axis), which over the exposure gives photo-electrons
// per pixel; ambient light adds rho E_amb / pi everywhere. The spot is drawn at the pinhole projection of the
// hit point through the visual lens's distortion, with its image radius w f / d widened by the lens's blur;
// speckle multiplies it by a gamma-distributed factor whose order is the number of speckle grains
// (size about lambda N) a pixel averages. Output: red-channel counts, 8 bits at the full well.

#include "apps/nordacam/sim/physics/LensDistortion.h"
#include "apps/nordacam/sim/physics/Parameters.h"

#include <opencv2/core.hpp>

#include <random>

namespace nordacam::sim::physics {

struct LaserSpotTruth {
    cv::Point3d hit;    // where the beam meets the surface (camera coordinates)
    cv::Point2d centre; // its image on the sensor (distorted)
    double beamRadiusM = 0;
    double radiusPx = 0;       // 1/e^2 radius of the spot's image, blur included
    double peakElectrons = 0;  // above ambient, before speckle
    double totalElectrons = 0; // above ambient, whole spot
};

class LaserSpot {
public:
    LaserSpot(const LaserParameters& laser = {}, const VisualSensorParameters& sensor = {});

    // Photo-electrons per pixel (CV_32F) of a matt surface at `depth` with reflectance `rho` lit by
    // ambient light and the laser.
    cv::Mat electrons(double depth, double rho, LaserSpotTruth* truth = nullptr);
    // Red-channel counts (CV_8U): electrons scaled to 255 at the full well and clipped.
    cv::Mat render(double depth, double rho, LaserSpotTruth* truth = nullptr);

private:
    double electronsPerRadiance() const; // per W m^-2 sr^-1 of surface radiance

    LaserParameters m_laser;
    VisualSensorParameters m_sensor;
    LensDistortion m_lens;
    std::mt19937 m_rng;
};

} // namespace nordacam::sim::physics
