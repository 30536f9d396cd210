#pragma once
// A host element that hands a copy of one slot's frame to another slot: the pixels are shared
// (nothing downstream writes into them), the metadata is copied. The raw recorder records from
// such a copy, so that recording and the offset element each get the frame with its metadata
// (both move the metadata out of the frame they take).

#include "nordalib/vision/streaming/StreamingElement.h"

namespace nordacam {

class TeeElement : public norda::exp::streaming::StreamingElement {
public:
    TeeElement(norda::exp::streaming::STREAMING_DATATYPE from, norda::exp::streaming::STREAMING_DATATYPE to,
               const std::string& name);
    bool process(norda::exp::streaming::FrameMap& inputs, norda::exp::streaming::FrameMap& outputs) override;

private:
    norda::exp::streaming::STREAMING_DATATYPE m_from, m_to;
};

} // namespace nordacam
