#include "apps/nordacam/sim/physics/LensDistortion.h"

#include "nordalib/core/exception/Exception.h"

namespace nordacam::sim::physics {

LensDistortion::LensDistortion(const DistortionParameters& p) : m_p(p) {
    if (!(p.fx > 0.0) || !(p.fy > 0.0))
        NORDA_THROW("lens distortion: focal lengths must be positive",
                    "nordacam::sim::physics::LensDistortion::LensDistortion");
}

cv::Point2d LensDistortion::distort(cv::Point2d ideal) const {
    const double x = (ideal.x - m_p.cx) / m_p.fx, y = (ideal.y - m_p.cy) / m_p.fy;
    const double r2 = x * x + y * y;
    const double radial = 1 + r2 * (m_p.k1 + r2 * (m_p.k2 + r2 * m_p.k3));
    const double xd = x * radial + 2 * m_p.p1 * x * y + m_p.p2 * (r2 + 2 * x * x);
    const double yd = y * radial + m_p.p1 * (r2 + 2 * y * y) + 2 * m_p.p2 * x * y;
    return {xd * m_p.fx + m_p.cx, yd * m_p.fy + m_p.cy};
}

cv::Point2d LensDistortion::undistort(cv::Point2d sensor) const {
    const double xd = (sensor.x - m_p.cx) / m_p.fx, yd = (sensor.y - m_p.cy) / m_p.fy;
    double x = xd, y = yd;
    for (int i = 0; i < 30; ++i) {
        const double r2 = x * x + y * y;
        const double radial = 1 + r2 * (m_p.k1 + r2 * (m_p.k2 + r2 * m_p.k3));
        const double dx = 2 * m_p.p1 * x * y + m_p.p2 * (r2 + 2 * x * x);
        const double dy = m_p.p1 * (r2 + 2 * y * y) + 2 * m_p.p2 * x * y;
        x = (xd - dx) / radial;
        y = (yd - dy) / radial;
    }
    return {x * m_p.fx + m_p.cx, y * m_p.fy + m_p.cy};
}

cv::Mat LensDistortion::sensorMap(cv::Size size) const {
    if (size.width < 1 || size.height < 1 || size.width > 16384 || size.height > 16384)
        NORDA_THROW("lens distortion: the sensor must be 1..16384 pixels each way",
                    "nordacam::sim::physics::LensDistortion::sensorMap");
    cv::Mat_<cv::Vec2f> map(size);
    for (int v = 0; v < size.height; ++v)
        for (int u = 0; u < size.width; ++u) {
            const cv::Point2d p = undistort({double(u), double(v)});
            map(v, u) = cv::Vec2f(float(p.x), float(p.y));
        }
    return map;
}

} // namespace nordacam::sim::physics
