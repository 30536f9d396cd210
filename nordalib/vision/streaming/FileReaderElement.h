#pragma once
// FileReaderElement: plays a recorded PXM sequence back in place of the detector.
//
// The whole file is loaded at construction; each cycle hands the next frame on in
// STREAMING_DATATYPE_RAW (0), looping endlessly, paced to one frame per 30 ms. The play index
// advances before delivery, so the first cycle delivers frame 1 and frame 0 follows the first
// wrap (a one-frame file delivers frame 0 every time); the host relies on this order. Each frame
// carries "FrameCnt" (unsigned long long), the number of frames delivered before it. Delivered
// frames own their pixels, so elements that write into their input never alter the recording.
//
// Construction throws "File open failed! Filename: <name>" when the file cannot be opened, and
// "File holds no frame! Filename: <name>" when it opens but yields no frame. A damaged frame in
// the middle of the file ends the loading with a warning (logger "FILE_READER"): the frames
// before it are played; a file damaged at its first frame throws the decoder's error.

#include "nordalib/vision/streaming/StreamingElement.h"

#include <opencv2/core.hpp>

#include <cstdint>
#include <string>
#include <vector>

namespace norda::exp::streaming {

class FileReaderElement : public StreamingElement {
public:
    explicit FileReaderElement(const std::string& fileName);

    bool process(FrameMap& inputs, FrameMap& outputs) override;

    size_t getFrameCount() const { return m_frames.size(); }

private:
    std::vector<cv::Mat> m_frames;
    uint64_t m_playIndex = 0;
    uint64_t m_frameCounter = 0;
};

} // namespace norda::exp::streaming
