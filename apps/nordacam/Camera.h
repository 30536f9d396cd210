#pragma once
// Camera: the host of the live chain, the way a camera application wires the library.
//
// It owns the parameter store (factory defaults, then the settings file, then --set options),
// the command registry with the host's own commands, the measurement-range follower, the frame
// source (the scene simulator behind a capture element, or a recording played by the file
// reader) and the pipeline:
//
//   source -> recorder (raw) -> coordinate value (raw) -> offset -> bad pixels -> TNR -> SPR -> SNR
//   -> radiometry -> distortion -> saved image (gallery) -> min/max -> user points and areas
//   -> display settings into the frame -> palette
//   -> stream senders (display image, radiometric frame) -> image writer
//
// With the simulator a visual camera runs beside it (docs/visual-camera.md): its live frames
// (slot 6) and full-resolution stills (slot 7) come from two capture elements, the image buffer
// delays the live frames to the infrared frames' moment, the image writer saves them with every
// image (XGA stills, or QSXGA with highResolutionStills).
//
// At the end of every cycle the host keeps a copy of the newest radiometric frame and display
// image with their measurement metadata, for the status line, the summary and the HTTP server.

#include "apps/nordacam/FrameHub.h"
#include "apps/nordacam/HostCommands.h"
#include "apps/nordacam/MeasRangeFollower.h"
#include "apps/nordacam/Overlay.h"
#include "apps/nordacam/Settings.h"
#include "apps/nordacam/sim/SceneSimulator.h"
#include "apps/nordacam/sim/VisualCamera.h"

#include "nordalib/core/cmd/CommandProxy.h"
#include "nordalib/core/dataproxy/DataProxy.h"
#include "nordalib/vision/streaming/Pipeline.h"

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace nordacam {

// Raised for what the camera cannot give now or in this set-up (no frame yet, streams not wired).
class NotAvailable : public std::runtime_error {
public:
    explicit NotAvailable(const std::string& what) : std::runtime_error(what + " is not available") {}
};

struct CameraOptions {
    std::string calibrationDir; // ends with '/'
    std::string outputDir;      // saved images and recordings
    std::string inputFile;      // a raw recording to play; empty: the simulator
    // Raw frames with their recorded metadata, one a cycle, unpaced (an analysis reading a
    // recording as fast as the chain goes); set, it replaces the simulator and the input file.
    std::function<std::unique_ptr<norda::exp::Frame>()> frameSource;
    std::string settingsFile;             // read at start (when it exists) and written by SaveUserSettings
    std::vector<std::string> assignments; // --set KEY=VALUE
    sim::SimulatorConfig sim;
    bool realTime = true;              // pace the simulator at its frame rate
    bool streams = false;              // wire the stream senders for the HTTP server
    bool visual = true;                // the simulated visual camera beside the simulated detector
    bool highResolutionStills = false; // saved images hold 2592 x 1944 visual stills (else 1024 x 768)
    sim::VisualConfig visualSim;
};

// Callable names of the host's elements.
inline const std::string kRecorderName = "RawRecorder";
inline const std::string kMjpegStreamName = "DisplayStream";
inline const std::string kPxmStreamName = "RadiometricStream";
inline const std::string kImageWriteCallable = "ImageWrite";

// The calibration directory of the source tree or of the installation.
std::string defaultCalibrationDir();

class Camera {
public:
    struct Stage {
        std::string type;    // the element's class
        std::string element; // its name in the pipeline
        std::string role;
    };
    // What the host kept of the newest cycle.
    struct Snapshot {
        uint64_t cycle = 0;
        unsigned long long frame = 0; // the frame counter of the radiometric frame
        cv::Mat rad;                  // CV_16UC1, empty until the chain delivered one
        cv::Mat rgb;                  // CV_8UC3 (R, G, B)
        norda::exp::DataStorage<std::string> meta;
        std::optional<sim::SceneTruth> truth; // the scene at the time of that frame
        double fps = 0.0;
        cv::Mat visual; // CV_8UC2 UYVY: the visual frame of that cycle (after the image buffer)
        // The visual camera's results of that cycle.
        bool laserVisible = false;
        cv::Point laser;           // the infrared pixel under the spot
        cv::Point2d laserPosition; // the spot's infrared position, sub-pixel
        float laserDistance = 0;
        std::string markerStatus;
        float markerEmissivity = 0;
        cv::Rect markerRect; // the label measured, infrared pixels
    };

    explicit Camera(CameraOptions options);
    ~Camera();
    Camera(const Camera&) = delete;
    Camera& operator=(const Camera&) = delete;

    norda::exp::DataProxy<std::string>& store() { return m_store; }
    norda::exp::cmd::CommandProxy& commands() { return m_commands; }
    Settings& settings() { return m_settings; }
    norda::exp::streaming::Pipeline& pipeline() { return m_pipeline; }
    sim::SceneSimulator* simulator() { return m_sim.get(); }
    sim::VisualCamera* visualCamera() { return m_visual.get(); }
    const CameraOptions& options() const { return m_options; }
    const std::vector<Stage>& stages() const { return m_stages; }
    // Whether the chain holds an element of that class.
    bool has(const std::string& elementType) const;

    // Runs the chain on the pipeline thread (0: until stop()).
    void start(uint64_t cycles = 0);
    void stop();
    // One synchronous cycle (when the thread does not run).
    void runCycle();

    Snapshot snapshot() const;
    // Streams of the HTTP server (fed while a reader is attached).
    FrameHub& mjpegHub() { return m_mjpegHub; }
    FrameHub& pxmHub() { return m_pxmHub; }

    // Temperature (°C) at a pixel of the newest radiometric frame; NotAvailable before the first.
    float temperatureAt(int x, int y) const;
    // Raw detector value at a sensor pixel, through the coordinate value element.
    unsigned short rawAt(int x, int y) const;

    // Saves an image through "TriggerImageSave"; waits up to `timeout` and returns the file name.
    std::string saveImage(std::chrono::milliseconds timeout);
    // "CaptureImage": the saved image's bytes.
    std::vector<char> captureImage();
    // Starts a raw recording of `frames` frames (0: until stopRecording) into the output folder.
    void startRecording(const std::string& fileName, unsigned long long frames);
    void stopRecording();
    bool recording() const { return m_recording.load(); }
    unsigned long long recordingRemaining() const { return m_recordRemaining.load(); }

private:
    void buildChain();
    void addMeasurementChecks();
    void addStage(const std::string& type, std::unique_ptr<norda::exp::streaming::StreamingElement> element,
                  const std::string& role,
                  std::vector<norda::exp::streaming::STREAMING_DATATYPE> optional = {},
                  norda::exp::streaming::Pipeline::RunCondition condition = {});
    void addVisualSources();
    void addImageWriter();
    std::unique_ptr<norda::exp::Frame> nextVisual();
    void onCycle(const norda::exp::streaming::FrameMap& frames, uint64_t cycle);
    void sendJpeg(norda::exp::Frame& frame);
    void sendPxm(norda::exp::Frame& frame);

    CameraOptions m_options;
    norda::exp::DataProxy<std::string> m_store;
    norda::exp::cmd::CommandProxy m_commands;
    Settings m_settings;
    std::unique_ptr<HostCommands> m_hostCommands;
    std::unique_ptr<OverlayPublisher> m_overlay;
    std::unique_ptr<sim::SceneSimulator> m_sim;
    std::unique_ptr<sim::VisualCamera> m_visual;
    // The live visual stream on the pipeline thread: the last frame (repeated in place of a frame
    // the camera did not deliver, so the image buffer keeps its count) and the cycles since a
    // frame came.
    cv::Mat m_lastVisual;
    norda::exp::DataStorage<std::string> m_lastVisualMeta;
    std::atomic<int> m_cyclesWithoutVisual{1000};
    std::unique_ptr<MeasRangeFollower> m_follower;
    FrameHub m_mjpegHub;
    FrameHub m_pxmHub;
    std::vector<Stage> m_stages;
    std::atomic<bool> m_srFlag{false};
    std::atomic<bool> m_recording{false};
    std::atomic<unsigned long long> m_recordRemaining{0};
    std::function<unsigned short(unsigned short, unsigned short)> m_rawLookup;
    std::function<void(bool)> m_streamDemandMjpeg, m_streamDemandPxm;

    mutable std::mutex m_snapshotMutex;
    Snapshot m_snapshot;
    std::chrono::steady_clock::time_point m_lastCycleTime{};
    double m_fps = 0.0;

    norda::exp::streaming::Pipeline m_pipeline; // elements reference the members above
    norda::exp::Subscription m_paletteSubscription;
};

} // namespace nordacam
