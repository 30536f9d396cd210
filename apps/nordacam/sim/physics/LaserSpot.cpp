#include "apps/nordacam/sim/physics/LaserSpot.h"

#include "apps/nordacam/sim/physics/Planck.h"

#include "nordalib/core/exception/Exception.h"

#include <algorithm>
#include <cmath>

namespace nordacam::sim::physics {

namespace {
constexpr double kPi = 3.14159265358979323846;
}

LaserSpot::LaserSpot(const LaserParameters& laser, const VisualSensorParameters& sensor)
    : m_laser(laser), m_sensor(sensor), m_lens(sensor.lens), m_rng(sensor.seed) {
    if (!(laser.powerW >= 0.0 && laser.powerW < 10.0) || !(laser.waistRadiusM > 0.0) ||
        !(laser.divergenceRad >= 0.0 && laser.divergenceRad < 0.5) || !(laser.wavelengthUm > 0.0) ||
        !(laser.direction[2] > 0.0))
        NORDA_THROW(
            "laser: power 0..10 W, positive waist and wavelength, divergence below 0.5 rad, and a beam "
            "pointing forwards",
            "nordacam::sim::physics::LaserSpot::LaserSpot");
    if (sensor.width < 16 || sensor.height < 16 || sensor.width > 8192 || sensor.height > 8192 ||
        !(sensor.fNumber > 0.0) || !(sensor.pixelPitchM > 0.0) || !(sensor.exposureS > 0.0) ||
        !(sensor.fullWellElectrons > 0.0) || !(sensor.psfSigmaPx >= 0.0) ||
        !(sensor.ambientIrradianceW >= 0.0))
        NORDA_THROW("visual sensor: size 16..8192, positive f-number, pitch, exposure and full well",
                    "nordacam::sim::physics::LaserSpot::LaserSpot");
}

double LaserSpot::electronsPerRadiance() const {
    const double imageIrradiance = kPi / (4.0 * m_sensor.fNumber * m_sensor.fNumber); // per unit radiance
    const double joules = imageIrradiance * m_sensor.pixelPitchM * m_sensor.pixelPitchM * m_sensor.exposureS;
    const double photon = Planck::kH * Planck::kC / (m_laser.wavelengthUm * 1e-6);
    return joules / photon * m_sensor.quantumEfficiency;
}

cv::Mat LaserSpot::electrons(double depth, double rho, LaserSpotTruth* truth) {
    if (!(depth > std::max(0.05, m_laser.origin[2])) || depth > 1e4 || !(rho >= 0.0 && rho <= 1.0))
        NORDA_THROW("laser spot: depth must lie beyond the laser (up to 10 km), reflectance in 0..1",
                    "nordacam::sim::physics::LaserSpot::electrons");
    const cv::Vec3d u = m_laser.direction / cv::norm(m_laser.direction);
    const double s = (depth - m_laser.origin[2]) / u[2];
    const cv::Vec3d hit = m_laser.origin + s * u;
    const double w = std::hypot(m_laser.waistRadiusM, s * m_laser.divergenceRad / 2.0);
    const double cosA = u[2]; // the surface faces the camera: normal along z
    const double k = electronsPerRadiance();
    // Natural vignetting: image irradiance falls as cos^4 of the angle off the optical axis.
    const double cos4 = std::pow(hit[2] / cv::norm(hit), 4);
    const double peak = k * cos4 * rho * (2.0 * m_laser.powerW * cosA / (kPi * w * w)) / kPi;
    const double ambient = k * rho * m_sensor.ambientIrradianceW / kPi;
    // The footprint is w wide across and w / cos(a) along the tilt; its image w f / d, blurred.
    const double fx = m_sensor.lens.fx;
    const double sigmaGeom = w * fx / depth / 2.0; // 1/e^2 radius = 2 sigma
    const double sigma = std::hypot(sigmaGeom, m_sensor.psfSigmaPx);
    const double sigmaAlong = std::hypot(sigmaGeom / cosA, m_sensor.psfSigmaPx);
    const double blurredPeak =
        peak * sigmaGeom * sigmaGeom / (cosA * sigma * sigmaAlong); // blur keeps the total
    const cv::Point2d ideal(fx * hit[0] / hit[2] + m_sensor.lens.cx,
                            m_sensor.lens.fy * hit[1] / hit[2] + m_sensor.lens.cy);
    const cv::Point2d centre = m_lens.distort(ideal);

    cv::Mat_<float> e(m_sensor.height, m_sensor.width, float(ambient));
    const int reach = int(std::ceil(4.0 * std::max(sigma, sigmaAlong)));
    const cv::Rect box =
        cv::Rect(int(centre.x) - reach, int(centre.y) - reach, 2 * reach + 1, 2 * reach + 1) &
        cv::Rect(0, 0, e.cols, e.rows);
    // Speckle: a pixel averages M grains of size ~ lambda N; the sum of M exponential intensities
    // is gamma distributed with shape M (contrast 1 / sqrt(M)).
    const double grain = m_laser.wavelengthUm * 1e-6 * m_sensor.fNumber;
    const double grains = std::max(1.0, std::pow(m_sensor.pixelPitchM / grain, 2));
    std::gamma_distribution<double> speckle(grains, 1.0 / grains);
    double total = 0.0;
    const double tilt = std::hypot(u[0], u[1]);
    const cv::Vec2d along = tilt > 1e-12 ? cv::Vec2d(u[0] / tilt, u[1] / tilt) : cv::Vec2d(1.0, 0.0);
    for (int y = box.y; y < box.y + box.height; ++y)
        for (int x = box.x; x < box.x + box.width; ++x) {
            const double dx = x - centre.x, dy = y - centre.y;
            const double a = dx * along[0] + dy * along[1], c = -dx * along[1] + dy * along[0];
            const double v =
                blurredPeak * std::exp(-0.5 * (a * a / (sigmaAlong * sigmaAlong) + c * c / (sigma * sigma)));
            total += v;
            e(y, x) += float(m_sensor.speckle ? v * speckle(m_rng) : v);
        }
    if (truth) {
        truth->hit = {hit[0], hit[1], hit[2]};
        truth->centre = centre;
        truth->beamRadiusM = w;
        truth->radiusPx = 2.0 * sigma;
        truth->peakElectrons = blurredPeak;
        truth->totalElectrons = total;
    }
    return e;
}

cv::Mat LaserSpot::render(double depth, double rho, LaserSpotTruth* truth) {
    cv::Mat out;
    electrons(depth, rho, truth).convertTo(out, CV_8U, 255.0 / m_sensor.fullWellElectrons);
    return out;
}

} // namespace nordacam::sim::physics
