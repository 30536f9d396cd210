#pragma once
// The commands of nordacam that run the live chain: demo, run and simulate.

#include "apps/nordacam/Camera.h"

#include <ostream>
#include <string>

namespace nordacam {

struct RunOptions {
    CameraOptions camera;
    uint64_t frames = 450;
    bool status = true;         // the live status line
    bool record = true;         // record raw frames at the start
    unsigned saves = 3;         // images saved on a schedule
    uint64_t recordFrames = 60; // two seconds, starting with the shutter: playable on its own
    bool truthFigures = false;  // the summary's figures against the physical simulator (demo)
    int rtspPort = -1;          // RTSP streams on 127.0.0.1 (0: any free port; -1: none)
};

// The whole live chain on the simulator or a recording; prints the live status and the summary.
// Returns the process exit code.
int runLive(const RunOptions& options, std::ostream& out);

// Writes `frames` raw frames of the simulator with their metadata to a PXM recording.
int simulateRecording(const CameraOptions& camera, const std::string& file, uint64_t frames,
                      std::ostream& out);

} // namespace nordacam
