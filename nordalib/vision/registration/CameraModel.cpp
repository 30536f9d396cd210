#include "nordalib/vision/registration/CameraModel.h"

#include "nordalib/core/exception/Exception.h"

#include <cmath>

namespace norda::vision {

cv::Point2d CameraModel::pixelOf(const cv::Point2d& n) const {
    const double x = n.x, y = n.y;
    const double r2 = x * x + y * y;
    const double radial = 1 + r2 * (k1 + r2 * (k2 + r2 * k3));
    const double xd = x * radial + 2 * p1 * x * y + p2 * (r2 + 2 * x * x);
    const double yd = y * radial + p1 * (r2 + 2 * y * y) + 2 * p2 * x * y;
    return {fx * xd + cx, fy * yd + cy};
}

cv::Point2d CameraModel::project(const cv::Point3d& p) const {
    return pixelOf({p.x / p.z, p.y / p.z});
}

cv::Point2d CameraModel::normalised(const cv::Point2d& pixel) const {
    const double xd = (pixel.x - cx) / fx, yd = (pixel.y - cy) / fy;
    if (!hasDistortion())
        return {xd, yd};
    // Fixed-point iteration on the distortion; lenses of thermal and visual cameras converge to
    // well below a thousandth of a pixel within these steps.
    double x = xd, y = yd;
    for (int i = 0; i < 30; ++i) {
        const double r2 = x * x + y * y;
        const double radial = 1 + r2 * (k1 + r2 * (k2 + r2 * k3));
        const double dx = 2 * p1 * x * y + p2 * (r2 + 2 * x * x);
        const double dy = p1 * (r2 + 2 * y * y) + 2 * p2 * x * y;
        x = (xd - dx) / radial;
        y = (yd - dy) / radial;
    }
    return {x, y};
}

CameraModel CameraModel::scaled(cv::Size other) const {
    if (other == size)
        return *this;
    const double sx = double(other.width) / size.width, sy = double(other.height) / size.height;
    if (other.width <= 0 || other.height <= 0 || std::abs(sx / sy - 1.0) > 0.005)
        NORDA_THROW("a " + std::to_string(other.width) + "x" + std::to_string(other.height) +
                        " image is not a scaled readout of the calibrated " + std::to_string(size.width) +
                        "x" + std::to_string(size.height) + " camera",
                    "norda::vision::CameraModel::scaled");
    CameraModel m = *this;
    m.size = other;
    m.fx = fx * sx;
    m.fy = fy * sy;
    m.cx = (cx + 0.5) * sx - 0.5;
    m.cy = (cy + 0.5) * sy - 0.5;
    return m;
}

void CameraModel::validate(const std::string& what) const {
    auto bad = [&](const std::string& field, const std::string& why) {
        NORDA_THROW(what + "." + field + " " + why, "norda::vision::CameraModel::validate");
    };
    if (size.width <= 0 || size.height <= 0)
        bad("width", "and height must be positive");
    const std::pair<const char*, double> values[] = {{"fx", fx}, {"fy", fy}, {"cx", cx},
                                                     {"cy", cy}, {"k1", k1}, {"k2", k2},
                                                     {"p1", p1}, {"p2", p2}, {"k3", k3}};
    for (const auto& [name, v] : values)
        if (!std::isfinite(v))
            bad(name, "is not a finite number");
    if (!(fx > 0) || !(fy > 0))
        bad("fx", "and fy must be positive");
    // A principal point far outside the image or distortion that folds the image back are not lenses.
    if (cx < -size.width || cx > 2.0 * size.width || cy < -size.height || cy > 2.0 * size.height)
        bad("cx", "and cy must lie near the image");
    if (std::abs(k1) > 2 || std::abs(k2) > 2 || std::abs(k3) > 2 || std::abs(p1) > 0.1 || std::abs(p2) > 0.1)
        bad("k1", "... p2: distortion coefficients out of any lens's range");
}

} // namespace norda::vision
