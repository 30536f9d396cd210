#include "nordalib/vision/registration/Registration.h"

#include "nordalib/core/exception/Exception.h"
#include "nordalib/core/utils/FileUtils.h"

#include <cmath>
#include <fstream>

#ifdef NORDA_HAVE_JSON
#include <nlohmann/json.hpp>
#endif

namespace norda::vision {

namespace {
constexpr const char* kLoad = "norda::vision::Registration::load";

} // namespace

void Registration::validate(const std::string& source) const {
    auto bad = [&](const std::string& what) {
        NORDA_THROW("registration " + source + ": " + what, "norda::vision::Registration::validate");
    };
    try {
        infrared.validate("infrared");
        visual.validate("visual");
    } catch (const Exception& e) {
        bad(e.what());
    }
    if (infrared.hasDistortion())
        bad("infrared must be the undistorted image (distortion coefficients 0)");
    for (int i = 0; i < 9; ++i)
        if (!std::isfinite(rotation.val[i]))
            bad("rotation is not finite");
    const cv::Matx33d shouldBeEye = rotation * rotation.t();
    if (cv::norm(shouldBeEye - cv::Matx33d::eye()) > 1e-6 || cv::determinant(rotation) < 0)
        bad("rotation is not a rotation matrix");
    for (int i = 0; i < 3; ++i)
        if (!std::isfinite(translation[i]) || !std::isfinite(laserOrigin[i]) ||
            !std::isfinite(laserDirection[i]))
            bad("translation and laser must be finite");
    if (cv::norm(translation) > 1.0)
        bad("translation: a baseline over a metre");
    if (cv::norm(laserOrigin) > 1.0)
        bad("laser.origin lies over a metre from the camera");
    if (!(laserDirection[2] > 0.5 * cv::norm(laserDirection)))
        bad("laser.direction must point forwards");
}

cv::Point3d Registration::visualPoint(const cv::Point2d& visualPixel, double distance,
                                      cv::Size visualSize) const {
    const cv::Point2d n = visualAt(visualSize).normalised(visualPixel);
    const cv::Vec3d d = rotation * cv::Vec3d(n.x, n.y, 1.0);
    const double t = (distance - translation[2]) / d[2];
    const cv::Vec3d p = translation + t * d;
    return {p[0], p[1], p[2]};
}

cv::Point2d Registration::visualToInfrared(const cv::Point2d& visualPixel, double distance,
                                           cv::Size visualSize, cv::Size infraredSize) const {
    return infraredAt(infraredSize).project(visualPoint(visualPixel, distance, visualSize));
}

cv::Point2d Registration::infraredToVisual(const cv::Point2d& infraredPixel, double distance,
                                           cv::Size visualSize, cv::Size infraredSize) const {
    const cv::Point2d n = infraredAt(infraredSize).normalised(infraredPixel);
    const cv::Vec3d p(n.x * distance, n.y * distance, distance);
    const cv::Vec3d q = rotation.t() * (p - translation);
    return visualAt(visualSize).project({q[0], q[1], q[2]});
}

cv::Point2d Registration::laserInVisual(double distance, cv::Size visualSize) const {
    const cv::Vec3d dir = laserDirection / cv::norm(laserDirection);
    const cv::Vec3d p = laserOrigin + (distance - laserOrigin[2]) / dir[2] * dir;
    const cv::Vec3d q = rotation.t() * (p - translation);
    return visualAt(visualSize).project({q[0], q[1], q[2]});
}

Registration::LaserFix Registration::laserTriangulation(const cv::Point2d& visualPixel, cv::Size visualSize,
                                                        cv::Size infraredSize) const {
    LaserFix fix;
    const CameraModel cam = visualAt(visualSize);
    const CameraModel ir = infraredAt(infraredSize);
    const cv::Point2d n = cam.normalised(visualPixel);
    cv::Vec3d v = rotation * cv::Vec3d(n.x, n.y, 1.0);
    v /= cv::norm(v);
    const cv::Vec3d l = laserDirection / cv::norm(laserDirection);
    // Closest points of the line of sight (translation + s v) and the laser (origin + t l).
    const cv::Vec3d w = translation - laserOrigin;
    const double b = v.dot(l), d = v.dot(w), e = l.dot(w);
    const double denom = 1.0 - b * b;
    if (denom < 1e-12)
        return fix;
    const double s = (b * e - d) / denom, t = (e - b * d) / denom;
    if (s <= 0 || t <= 0)
        return fix;
    const cv::Vec3d onLaser = laserOrigin + t * l;
    fix.point = {onLaser[0], onLaser[1], onLaser[2]};
    fix.distance = onLaser[2];
    const cv::Vec3d q = rotation.t() * (onLaser - translation);
    fix.offLine = cv::norm(cam.project({q[0], q[1], q[2]}) - visualPixel);
    fix.infrared = ir.project(fix.point);
    return fix;
}

void Registration::infraredToVisualMaps(double distance, cv::Size infraredSize, cv::Size visualSize,
                                        cv::Mat& mapX, cv::Mat& mapY) const {
    const CameraModel ir = infraredAt(infraredSize);
    const CameraModel cam = visualAt(visualSize);
    mapX.create(infraredSize, CV_32FC1);
    mapY.create(infraredSize, CV_32FC1);
    // A plane at one depth maps to a plane: the undistorted visual coordinates are a homography of
    // the infrared pixel; only the visual lens's distortion is applied per pixel.
    const cv::Matx33d Kir(ir.fx, 0, ir.cx, 0, ir.fy, ir.cy, 0, 0, 1);
    const cv::Matx33d H = rotation.t() *
                          (cv::Matx33d::eye() * distance -
                           cv::Matx33d(0, 0, translation[0], 0, 0, translation[1], 0, 0, translation[2])) *
                          Kir.inv();
    for (int y = 0; y < infraredSize.height; ++y) {
        float* mx = mapX.ptr<float>(y);
        float* my = mapY.ptr<float>(y);
        for (int x = 0; x < infraredSize.width; ++x) {
            const cv::Vec3d q = H * cv::Vec3d(x, y, 1.0);
            const cv::Point2d p = cam.pixelOf({q[0] / q[2], q[1] / q[2]});
            mx[x] = float(p.x);
            my[x] = float(p.y);
        }
    }
}

#ifdef NORDA_HAVE_JSON
namespace {
double number(const nlohmann::json& obj, const char* name, const std::string& file, const std::string& key) {
    auto it = obj.find(name);
    if (it == obj.end())
        NORDA_THROW("registration " + file + ": " + key + name + " is missing", kLoad);
    if (!it->is_number())
        NORDA_THROW("registration " + file + ": " + key + name + " is not a number", kLoad);
    return it->get<double>();
}
template <int N>
cv::Vec<double, N> vec(const nlohmann::json& obj, const char* name, const std::string& file,
                       const std::string& key) {
    auto it = obj.find(name);
    if (it == obj.end() || !it->is_array() || it->size() != N)
        NORDA_THROW("registration " + file + ": " + key + name + " must be an array of " + std::to_string(N) +
                        " numbers",
                    kLoad);
    cv::Vec<double, N> v;
    for (int i = 0; i < N; ++i) {
        if (!(*it)[i].is_number())
            NORDA_THROW("registration " + file + ": " + key + name + "[" + std::to_string(i) +
                            "] is not a number",
                        kLoad);
        v[i] = (*it)[i].get<double>();
    }
    return v;
}
const nlohmann::json& object(const nlohmann::json& doc, const char* name, const std::string& file) {
    auto it = doc.find(name);
    if (it == doc.end() || !it->is_object())
        NORDA_THROW("registration " + file + ": " + name + " must be an object", kLoad);
    return *it;
}
CameraModel camera(const nlohmann::json& doc, const char* name, const std::string& file, bool distortion) {
    const auto& j = object(doc, name, file);
    const std::string key = std::string(name) + ".";
    CameraModel m;
    const double w = number(j, "width", file, key), h = number(j, "height", file, key);
    if (!(w >= 1 && w <= 65535 && h >= 1 && h <= 65535) || w != std::floor(w) || h != std::floor(h))
        NORDA_THROW("registration " + file + ": " + key + "width and height must be whole pixel counts",
                    kLoad);
    m.size = cv::Size(int(w), int(h));
    m.fx = number(j, "fx", file, key);
    m.fy = number(j, "fy", file, key);
    m.cx = number(j, "cx", file, key);
    m.cy = number(j, "cy", file, key);
    if (distortion) {
        m.k1 = number(j, "k1", file, key);
        m.k2 = number(j, "k2", file, key);
        m.p1 = number(j, "p1", file, key);
        m.p2 = number(j, "p2", file, key);
        m.k3 = number(j, "k3", file, key);
    }
    return m;
}
} // namespace

Registration Registration::load(const std::string& file) {
    if (!utils::existsFile(file))
        NORDA_THROW("registration file " + file + " is missing", kLoad);
    std::ifstream in(file);
    nlohmann::json doc;
    try {
        doc = nlohmann::json::parse(in);
    } catch (const std::exception& e) {
        NORDA_THROW("registration " + file + " is not valid JSON: " + e.what(), kLoad);
    }
    if (!doc.is_object())
        NORDA_THROW("registration " + file + ": the top level must be an object", kLoad);
    Registration r;
    r.infrared = camera(doc, "infrared", file, false);
    r.visual = camera(doc, "visual", file, true);
    const auto rot = vec<9>(doc, "rotation", file, "");
    for (int i = 0; i < 9; ++i)
        r.rotation.val[i] = rot[i];
    r.translation = vec<3>(doc, "translation", file, "");
    const auto& laser = object(doc, "laser", file);
    r.laserOrigin = vec<3>(laser, "origin", file, "laser.");
    r.laserDirection = vec<3>(laser, "direction", file, "laser.");
    r.validate(file);
    return r;
}

void Registration::save(const std::string& file) const {
    validate(file);
    nlohmann::ordered_json doc;
    doc["version"] = 1;
    auto cam = [](const CameraModel& m, bool distortion) {
        nlohmann::ordered_json j = {{"width", m.size.width},
                                    {"height", m.size.height},
                                    {"fx", m.fx},
                                    {"fy", m.fy},
                                    {"cx", m.cx},
                                    {"cy", m.cy}};
        if (distortion) {
            j["k1"] = m.k1;
            j["k2"] = m.k2;
            j["p1"] = m.p1;
            j["p2"] = m.p2;
            j["k3"] = m.k3;
        }
        return j;
    };
    doc["infrared"] = cam(infrared, false);
    doc["visual"] = cam(visual, true);
    doc["rotation"] = std::vector<double>(rotation.val, rotation.val + 9);
    doc["translation"] = {translation[0], translation[1], translation[2]};
    doc["laser"] = {{"origin", {laserOrigin[0], laserOrigin[1], laserOrigin[2]}},
                    {"direction", {laserDirection[0], laserDirection[1], laserDirection[2]}}};
    const std::string text = doc.dump(2) + "\n";
    utils::writeFileAtomically(file, text.data(), text.size());
}
#else
Registration Registration::load(const std::string& file) {
    NORDA_THROW("registration " + file + ": this build reads no JSON", kLoad);
}
void Registration::save(const std::string& file) const {
    NORDA_THROW("registration " + file + ": this build writes no JSON", "norda::vision::Registration::save");
}
#endif

} // namespace norda::vision
