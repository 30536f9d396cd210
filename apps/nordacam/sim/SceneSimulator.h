#pragma once
// A simulated 640 x 480 microbolometer camera: the detector behind a capture element.
//
// Each call of nextFrame() renders the next raw frame (CV_16UC1) of a scene of known
// temperatures, distances and emissivities (see Scene) as the sensor sees it through a lens with barrel
// distortion, converts temperatures into counts with the SensorResponse, and adds what a real detector adds:
// a per-pixel dark level and gain pattern, column stripes that drift with the board temperature, temporal
// noise, a few dead and stuck pixels and a global drift while the camera warms up.
//
// It also runs the shutter: at start and then every `shutterPeriodS` seconds the frames show the
// closed shutter's own temperature with state "CaptureOffsetFrame" until the offset element writes
// "Opening" into the store (or `maxCaptureFrames` frames passed, when no offset element runs), then
// one frame with "Opening", then "Idle". Every frame carries the metadata the chain reads:
// shutter state and closed flag, board/shutter/lens temperatures, slope, uptime, lens, protective
// glass, environment (from the store, so user changes apply), active measurement range, frame
// counter and capture time.
//
// Time is simulated: frame n is taken at n / fps seconds, so a run is reproducible whatever the
// machine's speed. nextFrame() runs on the pipeline thread; setRange() and truth() may be called
// from any thread.

#include "apps/nordacam/sim/Scene.h"
#include "apps/nordacam/sim/SensorResponse.h"

#include "nordalib/core/dataproxy/DataProxy.h"
#include "nordalib/core/datatypes/Frame.h"

#include <opencv2/core.hpp>

#include <atomic>
#include <memory>
#include <mutex>
#include <optional>
#include <random>
#include <vector>

namespace nordacam::sim {

struct SimulatorConfig {
    int width = 640;
    int height = 480;
    double fps = 30.0;
    double shutterPeriodS = 20.0;
    int maxCaptureFrames = 6;
    unsigned long long uptimeStartMs = 110000; // the camera has been on for a while
    unsigned seed = 42;
    float ambientC = 21.0f;
    float backgroundC = 22.0f;
    float warmC = 37.0f;
    float hotC = 85.0f;
    float coldC = 4.0f;
    int deadPixels = 8;
    int stuckPixels = 4;
    float noiseCounts = 2.0f; // temporal noise, one sigma
    LensModel lens;
    Rig rig;
    // Infrared frames show the moment this many frames before they reach the host (the
    // bolometer's time constant and the readout); the visual camera's arrive at once.
    int infraredLagFrames = 3;

    SceneTemperatures temperatures() const { return {backgroundC, warmC, hotC, coldC}; }
};

// What the scene really is at the time of a frame (positions in undistorted image coordinates).
struct SceneTruth {
    unsigned long long frame = 0;
    double timeS = 0.0;
    float backgroundC = 0, warmC = 0, hotC = 0, coldC = 0, centreC = 0;
    cv::Point2f hotCentre, warmCentre, coldCentre;
    float hotRadius = 0, coldRadius = 0;
    cv::Rect2f warmRect;
    unsigned char range = 1;
    std::string shutterState;
    std::vector<Plate> plates;
    LaserTruth laser; // at the moment of the frame
};

class SceneSimulator {
public:
    SceneSimulator(norda::exp::DataProxy<std::string>& store, SimulatorConfig config,
                   std::shared_ptr<const SensorResponse> response);

    // The next raw frame with its metadata (the capture element's frame source).
    std::unique_ptr<norda::exp::Frame> nextFrame();

    // The detector switches its gain. As a camera does, it closes the shutter for a new offset at
    // once and changes the gain with the shutter closed: frames up to then carry the old range,
    // the first shutter frame and all after it the new one.
    void setRange(unsigned char range) { m_requestedRange = range; }
    unsigned char range() const { return m_range.load(); }
    SceneTruth truth() const;
    // The scene temperature at an undistorted image position at the time of the last frame.
    float sceneTemperature(float x, float y) const;
    const SimulatorConfig& config() const { return m_config; }
    const SensorResponse& response() const { return *m_response; }
    const Scene& scene() const { return m_scene; }
    // Dead and stuck pixels in sensor coordinates.
    const std::vector<cv::Point>& deadPixels() const { return m_dead; }
    const std::vector<cv::Point>& stuckPixels() const { return m_stuck; }
    unsigned long long frames() const { return m_frame.load(); }

private:
    // Counts of the static scene at an undistorted position: objects blended over the wall in
    // signal, each with its own emissivity.
    float staticCountsAt(float x, float y) const;
    float boardTemperature(double uptimeS) const;
    void buildPatterns();
    void buildUndistortMap();
    void buildLut(const Conditions& c);
    // Counts of a surface at t °C with emissivity e, reflecting the room (Scene::kReflectedC).
    float countsOf(float t, float e = 1.0f) const;
    // Sensor-space box that holds every pixel looking into the undistorted box `r`.
    cv::Rect sensorBox(const cv::Rect2f& r) const;
    cv::Point2f distort(cv::Point2f undistorted) const;
    void advanceShutter(double timeS);

    norda::exp::DataProxy<std::string>& m_store;
    SimulatorConfig m_config;
    Scene m_scene;
    std::shared_ptr<const SensorResponse> m_response;

    cv::Mat_<float> m_pedestal, m_gain, m_columnDrift;
    cv::Mat_<cv::Vec2f> m_scenePos; // undistorted scene position of every sensor pixel
    std::vector<cv::Point> m_dead, m_stuck;
    cv::RNG m_rng;

    // Temperature -> counts table of a black body and the counts of the static scene (everything
    // but the moving object), rebuilt when the conditions change.
    Conditions m_lutConditions;
    bool m_lutValid = false;
    std::vector<float> m_lut;
    float m_reflectedCounts = 0.0f;
    cv::Mat_<float> m_staticCounts;
    // Temporal noise: a bank of independent samples read from a random start each frame.
    std::vector<float> m_noiseBank;
    static constexpr float kLutMinC = -60.0f, kLutMaxC = 700.0f, kLutStep = 0.02f;

    // Shutter sequence.
    enum class Shutter { Idle, Closing, Capture, Opening };
    Shutter m_shutter = Shutter::Closing;
    int m_shutterFrames = 0;
    double m_lastShutterS = 0.0;
    float m_shutterC = 0.0f, m_boardAtShutterC = 0.0f;

    std::atomic<unsigned char> m_range{1};
    std::atomic<unsigned char> m_requestedRange{1};
    std::atomic<unsigned long long> m_frame{0};
    mutable std::mutex m_truthMutex;
    SceneTruth m_truth;
};

} // namespace nordacam::sim
