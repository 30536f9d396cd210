#include "apps/nordacam/sim/Scene.h"

#include "apps/nordacam/sim/physics/PhysicalScene.h"

#include "nordalib/core/exception/Exception.h"

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>

namespace nordacam::sim {

namespace {

constexpr double kPi = 3.14159265358979;
constexpr int kTextureScale = 2; // texture pixels per infrared pixel

float coverageOf(float signedDistance) {
    return std::clamp(0.5f - signedDistance / 1.5f, 0.0f, 1.0f);
}

cv::Vec3f sample(const cv::Mat& texture, float u, float v) {
    const int x = std::clamp(int(u), 0, texture.cols - 1), y = std::clamp(int(v), 0, texture.rows - 1);
    const cv::Vec3b c = texture.at<cv::Vec3b>(y, x);
    return {float(c[0]), float(c[1]), float(c[2])};
}

// Print over a footprint: a texture of the footprint's size (kTextureScale per infrared pixel) in
// the object's colour with text and marks drawn on it.
cv::Mat printOn(const SceneObject& o) {
    const cv::Size size(std::max(1, int(o.rect.width * kTextureScale)),
                        std::max(1, int(o.rect.height * kTextureScale)));
    return cv::Mat(size, CV_8UC3, cv::Scalar(o.colour[0], o.colour[1], o.colour[2]));
}

} // namespace

cv::Matx33d Rig::rotation() const {
    return physics::rotationXyz(rotationDeg);
}

float SceneObject::coverage(float x, float y) const {
    if (shape == Shape::Disc) {
        const float cx = rect.x + rect.width / 2, cy = rect.y + rect.height / 2;
        return coverageOf(std::hypot(x - cx, y - cy) - radius);
    }
    const float cx = rect.x + rect.width / 2, cy = rect.y + rect.height / 2;
    const float qx = std::abs(x - cx) - (rect.width / 2 - radius),
                qy = std::abs(y - cy) - (rect.height / 2 - radius);
    const float outside = std::hypot(std::max(qx, 0.0f), std::max(qy, 0.0f));
    return coverageOf(outside + std::min(std::max(qx, qy), 0.0f) - radius);
}

Scene::Scene(cv::Size size, const LensModel& lens, const SceneTemperatures& t, const Rig& rig)
    : m_size(size), m_lens(lens), m_t(t), m_rig(rig) {
    build();
}

cv::Point2d Scene::project(const cv::Point3d& p) const {
    return {m_lens.fx * p.x / p.z + m_lens.cx, m_lens.fy * p.y / p.z + m_lens.cy};
}

SceneObject Scene::footprint(const std::string& name, cv::Point2f centre, float widthM, float heightM,
                             float distance) const {
    SceneObject o;
    o.name = name;
    o.distance = distance;
    const float w = float(m_lens.fx) * widthM / distance, h = float(m_lens.fy) * heightM / distance;
    o.rect = cv::Rect2f(centre.x - w / 2, centre.y - h / 2, w, h);
    o.radius = 1.0f;
    return o;
}

void Scene::build() {
    const float w = float(m_size.width), h = float(m_size.height), s = w / 640.0f;
    auto text = [](cv::Mat& tex, const std::string& t, cv::Point at, double scale, cv::Scalar colour,
                   int thick) {
        cv::putText(tex, t, at, cv::FONT_HERSHEY_SIMPLEX, scale, colour, thick, cv::LINE_AA);
    };

    // Three heated plates, each with a reference label of emissivity 0.95 on its left part.
    struct P {
        const char* name;
        cv::Point2f centre;
        float distance, celsius, emissivity;
        cv::Vec3f colour;
    };
    const P plates[] = {{"plate e=0.95", {276 * s, 426 * s}, 1.5f, 55.0f, 0.95f, {45, 45, 48}},
                        {"plate e=0.60", {387 * s, 431 * s}, 2.0f, 65.0f, 0.60f, {125, 105, 90}},
                        {"plate e=0.30", {474 * s, 432 * s}, 2.5f, 80.0f, 0.30f, {185, 188, 192}}};
    for (const auto& p : plates) {
        SceneObject plate = footprint(p.name, p.centre, 0.30f, 0.22f, p.distance);
        plate.celsius = p.celsius;
        plate.emissivity = p.emissivity;
        plate.colour = p.colour;
        const float offset = float(m_lens.fx) * 0.075f / p.distance;
        SceneObject label = footprint(std::string("label on ") + p.name, {p.centre.x - offset, p.centre.y},
                                      kLabelSize, kLabelSize, p.distance - 0.001f);
        label.celsius = p.celsius; // stuck on the plate, at its temperature
        label.emissivity = 0.95f;
        label.colour = {230, 25, 160};
        m_plates.push_back({p.name, plate.rect, label.rect, p.celsius, p.emissivity, p.distance});
        m_static.push_back(label);
        m_static.push_back(plate);
    }

    SceneObject warm;
    warm.name = "warm object";
    warm.rect = cv::Rect2f(0.14f * w, 0.45f * h, 0.19f * w, 0.36f * h);
    warm.radius = 12.0f;
    warm.distance = 3.0f;
    warm.celsius = m_t.warmC;
    warm.colour = {150, 110, 70};
    warm.texture = printOn(warm);
    text(warm.texture, "FRAGILE", cv::Point(int(14 * s), int(60 * s)), 0.9 * s, cv::Scalar(250, 250, 250), 2);
    text(warm.texture, "THIS SIDE UP", cv::Point(int(14 * s), int(100 * s)), 0.6 * s,
         cv::Scalar(250, 250, 250), 1);
    cv::rectangle(warm.texture, cv::Rect(int(10 * s), int(120 * s), int(200 * s), int(60 * s)),
                  cv::Scalar(30, 30, 30), 3);
    m_static.push_back(warm);

    SceneObject cold;
    cold.name = "cold object";
    cold.shape = Shape::Disc;
    cold.radius = kColdRadius;
    cold.rect =
        cv::Rect2f(0.80f * w - kColdRadius, 0.74f * h - kColdRadius, 2 * kColdRadius, 2 * kColdRadius);
    cold.distance = 3.5f;
    cold.celsius = m_t.coldC;
    cold.colour = {90, 120, 160};
    m_static.push_back(cold);

    // A flat surface at `distance` with print in its colour, facing the cameras.
    auto printed = [&](const char* name, cv::Point2f centre, float widthM, float heightM, float distance,
                       float celsius, float emissivity, cv::Vec3f colour) {
        SceneObject o = footprint(name, centre, widthM, heightM, distance);
        o.celsius = celsius;
        o.emissivity = emissivity;
        o.colour = colour;
        o.texture = printOn(o);
        return o;
    };
    // A cabinet of painted steel (emissivity 0.6), warm inside, upper left: 40 % of what leaves it is
    // the surroundings it reflects, so its reading depends on the reflected temperature.
    SceneObject panel =
        printed(kPanelName, {75 * s, 135 * s}, 0.36f, 0.42f, 2.0f, 45.0f, 0.60f, {88, 112, 98});
    text(panel.texture, "CONTROL", cv::Point(int(12 * s), int(34 * s)), 0.7 * s, cv::Scalar(235, 235, 225),
         2);
    cv::rectangle(panel.texture, cv::Rect(int(12 * s), int(60 * s), int(24 * s), int(80 * s)),
                  cv::Scalar(60, 70, 66), 2);
    m_static.push_back(panel);

    // The thermographer's reflector, upper right: crumpled aluminium foil on a card at room temperature.
    // Emissivity 0.05 and diffuse (the crumples scatter what falls on them), it shows the
    // surroundings in all directions mixed, whose mean is the reflected temperature.
    SceneObject foil =
        printed(kReflectorName, {585 * s, 150 * s}, 0.20f, 0.24f, 2.0f, 21.0f, 0.05f, {188, 190, 194});
    cv::RNG crumples(7);
    for (int i = 0; i < 160; ++i) { // facets turned every way: bright, dull, dark
        const cv::Point c(crumples.uniform(0, foil.texture.cols), crumples.uniform(0, foil.texture.rows));
        const int r = int(crumples.uniform(3.0, 9.0) * s) + 1;
        const std::vector<cv::Point> facet{
            c + cv::Point(crumples.uniform(-r, r), -r), c + cv::Point(r, crumples.uniform(-r, r)),
            c + cv::Point(crumples.uniform(-r, r), r), c + cv::Point(-r, crumples.uniform(-r, r))};
        const int shade = crumples.uniform(120, 250);
        cv::fillConvexPoly(foil.texture, facet, cv::Scalar(shade, shade + 2, shade + 5), cv::LINE_AA);
    }
    m_static.push_back(foil);
    std::stable_sort(m_static.begin(), m_static.end(),
                     [](const SceneObject& a, const SceneObject& b) { return a.distance < b.distance; });

    // The wall: beige, with a sign, a chequered poster (edges), a skirting line and a white-on-blue
    // sign near the laser's line (white print is not a laser spot).
    m_wallTexture = cv::Mat(m_size * kTextureScale, CV_8UC3, cv::Scalar(196, 190, 176));
    const double k = kTextureScale * s;
    text(m_wallTexture, "HALL B", cv::Point(int(30 * k), int(70 * k)), 1.6 * k, cv::Scalar(60, 60, 70),
         int(3 * k));
    for (int i = 0; i < 6; ++i)
        for (int j = 0; j < 4; ++j)
            if ((i + j) % 2 == 0)
                cv::rectangle(
                    m_wallTexture,
                    cv::Rect(int((470 + 20 * i) * k), int((30 + 20 * j) * k), int(20 * k), int(20 * k)),
                    cv::Scalar(20, 20, 20), -1);
    cv::rectangle(m_wallTexture, cv::Rect(int(350 * k), int(262 * k), int(90 * k), int(30 * k)),
                  cv::Scalar(30, 60, 150), -1);
    text(m_wallTexture, "AREA 3", cv::Point(int(356 * k), int(284 * k)), 0.7 * k, cv::Scalar(255, 255, 255),
         int(2 * k));
    cv::rectangle(m_wallTexture, cv::Rect(int(20 * k), int(200 * k), int(90 * k), int(34 * k)),
                  cv::Scalar(20, 140, 60), -1);
    text(m_wallTexture, "EXIT", cv::Point(int(34 * k), int(226 * k)), 0.8 * k, cv::Scalar(255, 255, 255),
         int(2 * k));
    cv::line(m_wallTexture, cv::Point(0, int(372 * k)), cv::Point(m_wallTexture.cols, int(372 * k)),
             cv::Scalar(90, 80, 70), int(3 * k));
}

const SceneObject& Scene::staticObject(const std::string& name) const {
    for (const auto& o : m_static)
        if (o.name == name)
            return o;
    NORDA_THROW("the hall has no object named \"" + name + "\"", "nordacam::sim::Scene::staticObject");
}

cv::Vec3f Scene::wallColour(float x, float y) const {
    return sample(m_wallTexture, x * kTextureScale, y * kTextureScale);
}

cv::Vec3f Scene::colourOf(const SceneObject& o, float x, float y) {
    if (o.texture.empty())
        return o.colour;
    return sample(o.texture, (x - o.rect.x) * kTextureScale, (y - o.rect.y) * kTextureScale);
}

float Scene::wallC(float y) const {
    return m_t.backgroundC + 1.0f * (0.5f - y / float(m_size.height)); // a little warmer towards the ceiling
}

cv::Point2f Scene::hotCentre(double timeS) const {
    // The hot object travels an ellipse around the upper middle once every 12 s.
    const double a = 2.0 * kPi * timeS / 12.0;
    const float w = float(m_size.width), h = float(m_size.height);
    return {0.55f * w + 0.25f * w * float(std::cos(a)), 0.32f * h + 0.10f * h * float(std::sin(a))};
}

SceneObject Scene::hotObject(double timeS) const {
    SceneObject hot;
    hot.name = "hot object";
    hot.shape = Shape::Disc;
    hot.radius = kHotRadius;
    const cv::Point2f c = hotCentre(timeS);
    hot.rect = cv::Rect2f(c.x - kHotRadius, c.y - kHotRadius, 2 * kHotRadius, 2 * kHotRadius);
    hot.distance = 2.5f;
    hot.celsius = m_t.hotC;
    hot.colour = {170, 30, 25}; // painted red: red, but no laser spot
    return hot;
}

std::optional<SceneObject> Scene::board(double timeS) const {
    // A sheet of cardboard held on the laser's line at 0.5 ... 7.5 m, then taken away (the laser
    // then hits the wall at 10 m). At room temperature it is invisible to the infrared camera.
    static const float distances[] = {0.5f, 0.75f, 1.0f, 1.5f, 2.0f, 3.0f, 5.0f, 7.5f};
    constexpr int steps = int(std::size(distances)) + 1;
    const int step = int(std::floor(timeS / kBoardStepS)) % steps;
    if (step >= int(std::size(distances)))
        return std::nullopt;
    const float d = distances[step];
    const cv::Vec3d dir = m_rig.laserDirection / cv::norm(m_rig.laserDirection);
    const cv::Vec3d p = m_rig.laserOrigin + (d - m_rig.laserOrigin[2]) / dir[2] * dir;
    const cv::Point2d c = project({p[0], p[1], p[2]});
    SceneObject b = footprint("board", cv::Point2f(float(c.x), float(c.y)), 0.10f, 0.10f, d);
    b.infrared = false;
    b.colour = {215, 212, 205};
    return b;
}

std::vector<SceneObject> Scene::objects(double timeS) const {
    std::vector<SceneObject> all = m_static;
    all.push_back(hotObject(timeS));
    if (auto b = board(timeS))
        all.push_back(*b);
    std::stable_sort(all.begin(), all.end(),
                     [](const SceneObject& a, const SceneObject& b) { return a.distance < b.distance; });
    return all;
}

float Scene::temperatureAt(float x, float y, double timeS) const {
    const auto all = objects(timeS);
    float t = wallC(y);
    for (auto it = all.rbegin(); it != all.rend(); ++it)
        if (it->infrared)
            t += (it->celsius - t) * it->coverage(x, y);
    return t;
}

LaserTruth Scene::laser(double timeS) const {
    const cv::Vec3d dir = m_rig.laserDirection / cv::norm(m_rig.laserDirection);
    for (const auto& o : objects(timeS)) {
        const cv::Vec3d p = m_rig.laserOrigin + (o.distance - m_rig.laserOrigin[2]) / dir[2] * dir;
        const cv::Point2d ir = project({p[0], p[1], p[2]});
        if (o.coverage(float(ir.x), float(ir.y)) >= 0.5f)
            return {{p[0], p[1], p[2]}, p[2], ir, o.name};
    }
    const cv::Vec3d p = m_rig.laserOrigin + (kWallDistance - m_rig.laserOrigin[2]) / dir[2] * dir;
    return {{p[0], p[1], p[2]}, p[2], project({p[0], p[1], p[2]}), "wall"};
}

} // namespace nordacam::sim
