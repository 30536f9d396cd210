#pragma once
// ImageBufferElement: delays the frames of one slot by a number of cycles, so that they line up
// with frames arriving later through a slower path.
//
// A first-in, first-out queue of whole frames. The depth is the maximum image latency
// (Id::Viscam::MaximumImageLatency, read once at construction) divided by the newest frame's
// capture time (metadata Id::Viscam::CaptureTime, float), truncated, clipped to the maximum depth
// and at least 1; it is re-evaluated each time a frame leaves. While the queue fills, the cycle
// outputs nothing and returns false; once it holds the depth, the oldest frame goes out into the
// same slot and the cycle returns true. A change of frame size empties the queue, which then
// refills to the depth last used. The current depth is one value shared by every instance in the
// process (the host runs one buffer and relies on this).
// Slots: the constructor's slot in and out. A cycle without an input frame changes nothing.

#include "nordalib/core/dataproxy/DataProxy.h"
#include "nordalib/vision/streaming/StreamingElement.h"

#include <cstdint>
#include <deque>
#include <memory>

namespace norda::exp::streaming {

class ImageBufferElement : public StreamingElement {
public:
    // Throws for a null store, a missing latency key or a latency that is not a number.
    ImageBufferElement(uint8_t maxDepth, STREAMING_DATATYPE slot, DataProxy<std::string>* proxy);

    bool process(FrameMap& inputs, FrameMap& outputs) override;

    size_t getQueueSize() const { return m_queue.size(); }

private:
    uint8_t m_maxDepth;
    STREAMING_DATATYPE m_slot;
    std::deque<std::unique_ptr<Frame>> m_queue;
    DataProxy<std::string>* m_proxy;
    float m_maxLatency = 0.0f;
    bool m_recomputeDepth = true;
};

} // namespace norda::exp::streaming
