#include "apps/nordacam/VisualStillElement.h"

namespace nordacam {

using namespace norda::exp::streaming;

VisualStillElement::VisualStillElement()
    : StreamingElement({STREAMING_DATATYPE_YUV422_HIRES}, {}, "VisualStill", nullptr, false, 0) {}

bool VisualStillElement::process(FrameMap& inputs, FrameMap&) {
    auto still = inputs.find(STREAMING_DATATYPE_YUV422_HIRES);
    if (still == inputs.end() || !still->second)
        return false;
    inputs.erase(STREAMING_DATATYPE_YUV422);
    return true;
}

} // namespace nordacam
