#include "apps/nordacam/sim/SceneSimulator.h"

#include "nordalib/core/datatypes/Quantity.h"
#include "nordalib/core/exception/Exception.h"
#include "nordalib/core/keys/KeySchema.h"
#include "nordalib/core/keys/Keys.h"

#include <algorithm>
#include <chrono>
#include <cmath>

namespace nordacam::sim {

using namespace norda::exp;
using Temp = quantity::Temperature<MarkedFloat>;
using Rel = quantity::Relation<MarkedFloat>;

namespace {

constexpr float kDarkLevel = 4000.0f;
constexpr int kStuckValue = 16383;

Temp celsius(float t) {
    return Temp(MarkedFloat(t));
}

} // namespace

SceneSimulator::SceneSimulator(DataProxy<std::string>& store, SimulatorConfig config,
                               std::shared_ptr<const SensorResponse> response)
    : m_store(store), m_config(std::move(config)),
      m_scene(cv::Size(m_config.width, m_config.height), m_config.lens, m_config.temperatures(),
              m_config.rig),
      m_response(std::move(response)), m_rng(m_config.seed) {
    if (!m_response)
        NORDA_THROW("a sensor response is mandatory", "nordacam::sim::SceneSimulator::SceneSimulator");
    if (m_config.width < 64 || m_config.height < 48 || m_config.fps <= 0.0 || m_config.shutterPeriodS <= 0.0)
        NORDA_THROW("invalid simulator configuration", "nordacam::sim::SceneSimulator::SceneSimulator");
    m_range = store.getValue<unsigned char>(Id::ActiveMeasRange::Name);
    m_requestedRange = m_range.load();
    m_boardAtShutterC = boardTemperature(m_config.uptimeStartMs / 1000.0);
    m_shutterC = m_boardAtShutterC - 2.5f;
    buildPatterns();
    buildUndistortMap();
}

void SceneSimulator::buildPatterns() {
    const int w = m_config.width, h = m_config.height;
    cv::RNG rng(m_config.seed * 7919u + 1);
    m_pedestal.create(h, w);
    m_gain.create(h, w);
    m_columnDrift.create(1, w);
    std::vector<float> columnOffset(w);
    for (int c = 0; c < w; ++c) {
        columnOffset[c] = static_cast<float>(rng.gaussian(25.0));
        m_columnDrift(0, c) = static_cast<float>(rng.gaussian(0.5)); // counts per kelvin of board drift
    }
    for (int r = 0; r < h; ++r)
        for (int c = 0; c < w; ++c) {
            const float dx = (c - w / 2.0f) / w, dy = (r - h / 2.0f) / h;
            // A smooth dark-level bowl, column stripes and a pixel-to-pixel spread.
            m_pedestal(r, c) = kDarkLevel + 300.0f * (dx * dx + dy * dy) + columnOffset[c] +
                               static_cast<float>(rng.gaussian(30.0));
            m_gain(r, c) = 1.0f + static_cast<float>(rng.gaussian(0.001));
        }
    auto pick = [&](int n, std::vector<cv::Point>& out) {
        while (static_cast<int>(out.size()) < n) {
            // Two statements: the order of a call's arguments differs between processors (x86
            // compilers happen to take the last first), and the shipped calibration file must
            // name the same pixels on every one.
            const int y = rng.uniform(2, h - 2);
            const cv::Point p(rng.uniform(2, w - 2), y);
            if (std::find(m_dead.begin(), m_dead.end(), p) == m_dead.end() &&
                std::find(m_stuck.begin(), m_stuck.end(), p) == m_stuck.end())
                out.push_back(p);
        }
    };
    pick(m_config.deadPixels, m_dead);
    pick(m_config.stuckPixels, m_stuck);
    m_noiseBank.resize(static_cast<size_t>(w) * h * 4);
    cv::Mat_<float> bank(1, static_cast<int>(m_noiseBank.size()), m_noiseBank.data());
    rng.fill(bank, cv::RNG::NORMAL, 0.0, m_config.noiseCounts);
}

void SceneSimulator::buildUndistortMap() {
    // For every sensor pixel (distorted), the undistorted position it looks at: the inverse of
    // the lens model, found by fixed-point iteration.
    const auto& L = m_config.lens;
    m_scenePos.create(m_config.height, m_config.width);
    for (int v = 0; v < m_config.height; ++v)
        for (int u = 0; u < m_config.width; ++u) {
            const double xd = (u - L.cx) / L.fx, yd = (v - L.cy) / L.fy;
            double x = xd, y = yd;
            for (int i = 0; i < 20; ++i) {
                const double r2 = x * x + y * y;
                const double radial = 1 + L.k1 * r2 + L.k2 * r2 * r2 + L.k3 * r2 * r2 * r2;
                const double dx = 2 * L.p1 * x * y + L.p2 * (r2 + 2 * x * x);
                const double dy = L.p1 * (r2 + 2 * y * y) + 2 * L.p2 * x * y;
                x = (xd - dx) / radial;
                y = (yd - dy) / radial;
            }
            m_scenePos(v, u) =
                cv::Vec2f(static_cast<float>(x * L.fx + L.cx), static_cast<float>(y * L.fy + L.cy));
        }
}

float SceneSimulator::staticCountsAt(float x, float y) const {
    const auto& objects = m_scene.staticObjects();
    float counts = countsOf(m_scene.wallC(y), Scene::kWallEmissivity);
    for (auto it = objects.rbegin(); it != objects.rend(); ++it)
        if (it->infrared)
            if (const float c = it->coverage(x, y); c > 0.0f)
                counts += c * (countsOf(it->celsius, it->emissivity) - counts);
    return counts;
}

float SceneSimulator::sceneTemperature(float x, float y) const {
    double timeS;
    {
        std::lock_guard<std::mutex> lock(m_truthMutex);
        timeS = m_truth.timeS;
    }
    return m_scene.temperatureAt(x, y, timeS);
}

float SceneSimulator::boardTemperature(double uptimeS) const {
    // The board settles 18 K above ambient with a time constant of 90 s.
    return m_config.ambientC + 8.0f + 10.0f * static_cast<float>(1.0 - std::exp(-uptimeS / 90.0));
}

void SceneSimulator::buildLut(const Conditions& c) {
    // The table is a black body's; a surface of emissivity e gives e of it plus (1 - e) of the
    // room's, since the counts are affine in the radiance reaching the lens (RadiometricTools).
    Conditions black = c;
    black.emissivity = 1.0f;
    black.reflectedC = Scene::kReflectedC;
    const size_t n = static_cast<size_t>((kLutMaxC - kLutMinC) / kLutStep) + 2;
    m_lut.resize(n);
    for (size_t i = 0; i < n; ++i)
        m_lut[i] = m_response->sceneCounts(kLutMinC + static_cast<float>(i) * kLutStep, black);
    m_lutConditions = c;
    m_lutValid = true;
    m_reflectedCounts = countsOf(Scene::kReflectedC);
    m_staticCounts.create(m_config.height, m_config.width);
    for (int r = 0; r < m_config.height; ++r)
        for (int col = 0; col < m_config.width; ++col)
            m_staticCounts(r, col) = staticCountsAt(m_scenePos(r, col)[0], m_scenePos(r, col)[1]);
}

cv::Point2f SceneSimulator::distort(cv::Point2f p) const {
    const auto& L = m_config.lens;
    const double x = (p.x - L.cx) / L.fx, y = (p.y - L.cy) / L.fy;
    const double r2 = x * x + y * y;
    const double radial = 1 + L.k1 * r2 + L.k2 * r2 * r2 + L.k3 * r2 * r2 * r2;
    const double xd = x * radial + 2 * L.p1 * x * y + L.p2 * (r2 + 2 * x * x);
    const double yd = y * radial + L.p1 * (r2 + 2 * y * y) + 2 * L.p2 * x * y;
    return {static_cast<float>(xd * L.fx + L.cx), static_cast<float>(yd * L.fy + L.cy)};
}

cv::Rect SceneSimulator::sensorBox(const cv::Rect2f& r) const {
    // Corners and edge midpoints bound the image of a small box under a smooth lens model.
    float x0 = 1e9f, y0 = 1e9f, x1 = -1e9f, y1 = -1e9f;
    for (float fx : {0.0f, 0.5f, 1.0f})
        for (float fy : {0.0f, 0.5f, 1.0f}) {
            const auto d = distort({r.x + fx * r.width, r.y + fy * r.height});
            x0 = std::min(x0, d.x), y0 = std::min(y0, d.y), x1 = std::max(x1, d.x), y1 = std::max(y1, d.y);
        }
    const cv::Rect box(static_cast<int>(std::floor(x0)) - 4, static_cast<int>(std::floor(y0)) - 4,
                       static_cast<int>(x1 - x0) + 10, static_cast<int>(y1 - y0) + 10);
    return box & cv::Rect(0, 0, m_config.width, m_config.height);
}

float SceneSimulator::countsOf(float t, float e) const {
    const float pos = (std::clamp(t, kLutMinC, kLutMaxC) - kLutMinC) / kLutStep;
    const size_t i = std::min(static_cast<size_t>(pos), m_lut.size() - 2);
    const float f = pos - static_cast<float>(i);
    const float black = m_lut[i] + f * (m_lut[i + 1] - m_lut[i]);
    return e == 1.0f ? black : e * black + (1.0f - e) * m_reflectedCounts;
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
    const float boardC = boardTemperature(uptimeS);
    const float slope = static_cast<float>(10.0 / 90.0 * std::exp(-uptimeS / 90.0) * 60.0); // K per minute
    const float lensC = m_config.ambientC + 0.4f * (boardC - m_config.ambientC);
    const float shutterNowC = boardC - 2.5f;

    advanceShutter(timeS);
    const bool closed = m_shutter != Shutter::Idle;
    if (m_shutter == Shutter::Capture && m_shutterFrames == 0) {
        m_shutterC = shutterNowC;
        m_boardAtShutterC = boardC;
    }
    if (m_shutter == Shutter::Capture)
        ++m_shutterFrames;

    // The scene's surfaces have their own emissivities and reflect the room; the user's settings
    // only change what the chain computes from the counts.
    Conditions c;
    c.range = m_range.load();
    c.shutterC = m_shutterC;
    c.boardAtShutterC = m_boardAtShutterC;
    c.lensIndex = m_store.getValue<unsigned char>(Id::ActiveLens::Index);
    c.glass = m_store.getValue<bool>(Id::ProtectiveGlass::Attached);
    c.glassTransmission = m_store.getValue<float>(Id::ProtectiveGlass::Transmission);
    c.glassEmissivity = m_store.getValue<float>(Id::ProtectiveGlass::Emissivity);
    // The table holds what depends on the object temperature; the lens warms slowly, so it is
    // rebuilt every 0.05 K of lens temperature, not every frame.
    c.lensC = std::round(lensC * 20.0f) / 20.0f;
    c.boardC = c.boardAtShutterC;
    c.boardSlope = 0.0f;
    if (!m_lutValid || !(c == m_lutConditions))
        buildLut(c);
    Conditions now = c;
    now.boardC = boardC;
    now.boardSlope = slope;
    now.shutterC = closed ? shutterNowC : m_shutterC;
    const float drift = m_response->driftCounts(now);
    const float shutterCounts = m_response->shutterCounts(now);

    // Render: the static scene's counts, the moving object drawn into its box, through the
    // detector's dark level, gain spread, drifting column stripes and temporal noise.
    const SceneObject hot = m_scene.hotObject(timeS);
    const float hotCounts = countsOf(hot.celsius, hot.emissivity);
    const int w = m_config.width, h = m_config.height;
    cv::Rect hotBox =
        sensorBox(cv::Rect2f(hot.rect.x - 2, hot.rect.y - 2, hot.rect.width + 4, hot.rect.height + 4));
    const size_t pixels = static_cast<size_t>(w) * h;
    const size_t start = static_cast<size_t>(m_rng.uniform(0, static_cast<int>(m_noiseBank.size() - pixels)));
    const float* noise = m_noiseBank.data() + start;
    // Column amplifiers drift with the board: stripes no calibration removes.
    const float stripeDrift = boardC - m_boardAtShutterC;
    cv::Mat_<uint16_t> raw(h, w);
    for (int r = 0; r < h; ++r) {
        const float* stat = m_staticCounts[r];
        const float* ped = m_pedestal[r];
        const float* gain = m_gain[r];
        const float* column = m_columnDrift[0];
        const float* nz = noise + static_cast<size_t>(r) * w;
        uint16_t* out = raw[r];
        const bool hotRow = r >= hotBox.y && r < hotBox.y + hotBox.height;
        for (int col = 0; col < w; ++col) {
            float signal = shutterCounts;
            if (!closed) {
                signal = stat[col];
                if (hotRow && col >= hotBox.x && col < hotBox.x + hotBox.width) {
                    const cv::Vec2f& pos = m_scenePos(r, col);
                    const float cover = hot.coverage(pos[0], pos[1]);
                    if (cover > 0.0f)
                        signal += cover * (hotCounts - signal);
                }
                signal += drift;
            }
            const float v = ped[col] + gain[col] * signal + column[col] * stripeDrift + nz[col];
            out[col] = cv::saturate_cast<uint16_t>(v);
        }
    }
    for (const auto& p : m_dead)
        raw(p) = cv::saturate_cast<uint16_t>(m_pedestal(p));
    for (const auto& p : m_stuck)
        raw(p) = kStuckValue;

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
    meta.setValue(Id::Temperatures::Current::TBoardSens50, celsius(boardC));
    meta.setValue(Id::Temperatures::Current::TBoardSlope, slope);
    meta.setValue(Id::Temperatures::Current::TLens, celsius(lensC));
    meta.setValue(Id::Temperatures::Shuttering::TBoardSens50, celsius(m_boardAtShutterC));
    meta.setValue(Id::Temperatures::Shuttering::TShutter, celsius(m_shutterC));
    meta.setValue<unsigned long long>(Id::DeviceInfo::Uptime,
                                      static_cast<unsigned long long>(uptimeS * 1000.0));
    meta.setValue<unsigned char>(Id::ActiveMeasRange::Name, c.range);
    meta.setValue<unsigned long long>("FrameCnt", n);
    // The rest of what a camera stamps into its raw frames comes from its settings.
    for (const auto& keySpec : keySchema())
        if (keySpec.rawFrame && !meta.contains(keySpec.name))
            meta.set(keySpec.name, m_store.get(keySpec.name));

    // Keep the store's device state current for the user interface and the other elements.
    m_store.setValue(Id::Temperatures::Current::TBoardSens50, celsius(boardC), false);
    m_store.setValue(Id::Temperatures::Current::TBoardSlope, slope, false);
    m_store.setValue(Id::Temperatures::Current::TLens, celsius(lensC), false);
    m_store.setValue(Id::Temperatures::Shuttering::TBoardSens50, celsius(m_boardAtShutterC), false);
    m_store.setValue(Id::Temperatures::Shuttering::TShutter, celsius(m_shutterC), false);
    m_store.setValue<unsigned long long>(Id::DeviceInfo::Uptime,
                                         static_cast<unsigned long long>(uptimeS * 1000.0), false);

    SceneTruth truth;
    truth.frame = n;
    truth.timeS = timeS;
    truth.backgroundC = m_config.backgroundC;
    truth.warmC = m_config.warmC;
    truth.hotC = m_config.hotC;
    truth.coldC = m_config.coldC;
    truth.centreC = m_scene.temperatureAt(w / 2.0f, h / 2.0f, timeS);
    truth.hotCentre = m_scene.hotCentre(timeS);
    truth.hotRadius = Scene::kHotRadius;
    const float fw = static_cast<float>(w), fh = static_cast<float>(h);
    truth.warmRect = cv::Rect2f(0.14f * fw, 0.45f * fh, 0.19f * fw, 0.36f * fh);
    truth.warmCentre = (truth.warmRect.tl() + truth.warmRect.br()) * 0.5f;
    truth.coldCentre = cv::Point2f(0.80f * fw, 0.74f * fh);
    truth.coldRadius = Scene::kColdRadius;
    truth.plates = m_scene.plates();
    truth.laser = m_scene.laser(timeS);
    truth.range = c.range;
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
