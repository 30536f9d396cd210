#include "apps/nordacam/FactoryViews.h"

#include "apps/nordacam/BlackbodyShots.h"
#include "apps/nordacam/FactoryViewFolder.h"
#include "apps/nordacam/WarmUpRuns.h"
#include "apps/nordacam/sim/physics/PhysicalCamera.h"
#include "apps/nordacam/sim/physics/VisualRig.h"
#include "nordalib/core/exception/Exception.h"
#include "nordalib/vision/radiometry/RadiometricTools.h"

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

} // namespace nordacam
