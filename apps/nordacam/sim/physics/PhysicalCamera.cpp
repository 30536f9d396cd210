#include "apps/nordacam/sim/physics/PhysicalCamera.h"

#include "nordalib/core/exception/Exception.h"

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>

namespace nordacam::sim::physics {

PhysicalCamera::PhysicalCamera(const CameraParameters& p)
    : m_p(p), m_band(p.band), m_optics(p.optics), m_distortion(p.distortion), m_bolometer(p.detector) {
    const auto& grid = m_band.grid();
    const auto& response = m_band.response();
    std::vector<double> emission(grid.size());
    m_lensWeight.resize(grid.size());
    for (size_t i = 0; i < grid.size(); ++i) {
        m_lensWeight[i] = response[i] * m_optics.lensTransmission(grid[i]);
        emission[i] = response[i] * m_optics.lensEmissivity(grid[i]);
    }
    m_basis = RadianceTable::basis(grid, p.table);
    m_detector = RadianceTable(*m_basis, response);
    m_lensPath = RadianceTable(*m_basis, m_lensWeight);
    m_lensEmission = RadianceTable(*m_basis, emission);
    const cv::Size size(p.detector.width, p.detector.height);
    cv::Mat map1, map2;
    cv::convertMaps(m_distortion.sensorMap(size), cv::Mat(), map1, map2, CV_16SC2);
    m_sensorMap = map1;
    m_sensorMapFraction = map2;
}

const PhysicalCamera::PathTables& PhysicalCamera::path(const AirParameters& air, double metres) {
    if (!m_air || !(*m_air == air)) {
        m_paths.clear();
        m_atmosphere = Atmosphere(air);
        m_air = air;
    }
    const long long key = std::llround(metres * 1000.0);
    auto it = m_paths.find(key);
    if (it != m_paths.end())
        return it->second;
    const auto& grid = m_band.grid();
    std::vector<double> weight = m_atmosphere.transmission(grid, double(key) / 1000.0);
    for (size_t i = 0; i < grid.size(); ++i)
        weight[i] *= m_lensWeight[i];
    PathTables tables;
    tables.through = RadianceTable(*m_basis, weight);
    tables.airEmission = m_lensPath.radiance(air.temperatureC) - tables.through.radiance(air.temperatureC);
    return m_paths.emplace(key, std::move(tables)).first->second;
}

double PhysicalCamera::surfaceRadiance(const AirParameters& air, double reflectedC, double distance,
                                       double celsius, double emissivity) {
    const PathTables& p = path(air, distance);
    return emissivity * p.through.radiance(celsius) + (1.0 - emissivity) * p.through.radiance(reflectedC) +
           p.airEmission;
}

void PhysicalCamera::setWindow(bool attached) {
    if (m_p.optics.window == attached)
        return;
    m_p.optics.window = attached;
    m_optics = Optics(m_p.optics);
}

const cv::Mat& PhysicalCamera::sceneRadiance(const PhysicalScene& scene) {
    scene.validate();
    const double fx = m_p.distortion.fx, fy = m_p.distortion.fy;
    auto surfaceRadiance = [&](double distance, double celsius, double emissivity) {
        return this->surfaceRadiance(scene.air, scene.reflectedC, distance, celsius, emissivity);
    };
    const cv::Size size(m_p.detector.width, m_p.detector.height);
    m_ideal.create(size, CV_32F);
    m_ideal.setTo(surfaceRadiance(scene.backgroundDistance, scene.backgroundC, scene.backgroundEmissivity));
    std::vector<const SceneSurface*> order;
    for (const auto& s : scene.surfaces)
        order.push_back(&s);
    std::stable_sort(order.begin(), order.end(),
                     [](const SceneSurface* a, const SceneSurface* b) { return a->distance > b->distance; });
    const cv::Rect image(0, 0, size.width, size.height);
    for (const SceneSurface* s : order) {
        const float l = float(surfaceRadiance(s->distance, s->celsius, s->emissivity));
        // The footprint clipped to the image (in doubles: a near surface may be far larger).
        const cv::Rect2d f = s->footprint(fx, fy);
        const double x0 = std::max(-1.0, f.x), y0 = std::max(-1.0, f.y);
        const double x1 = std::min(size.width + 1.0, f.x + f.width),
                     y1 = std::min(size.height + 1.0, f.y + f.height);
        if (x1 <= x0 || y1 <= y0)
            continue;
        const cv::Rect box = cv::Rect(cv::Point(int(std::floor(x0)), int(std::floor(y0))),
                                      cv::Point(int(std::ceil(x1)) + 1, int(std::ceil(y1)) + 1)) &
                             image;
        for (int y = box.y; y < box.y + box.height; ++y) {
            float* row = m_ideal.ptr<float>(y);
            for (int x = box.x; x < box.x + box.width; ++x)
                if (const float c = s->coverage(float(x), float(y), fx, fy); c > 0.0f)
                    row[x] += c * (l - row[x]);
        }
    }
    if (const auto& g = scene.grid) {
        const double distance = cv::norm(g->translation);
        drawGrid(*g, float(surfaceRadiance(distance, g->hotC, g->emissivity)),
                 float(surfaceRadiance(distance, g->boardC, g->emissivity)));
    }
    return m_ideal;
}

void PhysicalCamera::drawGrid(const GridTarget& g, float hot, float cold) {
    const auto& d = m_p.distortion;
    // The board's outline bounds the pixels to visit.
    const cv::Rect image(0, 0, m_ideal.cols, m_ideal.rows);
    std::vector<cv::Point2f> outline;
    const double hu = (g.cols - 1) / 2.0 * g.pitch + g.margin, hv = (g.rows - 1) / 2.0 * g.pitch + g.margin;
    for (double su : {-1.0, 1.0})
        for (double sv : {-1.0, 1.0}) {
            const cv::Vec3d p = g.rotation() * cv::Vec3d(su * hu, sv * hv, 0.0) + g.translation;
            if (p[2] <= 0.01)
                NORDA_THROW("grid: the board reaches behind the camera",
                            "nordacam::sim::physics::PhysicalCamera::drawGrid");
            outline.emplace_back(float(d.fx * p[0] / p[2] + d.cx), float(d.fy * p[1] / p[2] + d.cy));
        }
    const cv::Rect box = (cv::boundingRect(outline) + cv::Size(2, 2) - cv::Point(1, 1)) & image;
    for (int y = box.y; y < box.y + box.height; ++y) {
        float* row = m_ideal.ptr<float>(y);
        for (int x = box.x; x < box.x + box.width; ++x) {
            float board, stripes;
            g.coverage(float(x), float(y), d.fx, d.fy, d.cx, d.cy, board, stripes);
            if (board > 0.0f)
                row[x] += board * (cold + stripes * (hot - cold) - row[x]);
        }
    }
}

void PhysicalCamera::netRadianceTerms(const CameraTemperatures& t, double& a, double& b) const {
    const double omega = m_optics.apertureShare();
    const double housing = m_detector.radiance(t.housingC);
    const double optics = m_optics.windowEmissivity() * m_lensPath.radiance(t.windowC) +
                          m_optics.windowReflectance() * m_lensPath.radiance(t.housingC) +
                          m_lensEmission.radiance(t.lensC) + m_p.optics.lensReflectance * housing;
    a = omega * m_optics.windowTransmission();
    b = omega * optics + (1.0 - omega) * housing - m_detector.radiance(t.fpaC);
}

cv::Mat PhysicalCamera::render(const PhysicalScene& scene, const CameraTemperatures& t, int range) {
    sceneRadiance(scene);
    return renderRadiance(m_ideal, t, range);
}

cv::Mat PhysicalCamera::renderRadiance(cv::Mat& ideal, const CameraTemperatures& t, int range) {
    if (ideal.type() != CV_32FC1 || ideal.size() != cv::Size(m_p.detector.width, m_p.detector.height))
        NORDA_THROW("the ideal radiance image must be CV_32FC1 of the sensor's size",
                    "nordacam::sim::physics::PhysicalCamera::renderRadiance");
    m_optics.blur(ideal);
    cv::remap(ideal, m_sensor, m_sensorMap, m_sensorMapFraction, cv::INTER_LINEAR, cv::BORDER_REPLICATE);
    double a, b;
    netRadianceTerms(t, a, b);
    return m_bolometer.read(m_sensor, a, b, t, range);
}

cv::Mat PhysicalCamera::renderShutter(const CameraTemperatures& t, int range) {
    const double omega = m_optics.apertureShare();
    const double e = m_p.shutter.emissivity;
    const double housing = m_detector.radiance(t.housingC);
    const double plate = e * m_detector.radiance(t.shutterC) + (1.0 - e) * housing;
    const double b = omega * plate + (1.0 - omega) * housing - m_detector.radiance(t.fpaC);
    return m_bolometer.read(cv::Mat(), 0.0, b, t, range);
}

TargetView PhysicalCamera::blackbodyView(const BlackbodyView& r) {
    if (r.frames < 0 || r.shutterFrames < 0 || r.frames + r.shutterFrames > 10000)
        NORDA_THROW("blackbody view: between 0 and 10000 frames",
                    "nordacam::sim::physics::PhysicalCamera::blackbodyView");
    if (!(r.boardC > -40.0 && r.boardC < 100.0))
        NORDA_THROW("blackbody view: board temperature must lie in -40..100 C",
                    "nordacam::sim::physics::PhysicalCamera::blackbodyView");
    CameraThermal thermal(m_p.thermal, m_p.shutter);
    thermal.settle(r.boardC);
    TargetView view;
    view.temperatures = thermal.temperatures();
    const PhysicalScene scene =
        PhysicalScene::blackbody(r.blackbodyC, view.temperatures.ambientC, m_p.blackbody, r.region,
                                 m_p.distortion.fx, m_p.distortion.fy);
    for (int i = 0; i < r.frames; ++i)
        view.frames.push_back(render(scene, view.temperatures, r.range));
    for (int i = 0; i < r.shutterFrames; ++i)
        view.shutter.push_back(renderShutter(view.temperatures, r.range));
    return view;
}

WarmUpSequence PhysicalCamera::warmUpView(const WarmUpView& r) {
    auto bad = [](double t) { return !(t >= 0.0 && t <= 1e5); };
    if (r.timesS.size() > 10000 || r.shutterFrames < 0 || r.shutterFrames > 10000 || bad(r.shutterAtS) ||
        std::any_of(r.timesS.begin(), r.timesS.end(), bad))
        NORDA_THROW("warm-up view: up to 10000 frames at times within 0..1e5 s",
                    "nordacam::sim::physics::PhysicalCamera::warmUpView");
    if (!(r.ambientC > -40.0 && r.ambientC < 60.0))
        NORDA_THROW("warm-up view: ambient temperature must lie in -40..60 C",
                    "nordacam::sim::physics::PhysicalCamera::warmUpView");
    ThermalParameters tp = m_p.thermal;
    tp.ambientC = r.ambientC;
    CameraThermal thermal(tp, m_p.shutter);
    const PhysicalScene scene = PhysicalScene::blackbody(r.blackbodyC, r.ambientC, m_p.blackbody, {},
                                                         m_p.distortion.fx, m_p.distortion.fy);
    // Visit the moments in time order, the shutter's among them.
    std::vector<size_t> order(r.timesS.size());
    for (size_t i = 0; i < order.size(); ++i)
        order[i] = i;
    std::stable_sort(order.begin(), order.end(),
                     [&](size_t a, size_t b) { return r.timesS[a] < r.timesS[b]; });
    WarmUpSequence out;
    out.frames.resize(r.timesS.size());
    bool shutterDone = false;
    auto shutter = [&] {
        thermal.runTo(r.shutterAtS);
        out.shutterTemperatures = thermal.temperatures();
        for (int i = 0; i < r.shutterFrames; ++i)
            out.shutter.push_back(renderShutter(out.shutterTemperatures, r.range));
        shutterDone = true;
    };
    for (size_t i : order) {
        if (!shutterDone && r.shutterAtS <= r.timesS[i])
            shutter();
        thermal.runTo(r.timesS[i]);
        out.frames[i] = {r.timesS[i], render(scene, thermal.temperatures(), r.range), thermal.temperatures()};
    }
    if (!shutterDone)
        shutter();
    return out;
}

GridTargetView PhysicalCamera::gridView(const GridView& r) {
    if (r.frames < 0 || r.frames > 10000)
        NORDA_THROW("grid view: between 0 and 10000 frames",
                    "nordacam::sim::physics::PhysicalCamera::gridView");
    if (!(r.boardC > -40.0 && r.boardC < 100.0))
        NORDA_THROW("grid view: board temperature must lie in -40..100 C",
                    "nordacam::sim::physics::PhysicalCamera::gridView");
    CameraThermal thermal(m_p.thermal, m_p.shutter);
    thermal.settle(r.boardC);
    GridTargetView out;
    out.view.temperatures = thermal.temperatures();
    PhysicalScene scene;
    scene.air.temperatureC = scene.reflectedC = scene.backgroundC = out.view.temperatures.ambientC;
    scene.backgroundEmissivity = 1.0;
    scene.backgroundDistance = 5.0;
    scene.grid = r.target;
    for (int i = 0; i < r.frames; ++i)
        out.view.frames.push_back(render(scene, out.view.temperatures, r.range));
    const auto& d = m_p.distortion;
    for (int i = 0; i < r.target.rows; ++i)
        for (int j = 0; j < r.target.cols; ++j) {
            const cv::Point3d p = r.target.crossing(i, j);
            const cv::Point2d ideal(d.fx * p.x / p.z + d.cx, d.fy * p.y / p.z + d.cy);
            out.ideal.push_back(ideal);
            out.sensor.push_back(m_distortion.distort(ideal));
        }
    return out;
}

} // namespace nordacam::sim::physics
