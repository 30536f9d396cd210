#include "apps/nordacam/sim/SceneSimulator.h"

#include "nordalib/core/datatypes/Quantity.h"
#include "nordalib/core/exception/Exception.h"
#include "nordalib/core/keys/KeySchema.h"
#include "nordalib/core/keys/Keys.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cmath>

namespace nordacam::sim {

using namespace norda::exp;
using Temp = quantity::Temperature<MarkedFloat>;

namespace {

Temp celsius(double t) {
    return Temp(MarkedFloat(static_cast<float>(t)));
}

} // namespace

physics::CameraParameters SceneSimulator::cameraParameters(const SimulatorConfig& c) {
    physics::CameraParameters p;
    p.detector.width = c.width;
    p.detector.height = c.height;
    p.detector.seed = c.seed;
    p.detector.noise = c.noiseCounts;
    p.detector.deadPixels = c.deadPixels;
    p.detector.stuckPixels = c.stuckPixels;
    p.distortion = {c.lens.fx, c.lens.fy, c.lens.cx, c.lens.cy, c.lens.k1,
                    c.lens.k2, c.lens.k3, c.lens.p1, c.lens.p2};
    p.thermal.ambientC = c.ambientC;
    return p;
}

SceneSimulator::SceneSimulator(DataProxy<std::string>& store, SimulatorConfig config)
    : m_store(store), m_config(std::move(config)),
      m_scene(cv::Size(m_config.width, m_config.height), m_config.lens, m_config.temperatures(),
              m_config.rig),
      m_camera(cameraParameters(m_config)),
      m_thermal(m_camera.parameters().thermal, m_camera.parameters().shutter) {
    if (m_config.width < 64 || m_config.height < 48 || m_config.fps <= 0.0 || m_config.shutterPeriodS <= 0.0)
        NORDA_THROW("invalid simulator configuration", "nordacam::sim::SceneSimulator::SceneSimulator");
    m_range = store.getValue<unsigned char>(Id::ActiveMeasRange::Name);
    m_requestedRange = m_range.load();
    m_thermal.switchOn(m_config.uptimeStartMs / 1000.0);
    m_atShutter = m_thermal.temperatures();
    buildStaticRadiance();
}

std::string SceneSimulator::describe() const {
    const auto& a = m_config.air;
    return fmt::format("physical camera (Planck's law over the band through {:.0f} C air at {:.0f} % "
                       "humidity, surfaces reflecting surroundings at {:.0f} C, point-spread function, "
                       "protective window when attached, lens distortion, microbolometer)",
                       a.temperatureC, a.relativeHumidity * 100.0, Scene::kReflectedC);
}

float SceneSimulator::radianceOf(const SceneObject& o) {
    return static_cast<float>(
        m_camera.surfaceRadiance(m_config.air, Scene::kReflectedC, o.distance, o.celsius, o.emissivity));
}

void SceneSimulator::drawObject(cv::Mat& ideal, const SceneObject& o) {
    const float l = radianceOf(o);
    const cv::Rect box = cv::Rect(cv::Point(static_cast<int>(std::floor(o.rect.x)) - 2,
                                            static_cast<int>(std::floor(o.rect.y)) - 2),
                                  cv::Point(static_cast<int>(std::ceil(o.rect.br().x)) + 3,
                                            static_cast<int>(std::ceil(o.rect.br().y)) + 3)) &
                         cv::Rect(0, 0, ideal.cols, ideal.rows);
    for (int y = box.y; y < box.y + box.height; ++y) {
        float* row = ideal.ptr<float>(y);
        for (int x = box.x; x < box.x + box.width; ++x)
            if (const float c = o.coverage(static_cast<float>(x), static_cast<float>(y)); c > 0.0f)
                row[x] += c * (l - row[x]);
    }
}

void SceneSimulator::buildStaticRadiance() {
    m_staticRadiance.create(m_config.height, m_config.width, CV_32F);
    for (int y = 0; y < m_config.height; ++y) {
        const float wall = static_cast<float>(
            m_camera.surfaceRadiance(m_config.air, Scene::kReflectedC, Scene::kWallDistance,
                                     m_scene.wallC(static_cast<float>(y)), Scene::kWallEmissivity));
        m_staticRadiance.row(y).setTo(wall);
    }
    const auto& objects = m_scene.staticObjects(); // nearest first: draw from the back
    for (auto it = objects.rbegin(); it != objects.rend(); ++it)
        if (it->infrared)
            drawObject(m_staticRadiance, *it);
}

float SceneSimulator::sceneTemperature(float x, float y) const {
    double timeS;
    {
        std::lock_guard<std::mutex> lock(m_truthMutex);
        timeS = m_truth.timeS;
    }
    return m_scene.temperatureAt(x, y, timeS);
}

void SceneSimulator::advanceShutter(double timeS) {
    switch (m_shutter) {
    case Shutter::Idle:
        if (timeS - m_lastShutterS >= m_config.shutterPeriodS || m_requestedRange.load() != m_range.load()) {
            m_shutter = Shutter::Closing;
            m_store.setValue(Id::Shutter::State, Id::Shutter::StateClosing, true);
        }
        break;
    case Shutter::Closing:
        // Closed now: the following frames show the shutter, taken with the gain to come.
        m_range = m_requestedRange.load();
        m_shutter = Shutter::Capture;
        m_shutterFrames = 0;
        m_lastShutterS = timeS;
        m_store.setValue(Id::Shutter::State, Id::Shutter::StateCaptureOffsetFrame, true);
        break;
    case Shutter::Capture:
        // The offset element writes "Opening" once it has its frames.
        if (m_store.getValue<std::string>(Id::Shutter::State) == Id::Shutter::StateOpening ||
            m_shutterFrames >= m_config.maxCaptureFrames) {
            m_shutter = Shutter::Opening;
            m_store.setValue(Id::Shutter::State, Id::Shutter::StateOpening, true);
        }
        break;
    case Shutter::Opening:
        m_shutter = Shutter::Idle;
        m_store.setValue(Id::Shutter::State, Id::Shutter::StateIdle, true);
        break;
    }
}

std::unique_ptr<Frame> SceneSimulator::nextFrame() {
    const auto wallStart = std::chrono::steady_clock::now();
    const unsigned long long n = m_frame.load();
    const double timeS = static_cast<double>(n) / m_config.fps;
    const double uptimeS = m_config.uptimeStartMs / 1000.0 + timeS;
    m_thermal.runTo(uptimeS);
    const physics::CameraTemperatures& now = m_thermal.temperatures();

    advanceShutter(timeS);
    const bool closed = m_shutter != Shutter::Idle;
    if (m_shutter == Shutter::Capture && m_shutterFrames == 0)
        m_atShutter = now;
    if (m_shutter == Shutter::Capture)
        ++m_shutterFrames;

    // The detector has two gains; a range beyond them reads with the lower one.
    const unsigned char range = m_range.load();
    const int gain = std::clamp(static_cast<int>(range), 1, 2);
    m_camera.setWindow(m_store.getValue<bool>(Id::ProtectiveGlass::Attached));
    cv::Mat raw;
    if (closed) {
        raw = m_camera.renderShutter(now, gain);
    } else {
        m_staticRadiance.copyTo(m_ideal);
        drawObject(m_ideal, m_scene.hotObject(timeS));
        raw = m_camera.renderRadiance(m_ideal, now, gain);
    }

    std::string state = Id::Shutter::StateIdle;
    if (m_shutter == Shutter::Closing)
        state = Id::Shutter::StateClosing;
    else if (m_shutter == Shutter::Capture)
        state = Id::Shutter::StateCaptureOffsetFrame;
    else if (m_shutter == Shutter::Opening)
        state = Id::Shutter::StateOpening;

    DataStorage<std::string> meta;
    meta.setValue(Id::Shutter::State, state);
    meta.setValue(Id::Shutter::Closed, closed);
    const float slope = static_cast<float>(now.boardSlopeKPerMin);
    meta.setValue(Id::Temperatures::Current::TBoardSens50, celsius(now.boardC));
    meta.setValue(Id::Temperatures::Current::TBoardSlope, slope);
    meta.setValue(Id::Temperatures::Current::TLens, celsius(now.lensC));
    meta.setValue(Id::Temperatures::Shuttering::TBoardSens50, celsius(m_atShutter.boardC));
    meta.setValue(Id::Temperatures::Shuttering::TShutter, celsius(m_atShutter.shutterC));
    meta.setValue<unsigned long long>(Id::DeviceInfo::Uptime,
                                      static_cast<unsigned long long>(uptimeS * 1000.0));
    meta.setValue<unsigned char>(Id::ActiveMeasRange::Name, range);
    meta.setValue<unsigned long long>("FrameCnt", n);
    // The rest of what a camera stamps into its raw frames comes from its settings.
    for (const auto& keySpec : keySchema())
        if (keySpec.rawFrame && !meta.contains(keySpec.name))
            meta.set(keySpec.name, m_store.get(keySpec.name));

    // Keep the store's device state current for the user interface and the other elements.
    m_store.setValue(Id::Temperatures::Current::TBoardSens50, celsius(now.boardC), false);
    m_store.setValue(Id::Temperatures::Current::TBoardSlope, slope, false);
    m_store.setValue(Id::Temperatures::Current::TLens, celsius(now.lensC), false);
    m_store.setValue(Id::Temperatures::Shuttering::TBoardSens50, celsius(m_atShutter.boardC), false);
    m_store.setValue(Id::Temperatures::Shuttering::TShutter, celsius(m_atShutter.shutterC), false);
    m_store.setValue<unsigned long long>(Id::DeviceInfo::Uptime,
                                         static_cast<unsigned long long>(uptimeS * 1000.0), false);

    SceneTruth truth;
    truth.frame = n;
    truth.timeS = timeS;
    truth.backgroundC = m_config.backgroundC;
    truth.warmC = m_config.warmC;
    truth.hotC = m_config.hotC;
    truth.coldC = m_config.coldC;
    truth.centreC = m_scene.temperatureAt(m_config.width / 2.0f, m_config.height / 2.0f, timeS);
    truth.hotCentre = m_scene.hotCentre(timeS);
    truth.hotRadius = Scene::kHotRadius;
    const float fw = static_cast<float>(m_config.width), fh = static_cast<float>(m_config.height);
    truth.warmRect = cv::Rect2f(0.14f * fw, 0.45f * fh, 0.19f * fw, 0.36f * fh);
    truth.warmCentre = (truth.warmRect.tl() + truth.warmRect.br()) * 0.5f;
    truth.coldCentre = cv::Point2f(0.80f * fw, 0.74f * fh);
    truth.coldRadius = Scene::kColdRadius;
    truth.plates = m_scene.plates();
    truth.laser = m_scene.laser(timeS);
    truth.range = range;
    truth.shutterState = state;
    {
        std::lock_guard<std::mutex> lock(m_truthMutex);
        m_truth = truth;
    }
    m_frame = n + 1;

    const float captureMs =
        std::chrono::duration<float, std::milli>(std::chrono::steady_clock::now() - wallStart).count();
    meta.setValue(Id::Viscam::CaptureTime, captureMs);
    return std::make_unique<Frame>(raw, std::move(meta));
}

SceneTruth SceneSimulator::truth() const {
    std::lock_guard<std::mutex> lock(m_truthMutex);
    return m_truth;
}

} // namespace nordacam::sim
