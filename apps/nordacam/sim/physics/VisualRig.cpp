#include "apps/nordacam/sim/physics/VisualRig.h"

#include "nordalib/core/exception/Exception.h"

#include <opencv2/imgproc.hpp>

#include <cmath>

namespace nordacam::sim::physics {

VisualRig::VisualRig(const RigParameters& rig, const LaserParameters& laser)
    : m_rig(rig), m_laser(laser), m_lens(rig.visualLens), m_rotation(rotationXyz(rig.rotationDeg)),
      m_rng(rig.seed) {
    if (rig.visualWidth < 16 || rig.visualHeight < 16 || rig.visualWidth > 8192 || rig.visualHeight > 8192 ||
        !(rig.visualLens.fx > 0.0 && rig.visualLens.fy > 0.0) || !(rig.laserDirection[2] > 0.0))
        NORDA_THROW("rig: visual sensor 16..8192 pixels, positive focal lengths, a laser pointing forwards",
                    "nordacam::sim::physics::VisualRig::VisualRig");
}

cv::Point2d VisualRig::project(const cv::Point3d& p) const {
    const cv::Vec3d v = m_rotation.t() * (cv::Vec3d(p.x, p.y, p.z) - m_rig.translation);
    const auto& l = m_rig.visualLens;
    return m_lens.distort({l.fx * v[0] / v[2] + l.cx, l.fy * v[1] / v[2] + l.cy});
}

DistortionParameters VisualRig::lensAt(cv::Size size) const {
    // Pixel centres scale about the sensor's corner.
    const double s = double(size.width) / m_rig.visualWidth;
    DistortionParameters l = m_rig.visualLens;
    l.fx *= s, l.fy *= s;
    l.cx = (l.cx + 0.5) * s - 0.5, l.cy = (l.cy + 0.5) * s - 0.5;
    return l;
}

cv::Point2d VisualRig::project(const cv::Point3d& p, cv::Size size) const {
    const cv::Vec3d v = m_rotation.t() * (cv::Vec3d(p.x, p.y, p.z) - m_rig.translation);
    const DistortionParameters l = lensAt(size);
    return LensDistortion(l).distort({l.fx * v[0] / v[2] + l.cx, l.fy * v[1] / v[2] + l.cy});
}

cv::Mat VisualRig::rays(cv::Size size) const {
    const DistortionParameters l = lensAt(size);
    const cv::Mat ideal = LensDistortion(l).sensorMap(size);
    cv::Mat rays(size, CV_32FC3);
    rays.forEach<cv::Vec3f>([&](cv::Vec3f& r, const int* at) {
        const auto q = ideal.at<cv::Vec2f>(at[0], at[1]);
        r = cv::Vec3f(m_rotation * cv::Vec3d((q[0] - l.cx) / l.fx, (q[1] - l.cy) / l.fy, 1.0));
    });
    return rays;
}

cv::Mat VisualRig::spotElectrons(double depth, double rho, cv::Size size, double exposureS, double ambient,
                                 RigLaserTruth* truth) const {
    const cv::Vec3d u = laserDirection();
    const cv::Vec3d hit = m_rig.laserOrigin + (depth - m_rig.laserOrigin[2]) / u[2] * u;
    // The beam in the visual camera's coordinates, the surface at the hit's visual depth; the
    // readout's pixels are the sensor's binned.
    LaserParameters laser = m_laser;
    laser.origin = m_rotation.t() * (m_rig.laserOrigin - m_rig.translation);
    laser.direction = m_rotation.t() * u;
    VisualSensorParameters sensor;
    sensor.lens = lensAt(size);
    sensor.width = size.width;
    sensor.height = size.height;
    sensor.pixelPitchM = m_rig.visualPixelPitchM * m_rig.visualWidth / size.width;
    sensor.exposureS = exposureS;
    sensor.ambientIrradianceW = ambient;
    sensor.seed = m_rig.seed + unsigned(depth * 1000.0);
    LaserSpot spot(laser, sensor);
    RigLaserTruth t;
    const cv::Vec3d hitVisual = m_rotation.t() * (hit - m_rig.translation);
    cv::Mat e = spot.electrons(hitVisual[2], rho, &t.spot);
    t.hit = {hit[0], hit[1], hit[2]};
    t.visual = t.spot.centre;
    if (truth)
        *truth = t;
    return e;
}

cv::Mat VisualRig::laserSpot(double depth, double rho, cv::Size size, double exposureS,
                             RigLaserTruth* truth) const {
    return spotElectrons(depth, rho, size, exposureS, 0.0, truth);
}

cv::Mat VisualRig::gridImage(const GridTarget& target) {
    const auto& l = m_rig.visualLens;
    if (m_rays.empty())
        m_rays = rays(visualSize()); // once: the full sensor's lines of sight
    cv::Mat_<float> grey(m_rays.size());
    grey.forEach([&](float& g, const int* at) {
        float board = 0, dot = 0;
        target.coverage(m_rig.translation, cv::Vec3d(m_rays.at<cv::Vec3f>(at[0], at[1])), 1.0 / l.fx, board,
                        dot);
        const double plate = m_rig.plateGrey + dot * (m_rig.printGrey - m_rig.plateGrey);
        g = float(m_rig.roomGrey + board * (plate - m_rig.roomGrey));
    });
    if (m_rig.blurSigmaPx > 0.0)
        cv::GaussianBlur(grey, grey, cv::Size(), m_rig.blurSigmaPx);
    cv::Mat noise(grey.size(), CV_32F);
    m_rng.fill(noise, cv::RNG::NORMAL, 0.0, m_rig.noiseGrey);
    cv::Mat out;
    cv::Mat(grey + noise).convertTo(out, CV_8U);
    return out;
}

cv::Mat VisualRig::laserImage(double depth, double rho, double exposureS, RigLaserTruth* truth) {
    const VisualSensorParameters sensor;
    cv::Mat out;
    spotElectrons(depth, rho, visualSize(), exposureS, sensor.ambientIrradianceW, truth)
        .convertTo(out, CV_8U, 255.0 / sensor.fullWellElectrons);
    return out;
}

} // namespace nordacam::sim::physics
