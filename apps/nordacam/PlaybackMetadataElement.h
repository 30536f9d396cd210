#pragma once
// A host element that gives played-back raw frames their recorded metadata again.
//
// The file reader delivers bare matrices (with only a frame counter), but the chain needs each
// frame's shutter state, temperatures, lens and environment. This element knows the metadata the
// recording holds for each frame and, from the file reader's counter and its documented playing
// order (1, 2, ..., n-1, 0, 1, ...), adds it to the raw frame. Keys the frame already has stay.
// Frames of a recording without metadata get the store's current values and an idle shutter.

#include "nordalib/core/datatypes/DataStorage.h"
#include "nordalib/vision/streaming/StreamingElement.h"

#include <string>
#include <vector>

namespace nordacam {

class PlaybackMetadataElement : public norda::exp::streaming::StreamingElement {
public:
    PlaybackMetadataElement(norda::exp::DataProxy<std::string>& store,
                            std::vector<norda::exp::DataStorage<std::string>> recorded);
    bool process(norda::exp::streaming::FrameMap& inputs, norda::exp::streaming::FrameMap& outputs) override;

    // The metadata of every frame of a PXM recording (read with the library's decoder).
    static std::vector<norda::exp::DataStorage<std::string>> readRecording(const std::string& file);

private:
    norda::exp::DataProxy<std::string>& m_store;
    std::vector<norda::exp::DataStorage<std::string>> m_recorded;
    uint64_t m_delivered = 0;
};

} // namespace nordacam
