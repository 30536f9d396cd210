#pragma once
// Camera: the host of the live chain, the way a camera application wires the library.
//
// It owns the parameter store (factory defaults, then the settings file, then --set options),
// the command registry with the host's own commands, the measurement-range follower, the frame
// source (the scene simulator, or a recording played by the file reader), the visual camera
// beside the simulator (docs/visual-camera.md) and the pipeline. The chain itself is put
// together by ChainBuilder (its header draws it); the end of every cycle goes to LiveSnapshot,
// and the stream elements hand their frames to StreamPublisher. Saving, capturing and recording
// go through the elements' commands.

#include "apps/nordacam/CameraOptions.h"
#include "apps/nordacam/ChainBuilder.h"
#include "apps/nordacam/FrameHub.h"
#include "apps/nordacam/HostCommands.h"
#include "apps/nordacam/LiveSnapshot.h"
#include "apps/nordacam/MeasRangeFollower.h"
#include "apps/nordacam/Overlay.h"
#include "apps/nordacam/Settings.h"
#include "apps/nordacam/StreamPublisher.h"

#include "nordalib/core/cmd/CommandProxy.h"
#include "nordalib/core/dataproxy/DataProxy.h"
#include "nordalib/vision/streaming/Pipeline.h"

#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace nordacam {

// The calibration directory of the source tree or of the installation.
std::string defaultCalibrationDir();

class Camera {
public:
    using Stage = ChainBuilder::Stage;
    using Snapshot = nordacam::Snapshot;

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
    const std::vector<Stage>& stages() const { return m_chain->stages(); }
    // Whether the chain holds an element of that class.
    bool has(const std::string& elementType) const;

    // Runs the chain on the pipeline thread (0: until stop()).
    void start(uint64_t cycles = 0);
    void stop();
    // One synchronous cycle (when the thread does not run).
    void runCycle();

    Snapshot snapshot() const;
    // Streams of the HTTP server (fed while a reader is attached).
    StreamPublisher& streams() { return m_streams; }
    FrameHub& mjpegHub() { return m_streams.displayHub(); }
    FrameHub& pxmHub() { return m_streams.radiometricHub(); }
    // Called with every cycle's frames on the pipeline thread (nullptr: none); returns after the
    // call in progress.
    void setFrameTap(std::function<void(const norda::exp::streaming::FrameMap&)> tap);

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
    bool recording() const { return m_chain->recording(); }
    unsigned long long recordingRemaining() const { return m_chain->recordingRemaining(); }

private:
    CameraOptions m_options;
    norda::exp::DataProxy<std::string> m_store;
    norda::exp::cmd::CommandProxy m_commands;
    Settings m_settings;
    std::unique_ptr<HostCommands> m_hostCommands;
    std::unique_ptr<OverlayPublisher> m_overlay;
    std::unique_ptr<sim::SceneSimulator> m_sim;
    std::unique_ptr<sim::VisualCamera> m_visual;
    std::unique_ptr<MeasRangeFollower> m_follower;
    StreamPublisher m_streams{m_commands};
    std::unique_ptr<LiveSnapshot> m_snapshot;
    std::unique_ptr<ChainBuilder> m_chain;
    std::mutex m_tapMutex;
    std::function<void(const norda::exp::streaming::FrameMap&)> m_frameTap;

    norda::exp::streaming::Pipeline m_pipeline; // elements reference the members above
    norda::exp::Subscription m_paletteSubscription;
};

} // namespace nordacam
