#pragma once
// A host element before the image writer: it stamps the display frame with the time it was taken
// (Images.DateTime) unless its source did, and hands the frame's metadata and size to the overlay
// publisher, so that the overlay of a saved picture is drawn from the very frame that is saved.
//
// Slots: input STREAMING_DATATYPE_RGB (the frame stays in its slot); no outputs.

#include "apps/nordacam/Overlay.h"

#include "nordalib/vision/streaming/StreamingElement.h"

namespace nordacam {

class OverlayFrameTap : public norda::exp::streaming::StreamingElement {
public:
    explicit OverlayFrameTap(OverlayPublisher& publisher);
    bool process(norda::exp::streaming::FrameMap& inputs, norda::exp::streaming::FrameMap& outputs) override;

private:
    OverlayPublisher& m_publisher;
};

} // namespace nordacam
