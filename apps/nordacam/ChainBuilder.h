#pragma once
// ChainBuilder: puts the live chain together, element by element, in the order they run.
//
//   source: simulated detector (capture) | recording (file reader + its recorded metadata)
//   [simulated visual camera: live frames (slot 6) and full-resolution stills (slot 7)]
//   -> raw copy -> recorder (raw) -> coordinate value (raw)
//   -> offset -> bad pixels -> TNR -> SPR -> SNR -> radiometry -> distortion
//   [-> image buffer: visual frames delayed to the infrared frames' moment]
//   -> saved image from the gallery -> [laser spot] -> min/max -> user points and areas
//   -> display settings into the frame -> [emission marker] -> (radiometric stream)
//   -> palette -> [still instead of live frame] -> image writer -> [fusion] -> (display stream)
//
// Brackets: only with the visual camera; parentheses: only with streams. It keeps what the host
// asks of the chain later: the stages, the raw value lookup and the recorder's state.

#include "apps/nordacam/CameraOptions.h"
#include "apps/nordacam/Overlay.h"
#include "apps/nordacam/StreamPublisher.h"

#include "nordalib/core/cmd/CommandProxy.h"
#include "nordalib/core/dataproxy/DataProxy.h"
#include "nordalib/vision/streaming/Pipeline.h"

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace nordacam {

// Callable names of the host's elements.
inline const std::string kRecorderName = "RawRecorder";
inline const std::string kImageWriteCallable = "ImageWrite";

class ChainBuilder {
public:
    struct Stage {
        std::string type;    // the element's class
        std::string element; // its name in the pipeline
        std::string role;
    };
    struct Parts {
        const CameraOptions& options;
        norda::exp::DataProxy<std::string>& store;
        norda::exp::cmd::CommandProxy& commands;
        sim::SceneSimulator* simulator; // null: a recording plays
        sim::VisualCamera* visual;      // null: no visual camera
        StreamPublisher* streams;       // null: no streams
        OverlayPublisher& overlay;      // draws the overlay of the frame an image is saved from
    };

    // The parts outlive the builder, the builder outlives the pipeline's elements.
    ChainBuilder(Parts parts, norda::exp::streaming::Pipeline& pipeline);
    void build();

    const std::vector<Stage>& stages() const { return m_stages; }
    // Whether the chain holds an element of that class.
    bool has(const std::string& elementType) const;
    // Raw detector value at a sensor pixel, through the coordinate value element.
    unsigned short rawAt(int x, int y) const;
    bool recording() const { return m_recording.load(); }
    unsigned long long recordingRemaining() const { return m_recordRemaining.load(); }
    // The host started a recording of `frames` frames (0: until stopped).
    void recordingStarted(unsigned long long frames);

private:
    void addStage(const std::string& type, std::unique_ptr<norda::exp::streaming::StreamingElement> element,
                  const std::string& role,
                  std::vector<norda::exp::streaming::STREAMING_DATATYPE> optional = {},
                  norda::exp::streaming::Pipeline::RunCondition condition = {});
    void addVisualSources();
    void addImageWriter();
    std::unique_ptr<norda::exp::Frame> nextVisual();

    const CameraOptions& m_options;
    OverlayPublisher& m_overlay;
    norda::exp::DataProxy<std::string>& m_store;
    norda::exp::cmd::CommandProxy& m_commands;
    sim::SceneSimulator* m_sim;
    sim::VisualCamera* m_visual;
    StreamPublisher* m_streams;
    norda::exp::streaming::Pipeline& m_pipeline;
    std::vector<Stage> m_stages;
    // The live visual stream on the pipeline thread: the last frame (repeated in place of a frame
    // the camera did not deliver, so the image buffer keeps its count) and the cycles since a
    // frame came.
    cv::Mat m_lastVisual;
    norda::exp::DataStorage<std::string> m_lastVisualMeta;
    std::atomic<int> m_cyclesWithoutVisual{1000};
    std::atomic<bool> m_srFlag{false};
    std::atomic<bool> m_recording{false};
    std::atomic<unsigned long long> m_recordRemaining{0};
    std::function<unsigned short(unsigned short, unsigned short)> m_rawLookup;
};

} // namespace nordacam
