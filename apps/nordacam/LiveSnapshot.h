#pragma once
// LiveSnapshot: what the host keeps of the newest cycle.
//
// At the end of every cycle the pipeline thread hands it the frame map; it copies the newest
// radiometric frame and display image with their measurement metadata (and, with the simulator,
// the scene's truth and the visual camera's results of that cycle), for the status line, the
// summary and the HTTP server, which read it from other threads.

#include "apps/nordacam/sim/SceneSimulator.h"

#include "nordalib/core/dataproxy/DataProxy.h"
#include "nordalib/core/datatypes/DataStorage.h"
#include "nordalib/vision/streaming/Pipeline.h"

#include <opencv2/core.hpp>

#include <chrono>
#include <cstdint>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>

namespace nordacam {

// Raised for what the camera cannot give now or in this set-up (no frame yet, streams not wired).
class NotAvailable : public std::runtime_error {
public:
    explicit NotAvailable(const std::string& what) : std::runtime_error(what + " is not available") {}
};

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

class LiveSnapshot {
public:
    // `simulator` may be null (a recording plays); `visual`: a visual camera runs beside.
    LiveSnapshot(norda::exp::DataProxy<std::string>& store, const sim::SceneSimulator* simulator, bool visual)
        : m_store(store), m_sim(simulator), m_visual(visual) {}

    // The pipeline's cycle observer.
    void onCycle(const norda::exp::streaming::FrameMap& frames, uint64_t cycle);
    Snapshot get() const;
    // Temperature (°C) at a pixel of the newest radiometric frame; NotAvailable before the first.
    float temperatureAt(int x, int y) const;

private:
    norda::exp::DataProxy<std::string>& m_store;
    const sim::SceneSimulator* m_sim;
    bool m_visual;
    mutable std::mutex m_mutex;
    Snapshot m_snapshot;
    std::chrono::steady_clock::time_point m_lastCycleTime{};
    double m_fps = 0.0;
};

} // namespace nordacam
