#pragma once
// What a nordacam camera is set up with: folders, settings, the frame source and its simulator.

#include "apps/nordacam/sim/SceneSimulator.h"
#include "apps/nordacam/sim/VisualCamera.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace nordacam {

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
    bool realTime = true; // pace the simulator at its frame rate
    bool streams = false; // wire the stream senders for the HTTP server
    bool rtsp = false;    // keep the infrared picture apart from the fused one (RtspStreams)
    bool visual = true;   // the simulated visual camera beside the simulated detector
    // The chain up to the measurements only, without the raw recorder, the palette picture and its
    // overlay: an analysis of a recording reads temperatures and results.
    bool measurementOnly = false;
    bool highResolutionStills = false; // saved images hold 2592 x 1944 visual stills (else 1024 x 768)
    sim::VisualConfig visualSim;
};

} // namespace nordacam
