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

cv::Mat VisualRig::gridImage(const GridTarget& target) {
    const auto& l = m_rig.visualLens;
    if (m_rays.empty()) {
        // Each sensor pixel's ideal point, once: the line of sight in infrared axes.
        const cv::Mat ideal = m_lens.sensorMap(visualSize());
        m_rays.create(ideal.size(), CV_32FC3);
        for (int y = 0; y < ideal.rows; ++y)
            for (int x = 0; x < ideal.cols; ++x) {
                const auto q = ideal.at<cv::Vec2f>(y, x);
                const cv::Vec3d d = m_rotation * cv::Vec3d((q[0] - l.cx) / l.fx, (q[1] - l.cy) / l.fy, 1.0);
                m_rays.at<cv::Vec3f>(y, x) = cv::Vec3f(d);
            }
    }
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
    const cv::Vec3d u = laserDirection();
    const cv::Vec3d hit = m_rig.laserOrigin + (depth - m_rig.laserOrigin[2]) / u[2] * u;
    // The same beam in the visual camera's coordinates, and the surface at the hit's visual depth.
    LaserParameters laser = m_laser;
    laser.origin = m_rotation.t() * (m_rig.laserOrigin - m_rig.translation);
    laser.direction = m_rotation.t() * u;
    VisualSensorParameters sensor;
    sensor.lens = m_rig.visualLens;
    sensor.width = m_rig.visualWidth;
    sensor.height = m_rig.visualHeight;
    sensor.pixelPitchM = m_rig.visualPixelPitchM;
    sensor.exposureS = exposureS;
    sensor.seed = m_rig.seed + unsigned(depth * 1000.0);
    const cv::Vec3d hitVisual = m_rotation.t() * (hit - m_rig.translation);
    LaserSpot spot(laser, sensor);
    RigLaserTruth t;
    const cv::Mat image = spot.render(hitVisual[2], rho, &t.spot);
    t.hit = {hit[0], hit[1], hit[2]};
    t.visual = t.spot.centre;
    if (truth)
        *truth = t;
    return image;
}

} // namespace nordacam::sim::physics
