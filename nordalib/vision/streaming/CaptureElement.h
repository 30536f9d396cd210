#pragma once
// CaptureElement: a frame source that asks a function supplied by the host for each frame (a
// camera driver, a test fixture) and puts what it gets into its output slot.
//
// Slots: no inputs; output = the constructor's slot. Every failure of the source is swallowed:
// the fixed line "exception thrown in CaptureElement::process" goes to standard output and the
// cycle returns false; a source that returns no frame empties the slot and returns false.

#include "nordalib/vision/streaming/StreamingElement.h"

#include <functional>
#include <memory>

namespace norda::exp::streaming {

class CaptureElement : public StreamingElement {
public:
    using Source = std::function<std::unique_ptr<Frame>()>;

    CaptureElement(STREAMING_DATATYPE slot, Source source);
    ~CaptureElement() override;

    bool process(FrameMap& inputs, FrameMap& outputs) override;

private:
    STREAMING_DATATYPE m_slot;
    Source m_source;
};

} // namespace norda::exp::streaming
