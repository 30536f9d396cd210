#include "apps/nordacam/sim/physics/PhysicalScene.h"

#include "nordalib/core/exception/Exception.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

namespace nordacam::sim::physics {

float SceneSurface::coverage(float x, float y, double fx, double fy) const {
    const float hw = float(fx * widthM / distance / 2), hh = float(fy * heightM / distance / 2);
    const float dx = x - float(centre.x), dy = y - float(centre.y);
    float outside; // signed distance to the edge, pixels (negative inside)
    if (shape == Shape::Disc) {
        outside = std::hypot(dx, dy * hw / std::max(hh, 1e-6f)) - hw;
    } else {
        const float qx = std::abs(dx) - hw, qy = std::abs(dy) - hh;
        outside = std::hypot(std::max(qx, 0.0f), std::max(qy, 0.0f)) + std::min(std::max(qx, qy), 0.0f);
    }
    return std::clamp(0.5f - outside, 0.0f, 1.0f); // the pixel's area share across an edge
}

cv::Rect2d SceneSurface::footprint(double fx, double fy) const {
    const double w = fx * widthM / distance, h = fy * heightM / distance;
    return {centre.x - w / 2 - 1, centre.y - h / 2 - 1, w + 2, h + 2};
}

cv::Matx33d rotationXyz(const cv::Vec3d& degrees) {
    constexpr double kDeg = 3.14159265358979323846 / 180.0;
    const double a = degrees[0] * kDeg, b = degrees[1] * kDeg, c = degrees[2] * kDeg;
    const cv::Matx33d rx(1, 0, 0, 0, std::cos(a), -std::sin(a), 0, std::sin(a), std::cos(a));
    const cv::Matx33d ry(std::cos(b), 0, std::sin(b), 0, 1, 0, -std::sin(b), 0, std::cos(b));
    const cv::Matx33d rz(std::cos(c), -std::sin(c), 0, std::sin(c), std::cos(c), 0, 0, 0, 1);
    return rz * ry * rx;
}

cv::Matx33d GridTarget::rotation() const {
    return rotationXyz(rotationDeg);
}

cv::Point3d GridTarget::crossing(int i, int j) const {
    const cv::Vec3d local((j - (cols - 1) / 2.0) * pitch, (i - (rows - 1) / 2.0) * pitch, 0.0);
    const cv::Vec3d p = rotation() * local + translation;
    return {p[0], p[1], p[2]};
}

void GridTarget::coverage(float x, float y, double fx, double fy, double cx, double cy, float& board,
                          float& hot) const {
    coverage({0.0, 0.0, 0.0}, {(x - cx) / fx, (y - cy) / fy, 1.0}, 1.0 / fx, board, hot);
}

void GridTarget::coverage(const cv::Vec3d& origin, const cv::Vec3d& d, double pixelAngle, float& board,
                          float& hot) const {
    board = hot = 0.0f;
    const cv::Matx33d r = rotation();
    const cv::Vec3d n(r(0, 2), r(1, 2), r(2, 2)); // the board's normal
    const double nd = n.dot(d);
    if (std::abs(nd) < 1e-9)
        return;
    const double s = n.dot(translation - origin) / nd; // the line of sight meets the board at s d
    if (s <= 0.0)
        return;
    const cv::Vec3d local = r.t() * (origin + s * d - translation);
    // A pixel's footprint on the board, metres (widened by the tilt).
    const double foot =
        s * std::sqrt(d.dot(d)) * pixelAngle / std::max(0.2, std::abs(nd) / std::sqrt(d.dot(d)));
    const double halfU = (cols - 1) / 2.0 * pitch + margin, halfV = (rows - 1) / 2.0 * pitch + margin;
    const double inside = std::min(halfU - std::abs(local[0]), halfV - std::abs(local[1]));
    board = float(std::clamp(inside / foot + 0.5, 0.0, 1.0));
    if (board <= 0.0f)
        return;
    auto nearest = [&](double c, int n) {
        const double k = std::clamp(std::round(c / pitch + (n - 1) / 2.0), 0.0, double(n - 1));
        return c - (k - (n - 1) / 2.0) * pitch;
    };
    if (dotRadius > 0.0) {
        const double off = std::hypot(nearest(local[0], cols), nearest(local[1], rows));
        hot = float(std::clamp((dotRadius - off) / foot + 0.5, 0.0, 1.0));
        return;
    }
    auto stripe = [&](double c, int n) {
        return std::clamp((lineWidth / 2 - std::abs(nearest(c, n))) / foot + 0.5, 0.0, 1.0);
    };
    hot = float(std::max(stripe(local[0], cols), stripe(local[1], rows)));
}

PhysicalScene PhysicalScene::hall() {
    PhysicalScene s;
    using Shape = SceneSurface::Shape;
    // name, shape, centre, width, height, distance, celsius, emissivity
    s.surfaces = {
        {"hand at 0.5 m", Shape::Rect, {90, 120}, 0.08, 0.10, 0.5, 34.0, 0.98},
        {"box at 1 m", Shape::Rect, {200, 330}, 0.25, 0.20, 1.0, 45.0, 0.95},
        {"crumpled foil", Shape::Rect, {330, 340}, 0.30, 0.25, 2.0, 21.0, 0.05},
        {"blackbody 60 C", Shape::Disc, {470, 330}, 0.15, 0.15, 1.5, 60.0, 0.995},
        {"large hot disc", Shape::Disc, {180, 140}, 0.60, 0.60, 3.0, 80.0, 0.95},
        {"small hot disc", Shape::Disc, {420, 120}, 0.02, 0.02, 3.0, 80.0, 0.95},
        {"pipe at 10 m", Shape::Rect, {320, 60}, 4.0, 0.25, 10.0, 65.0, 0.9},
        {"cold store door at 20 m", Shape::Rect, {560, 240}, 1.5, 2.5, 20.0, 2.0, 0.9},
    };
    return s;
}

PhysicalScene PhysicalScene::blackbody(double celsius, double surroundC, const BlackbodyParameters& p,
                                       cv::Rect2d region, double fx, double fy) {
    PhysicalScene s;
    s.air.temperatureC = surroundC;
    s.reflectedC = surroundC;
    s.backgroundC = surroundC;
    s.backgroundEmissivity = 1.0;
    s.backgroundDistance = 2.0;
    SceneSurface bb;
    bb.name = "blackbody";
    bb.distance = p.distance;
    bb.celsius = celsius;
    bb.emissivity = p.emissivity;
    if (region.area() <= 0.0) {
        // Far larger than the view at any position.
        bb.centre = {fx, fy};
        bb.widthM = bb.heightM = 100.0 * p.distance;
    } else {
        bb.centre = (region.tl() + region.br()) * 0.5;
        bb.widthM = region.width * p.distance / fx;
        bb.heightM = region.height * p.distance / fy;
    }
    s.surfaces.push_back(bb);
    return s;
}

void PhysicalScene::validate() const {
    auto check = [](bool ok, const std::string& what) {
        if (!ok)
            NORDA_THROW("scene: " + what, "nordacam::sim::physics::PhysicalScene::validate");
    };
    check(reflectedC > -80.0 && reflectedC < 1200.0, "reflected temperature must lie in -80..1200 C");
    check(backgroundC > -80.0 && backgroundC < 1200.0, "background temperature must lie in -80..1200 C");
    check(backgroundEmissivity >= 0.0 && backgroundEmissivity <= 1.0,
          "background emissivity must lie in 0..1");
    check(backgroundDistance >= 0.0 && backgroundDistance <= 10000.0,
          "background distance must lie in 0..10 km");
    if (grid) {
        const auto& g = *grid;
        check(g.rows >= 2 && g.cols >= 2 && g.rows <= 100 && g.cols <= 100,
              "grid: 2 to 100 stripes each way");
        check(g.pitch > 0.0 && g.lineWidth > 0.0 && g.lineWidth < g.pitch && g.margin >= 0.0 &&
                  g.pitch < 10.0,
              "grid: pitch and stripe width must be positive, the stripes narrower than the pitch");
        check(g.hotC > -80.0 && g.hotC < 1200.0 && g.boardC > -80.0 && g.boardC < 1200.0,
              "grid: temperatures must lie in -80..1200 C");
        check(g.emissivity >= 0.0 && g.emissivity <= 1.0, "grid: emissivity must lie in 0..1");
        check(g.dotRadius >= 0.0 && g.dotRadius < g.pitch / 2, "grid: dots must be narrower than the pitch");
        check(g.translation[2] > 0.05 && g.translation[2] < 100.0, "grid: distance must lie in 0.05..100 m");
    }
    for (const auto& o : surfaces) {
        check(o.celsius > -80.0 && o.celsius < 1200.0,
              fmt::format("surface '{}': temperature must lie in -80..1200 C", o.name));
        check(o.emissivity >= 0.0 && o.emissivity <= 1.0,
              fmt::format("surface '{}': emissivity must lie in 0..1", o.name));
        check(o.distance > 0.0 && o.distance <= 10000.0,
              fmt::format("surface '{}': distance must lie in (0, 10 km]", o.name));
        check(o.widthM > 0.0 && o.heightM > 0.0 && o.widthM < 1e7 && o.heightM < 1e7,
              fmt::format("surface '{}': size must be positive", o.name));
        check(std::isfinite(o.centre.x) && std::isfinite(o.centre.y) && std::abs(o.centre.x) < 1e6 &&
                  std::abs(o.centre.y) < 1e6,
              fmt::format("surface '{}': centre must be finite", o.name));
    }
}

} // namespace nordacam::sim::physics
