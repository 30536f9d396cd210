#pragma once
// The simulated 640 x 480 radiometric camera the host and the GStreamer source film with.
//
// Each call of nextFrame() renders the next raw frame (CV_16UC1) of the hall (Scene: objects of known
// temperature, distance and emissivity in front of a wall) through the physical camera
// (physics::PhysicalCamera): the in-band radiance of every surface through the air over its
// distance and the air's own emission, the point-spread function, the protective window when the
// settings say one is attached, the lens's distortion and the microbolometer with its per-pixel
// spread, drift, noise, dead and stuck pixels. The camera body warms after switching on
// (physics::CameraThermal), so the board, lens and shutter temperatures in the metadata are the
// ones the detector really had. Nothing here uses the library's radiometric model.
//
// The static scene's radiance is computed once; a frame copies it, draws the moving hot object,
// and runs blur, remap and read-out.
//
// It also runs the shutter: at start and then every `shutterPeriodS` seconds the frames show the
// closed shutter with state "CaptureOffsetFrame" until the offset element writes "Opening" into the
// store (or `maxCaptureFrames` frames passed, when no offset element runs), then one frame with
// "Opening", then "Idle". Every frame carries the metadata the chain reads: shutter state and
// closed flag, board/shutter/lens temperatures, slope, uptime, lens, protective glass, environment
// (from the store, so user changes apply), active measurement range, frame counter and capture time.
//
// Time is simulated: frame n is taken at n / fps seconds, so a run is reproducible whatever the
// machine's speed. nextFrame() runs on the pipeline thread; setRange() and truth() may be called
// from any thread.

#include "apps/nordacam/sim/Scene.h"
#include "apps/nordacam/sim/physics/PhysicalCamera.h"

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
    // The air between the camera and the hall's surfaces, and the surroundings they reflect.
    physics::AirParameters air;
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
    SceneSimulator(norda::exp::DataProxy<std::string>& store, SimulatorConfig config);

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
    // What renders the frames, in words (the demo prints it).
    std::string describe() const;
    const Scene& scene() const { return m_scene; }
    // Dead and stuck pixels in sensor coordinates.
    const std::vector<cv::Point>& deadPixels() const { return m_camera.detector().deadPixels(); }
    const std::vector<cv::Point>& stuckPixels() const { return m_camera.detector().stuckPixels(); }
    unsigned long long frames() const { return m_frame.load(); }

private:
    static physics::CameraParameters cameraParameters(const SimulatorConfig& c);
    // In-band radiance of the static scene over the ideal image: the wall and every object that
    // never moves, blended in radiance by their coverage.
    void buildStaticRadiance();
    float radianceOf(const SceneObject& o);
    void drawObject(cv::Mat& ideal, const SceneObject& o);
    void advanceShutter(double timeS);

    norda::exp::DataProxy<std::string>& m_store;
    SimulatorConfig m_config;
    Scene m_scene;
    physics::PhysicalCamera m_camera;
    physics::CameraThermal m_thermal;
    cv::Mat m_staticRadiance, m_ideal;

    // Shutter sequence.
    enum class Shutter { Idle, Closing, Capture, Opening };
    Shutter m_shutter = Shutter::Closing;
    int m_shutterFrames = 0;
    double m_lastShutterS = 0.0;
    physics::CameraTemperatures m_atShutter; // the camera when the shutter last closed

    std::atomic<unsigned char> m_range{1};
    std::atomic<unsigned char> m_requestedRange{1};
    std::atomic<unsigned long long> m_frame{0};
    mutable std::mutex m_truthMutex;
    SceneTruth m_truth;
};

} // namespace nordacam::sim
