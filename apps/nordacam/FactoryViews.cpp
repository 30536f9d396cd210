#include "apps/nordacam/FactoryViews.h"

#include "apps/nordacam/FactoryViewFolder.h"
#include "apps/nordacam/WarmUpRuns.h"
#include "apps/nordacam/sim/physics/PhysicalCamera.h"
#include "apps/nordacam/sim/physics/VisualRig.h"
#include "nordalib/core/exception/Exception.h"
#include "nordalib/vision/imgproc/DistortionTable.h"
#include "nordalib/vision/radiometry/RadiometricCalibration.h"
#include "nordalib/vision/radiometry/RadiometricTools.h"
#include "nordalib/vision/registration/Registration.h"

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>

namespace nordacam {

namespace {
namespace phys = sim::physics;
using namespace factory;
using nlohmann::json;
constexpr const char* kWhere = "nordacam::FactoryViews";
constexpr double kCelsius = 273.15;

constexpr double kWarmingK = 1.5; // a view after the board warmed this much since the shutter closed

// A blackbody view as the factory takes it: the shutter closes with the camera settled at boardC;
// the frames follow after the chamber has warmed the board by warmingK (slowly: every part settled).
struct Shot {
    phys::TargetView shutter, scene;
};

Shot shoot(phys::PhysicalCamera& camera, double blackbodyC, double boardC, double warmingK, unsigned range,
           int frames) {
    phys::BlackbodyView r;
    r.blackbodyC = blackbodyC;
    r.boardC = boardC;
    r.range = static_cast<int>(range);
    r.frames = 0;
    r.shutterFrames = 1;
    Shot s;
    s.shutter = camera.blackbodyView(r);
    r.boardC = boardC + warmingK;
    r.frames = frames;
    r.shutterFrames = 0;
    s.scene = camera.blackbodyView(r);
    return s;
}

// What the factory's instruments read for a shot: the library's measurement conditions.
norda::vision::RadiometricConditions conditions(const Shot& s, double emissivity, double lensTransmission) {
    norda::vision::RadiometricConditions c;
    c.lensTransmission = lensTransmission;
    c.lensK = s.scene.temperatures.lensC + kCelsius;
    c.emissivity = emissivity;
    c.reflectedK = s.scene.temperatures.ambientC + kCelsius; // the chamber around the source
    c.shutterK = s.shutter.temperatures.shutterC + kCelsius;
    c.boardCurrentK = s.scene.temperatures.boardC + kCelsius;
    c.boardShutteringK = s.shutter.temperatures.boardC + kCelsius;
    return c;
}

// Blackbody temperatures over a band: n evenly from bottom to top, or the n - 1 midpoints.
std::vector<double> temperatures(const Band& b, int n, bool midpoints) {
    std::vector<double> t;
    const double step = (b.topC - b.bottomC) / (n - 1);
    for (int i = 0; i < (midpoints ? n - 1 : n); ++i)
        t.push_back(b.bottomC + step * (i + (midpoints ? 0.5 : 0.0)));
    return t;
}
// Grid poses (tilt about x, y, z in degrees; centre in metres) that together cover the infrared
// image; the visual camera's wider field sees them whole too.
struct Pose {
    cv::Vec3d rotationDeg, translation;
};
const std::vector<Pose>& gridPoses() {
    static const std::vector<Pose> poses = {
        {{0, 0, 0}, {0, 0, 0.6}},
        {{20, 0, 0}, {0, 0, 0.65}},
        {{-20, 0, 0}, {0, 0, 0.65}},
        {{0, 25, 0}, {-0.08, 0, 0.65}},
        {{0, -25, 0}, {0.08, 0, 0.65}},
        {{12, 12, 5}, {-0.1, -0.07, 0.62}},
        {{-12, 12, -5}, {-0.1, 0.07, 0.62}},
        {{12, -12, -5}, {0.1, -0.07, 0.62}},
        {{-12, -12, 5}, {0.1, 0.07, 0.62}},
        {{0, 30, 8}, {0, 0, 0.7}},
        {{30, 0, -8}, {0, 0, 0.7}},
        {{8, -8, 0}, {0, 0, 0.52}},
        {{-25, 20, 0}, {0.04, -0.04, 0.75}},
    };
    return poses;
}
phys::GridTarget dotGrid(const Pose& pose) {
    phys::GridTarget target;
    target.dotRadius = 0.01;
    target.rotationDeg = pose.rotationDeg;
    target.translation = pose.translation;
    return target;
}
json targetJson(const phys::GridTarget& target) {
    return {{"pattern", "circles"},
            {"columns", target.cols},
            {"rows", target.rows},
            {"spacing", target.pitch},
            {"warmDots", true}};
}
// The visual camera's exposure for the laser views: long enough that the spot at 10 m stands well
// above the ambient light in 8 bits, the near spots saturating.
constexpr double kLaserExposureS = 0.004;
constexpr double kLaserReflectance = 0.5; // matt white card

// Sensor pixel the fitted distortion table takes output pixel (x, y) from (bilinear between the
// entries around it).
cv::Point2d tableSource(const norda::vision::DistortionTable& table, int width, int height, cv::Point2d q) {
    auto at = [&](int x, int y) {
        x = std::clamp(x, 0, width - 1);
        y = std::clamp(y, 0, height - 1);
        const auto& e = table.entries()[size_t(y) * width + x];
        const int source = y * width + x + e.offset;
        return cv::Point2d(source % width + (e.w01 + e.w11) / 65536.0,
                           source / width + (e.w10 + e.w11) / 65536.0);
    };
    const int x0 = int(std::floor(q.x)), y0 = int(std::floor(q.y));
    const double fx = q.x - x0, fy = q.y - y0;
    return (1 - fy) * ((1 - fx) * at(x0, y0) + fx * at(x0 + 1, y0)) +
           fy * ((1 - fx) * at(x0, y0 + 1) + fx * at(x0 + 1, y0 + 1));
}
} // namespace

FactoryViews::FactoryViews(FactoryViewOptions options) : m_options(std::move(options)) {}

void FactoryViews::radiometry(const std::string& folder) const {
    const std::string dir = folderOf(folder);
    phys::PhysicalCamera camera(m_options.camera);
    const double emissivity = camera.parameters().blackbody.emissivity; // the source's data sheet
    const int perRange = m_options.reduced ? 8 : 10, frames = m_options.reduced ? 1 : 2;
    json views = json::array(), bands = json::object();
    const size_t total = bandsOf(m_options.ranges).size() * m_options.boardsC.size() * perRange;
    for (const auto& band : bandsOf(m_options.ranges)) {
        bands[std::to_string(band.range)] = {band.bottomC, band.topC};
        for (size_t b = 0; b < m_options.boardsC.size(); ++b) {
            const auto blackbodies = temperatures(band, perRange, false);
            for (size_t i = 0; i < blackbodies.size(); ++i) {
                const double warming = (i + b) % 2 ? kWarmingK : 0.0;
                const Shot s =
                    shoot(camera, blackbodies[i], m_options.boardsC[b], warming, band.range, frames);
                const std::string name =
                    fmt::format("r{}-board{:.0f}-bb{:.0f}", band.range, m_options.boardsC[b], blackbodies[i]);
                writeFrames(dir + name + ".pxm", s.scene.frames);
                writeFrames(dir + name + "-shutter.pxm", s.shutter.shutter);
                const auto c = conditions(s, emissivity, lensTransmission(camera));
                views.push_back({{"name", name},
                                 {"range", band.range},
                                 {"blackbody", blackbodies[i]},
                                 {"board", c.boardCurrentK - kCelsius},
                                 {"boardAtShutter", c.boardShutteringK - kCelsius},
                                 {"shutter", c.shutterK - kCelsius},
                                 {"emissivity", emissivity},
                                 {"reflected", c.reflectedK - kCelsius},
                                 {"lensTransmission", c.lensTransmission},
                                 {"lens", c.lensK - kCelsius},
                                 {"file", name + ".pxm"},
                                 {"shutterFile", name + "-shutter.pxm"},
                                 {"region", {kRegion[0], kRegion[1], kRegion[2], kRegion[3]}}});
                if (m_options.progress)
                    m_options.progress(fmt::format("view {}/{}: {}", views.size(), total, name));
            }
        }
    }
    json logs = json::object();
    WarmUpRuns(m_options).write(camera, dir, views, logs);
    writeJson(dir + "views.json", {{"bands", bands}, {"boardLogs", logs}, {"views", views}});
}
void FactoryViews::badPixel(const std::string& folder) const {
    const std::string dir = folderOf(folder);
    phys::PhysicalCamera camera(m_options.camera);
    json views = json::array();
    const double fields[] = {10.0, 35.0, 60.0};
    for (double t : fields) {
        phys::BlackbodyView r;
        r.blackbodyC = t;
        r.frames = m_options.reduced ? 4 : 8;
        const std::string name = fmt::format("flat{:.0f}", t);
        writeFrames(dir + name + ".pxm", camera.blackbodyView(r).frames);
        views.push_back({{"name", name}, {"file", name + ".pxm"}});
        if (m_options.progress)
            m_options.progress(fmt::format("flat field {}/{}: blackbody at {:.0f} °C filling the view",
                                           views.size(), std::size(fields), t));
    }
    writeJson(dir + "views.json", {{"views", views}});
}

void FactoryViews::distortion(const std::string& folder) const {
    const std::string dir = folderOf(folder);
    phys::PhysicalCamera camera(m_options.camera);
    phys::GridTarget target;
    target.dotRadius = 0.01;
    const auto& poses = gridPoses();
    const size_t n = m_options.reduced ? 10 : poses.size();
    json views = json::array();
    for (size_t i = 0; i < n; ++i) {
        phys::GridView r;
        r.target = dotGrid(poses[i]);
        const std::string name = fmt::format("pose{:02}", i);
        writeFrames(dir + name + ".pxm", camera.gridView(r).view.frames);
        views.push_back({{"name", name}, {"file", name + ".pxm"}});
        if (m_options.progress)
            m_options.progress(fmt::format("grid pose {}/{}", i + 1, n));
    }
    writeJson(dir + "views.json", {{"target", targetJson(dotGrid(poses[0]))}, {"views", views}});
}

void FactoryViews::registration(const std::string& folder) const {
    const std::string dir = folderOf(folder);
    phys::PhysicalCamera camera(m_options.camera);
    phys::VisualRig rig(m_options.rig);
    const auto& poses = gridPoses();
    const size_t n = m_options.reduced ? 10 : poses.size();
    json views = json::array(), laser = json::array();
    for (size_t i = 0; i < n; ++i) {
        phys::GridView r;
        r.target = dotGrid(poses[i]);
        const std::string name = fmt::format("pose{:02}", i);
        writeFrames(dir + name + "-ir.pxm", camera.gridView(r).view.frames);
        if (!cv::imwrite(dir + name + "-vis.png", rig.gridImage(r.target)))
            NORDA_THROW("can not write " + dir + name + "-vis.png", kWhere);
        views.push_back({{"name", name}, {"infrared", name + "-ir.pxm"}, {"visual", name + "-vis.png"}});
        if (m_options.progress)
            m_options.progress(fmt::format("grid pose {}/{}, infrared and visual", i + 1, n));
    }
    // The laser on a card at measured distances; the spot's position is measured in the image.
    for (double d : kLaserDistances) {
        const cv::Mat red = rig.laserImage(d, kLaserReflectance, kLaserExposureS);
        const cv::Point2d c = spotCentre(red);
        if (c.x < 0)
            NORDA_THROW(fmt::format("laser view at {:.1f} m: no spot stands out", d), kWhere);
        laser.push_back({{"distance", d}, {"x", c.x}, {"y", c.y}});
        if (m_options.progress)
            m_options.progress(fmt::format("laser spot at {:.1f} m: visual ({:.2f}, {:.2f})", d, c.x, c.y));
    }
    writeJson(dir + "views.json",
              {{"target", targetJson(dotGrid(poses[0]))}, {"views", views}, {"laser", laser}});
}

cv::Point2d FactoryViews::spotCentre(const cv::Mat& red) {
    const double ambient = cv::mean(red)[0];
    double peak = 0;
    cv::Point at;
    cv::minMaxLoc(red, nullptr, &peak, nullptr, &at);
    if (peak < ambient + 8.0)
        return {-1.0, -1.0};
    // Centroid of what rises above a tenth of the peak over ambient, in a window several spot
    // sizes wide around the brightest pixel: the spot's flanks carry its sub-pixel position.
    const double floor = ambient + (peak - ambient) / 10.0;
    const cv::Rect box = cv::Rect(at.x - 40, at.y - 40, 81, 81) & cv::Rect(0, 0, red.cols, red.rows);
    double sum = 0, sx = 0, sy = 0;
    for (int y = box.y; y < box.y + box.height; ++y)
        for (int x = box.x; x < box.x + box.width; ++x) {
            const double v = red.at<uchar>(y, x) - ambient;
            if (v + ambient < floor)
                continue;
            sum += v;
            sx += v * x;
            sy += v * y;
        }
    return {sx / sum, sy / sum};
}

std::vector<RegistrationCheck> FactoryViews::checkRegistration(const std::string& registrationJson,
                                                               const std::string& distortPxm) const {
    const auto reg = norda::vision::Registration::load(registrationJson);
    const auto& d = m_options.camera.detector;
    const auto table =
        norda::vision::DistortionTable::load(distortPxm, uint16_t(d.height), uint16_t(d.width));
    const phys::LensDistortion lens(m_options.camera.distortion);
    const auto& l = m_options.camera.distortion;
    phys::VisualRig rig(m_options.rig);
    const cv::Size ir(d.width, d.height), vis = rig.visualSize();
    // The true infrared sensor pixel of a point, and the sensor pixel the chain takes an undistorted
    // infrared pixel from.
    auto truthIr = [&](const cv::Point3d& p) {
        return lens.distort({l.fx * p.x / p.z + l.cx, l.fy * p.y / p.z + l.cy});
    };
    std::vector<RegistrationCheck> out;
    for (double distance : kCheckDistances) {
        RegistrationCheck c;
        c.distance = distance;
        int n = 0;
        for (int y = 24; y < d.height - 24; y += 36)
            for (int x = 24; x < d.width - 24; x += 36) {
                const cv::Point2d ideal = lens.undistort({double(x), double(y)});
                const cv::Point3d p((ideal.x - l.cx) / l.fx * distance, (ideal.y - l.cy) / l.fy * distance,
                                    distance);
                const cv::Point2d q = reg.visualToInfrared(rig.project(p), distance, vis, ir);
                const double e = cv::norm(tableSource(table, d.width, d.height, q) - truthIr(p));
                c.meanPx += e;
                c.worstPx = std::max(c.worstPx, e);
                ++n;
            }
        c.meanPx /= n;
        phys::RigLaserTruth t;
        const cv::Point2d spot = spotCentre(rig.laserImage(distance, kLaserReflectance, kLaserExposureS, &t));
        const auto fix = reg.laserTriangulation(spot, vis, ir);
        c.laserPx = cv::norm(tableSource(table, d.width, d.height, fix.infrared) - truthIr(t.hit));
        c.laserDistancePercent = 100.0 * (fix.distance - t.hit.z) / t.hit.z;
        out.push_back(c);
        if (m_options.progress)
            m_options.progress(
                fmt::format("registration at {:.1f} m: mean {:.2f} px, worst {:.2f} px; laser {:.2f} "
                            "px, distance {:+.2f} %",
                            distance, c.meanPx, c.worstPx, c.laserPx, c.laserDistancePercent));
    }
    return out;
}

std::vector<RadiometryCheck> FactoryViews::checkRadiometry(const std::string& radiometryJson) const {
    using norda::vision::RadiometricTools;
    const auto calibration = norda::vision::RadiometricCalibration::load(radiometryJson);
    phys::PhysicalCamera camera(m_options.camera);
    const double emissivity = camera.parameters().blackbody.emissivity;
    const cv::Rect region(kRegion[0], kRegion[1], kRegion[2], kRegion[3]);
    std::vector<RadiometryCheck> out;
    for (const auto& band : bandsOf(m_options.ranges)) {
        auto range = calibration.ranges.find(band.range);
        if (range == calibration.ranges.end())
            NORDA_THROW(radiometryJson + " has no range " + std::to_string(band.range), kWhere);
        RadiometryCheck check{band.range, band.bottomC, band.topC};
        double sum = 0, sum2 = 0;
        for (double board : m_options.checkBoardsC)
            for (double blackbody : temperatures(band, m_options.reduced ? 5 : 10, true)) {
                const double warming = check.views % 2 ? kWarmingK / 2 : 0.0;
                const Shot s = shoot(camera, blackbody, board, warming, band.range, 1);
                cv::Mat scene, shutter;
                s.scene.frames.front()(region).convertTo(scene, CV_64F);
                s.shutter.shutter.front()(region).convertTo(shutter, CV_64F);
                const double corrected = cv::mean(scene - shutter)[0];
                // The true blackbody temperature is the simulator's; the rest is the library's model.
                const double error =
                    RadiometricTools::objectTemperature(
                        range->second, conditions(s, emissivity, lensTransmission(camera)), corrected) -
                    (blackbody + kCelsius);
                if (!std::isfinite(error))
                    NORDA_THROW(fmt::format("range {}: a blackbody at {:.1f} °C converts to no temperature",
                                            band.range, blackbody),
                                kWhere);
                ++check.views;
                sum += error;
                sum2 += error * error;
                if (std::abs(error) > std::abs(check.worstK)) {
                    check.worstK = error;
                    check.worstAtC = blackbody;
                    check.worstBoardC = board + warming;
                }
                if (m_options.progress)
                    m_options.progress(
                        fmt::format("range {} check: blackbody {:.1f} °C, board {:.1f} °C: {:+.3f} K",
                                    band.range, blackbody, board + warming, error));
            }
        check.meanK = sum / check.views;
        check.rmsK = std::sqrt(sum2 / check.views);
        out.push_back(check);
    }
    return out;
}

DistortionCheck FactoryViews::checkDistortion(const std::string& distortPxm) const {
    const auto& d = m_options.camera.detector;
    const auto table =
        norda::vision::DistortionTable::load(distortPxm, uint16_t(d.height), uint16_t(d.width));
    const phys::LensDistortion lens(m_options.camera.distortion);
    // Each output pixel's source on the sensor (its bilinear weights' centre), taken back to the
    // ideal image through the simulator's own lens model; then the affine map that fits best.
    constexpr int kStep = 8, kEdge = 16; // the table clamps sources beyond the sensor's edge
    std::vector<cv::Point2d> output, ideal;
    for (int y = kEdge; y < d.height - kEdge; y += kStep)
        for (int x = kEdge; x < d.width - kEdge; x += kStep) {
            const auto& e = table.entries()[size_t(y) * d.width + x];
            const int source = y * d.width + x + e.offset;
            const double fx = (e.w01 + e.w11) / 65536.0, fy = (e.w10 + e.w11) / 65536.0;
            output.emplace_back(x, y);
            ideal.push_back(lens.undistort({source % d.width + fx, source / d.width + fy}));
        }
    cv::Mat a(int(output.size()) * 2, 6, CV_64F, cv::Scalar(0)), b(int(output.size()) * 2, 1, CV_64F);
    for (int i = 0; i < int(output.size()); ++i) {
        const double row[3] = {output[i].x, output[i].y, 1.0};
        for (int k = 0; k < 3; ++k) {
            a.at<double>(2 * i, k) = row[k];
            a.at<double>(2 * i + 1, 3 + k) = row[k];
        }
        b.at<double>(2 * i) = ideal[i].x;
        b.at<double>(2 * i + 1) = ideal[i].y;
    }
    cv::Mat m;
    cv::solve(a, b, m, cv::DECOMP_SVD);
    const cv::Mat r = a * m - b;
    DistortionCheck c;
    c.points = unsigned(output.size());
    double sum2 = 0;
    for (int i = 0; i < int(output.size()); ++i) {
        const double e = std::hypot(r.at<double>(2 * i), r.at<double>(2 * i + 1));
        sum2 += e * e;
        c.worstPx = std::max(c.worstPx, e);
    }
    c.rmsPx = std::sqrt(sum2 / c.points);
    return c;
}

} // namespace nordacam
