#pragma once
// A host element before the image writer: in a cycle that carries a full-resolution still (slot 7)
// it drops the live visual frame (slot 6) for the rest of the cycle, so that the image writer,
// which prefers slot 6, saves the still. The live stream itself goes on (it keeps the image
// buffer's count); only this cycle's remaining elements do without it.

#include "nordalib/vision/streaming/StreamingElement.h"

namespace nordacam {

class VisualStillElement : public norda::exp::streaming::StreamingElement {
public:
    VisualStillElement();
    bool process(norda::exp::streaming::FrameMap& inputs, norda::exp::streaming::FrameMap& outputs) override;
};

} // namespace nordacam
