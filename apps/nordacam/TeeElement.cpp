#include "apps/nordacam/TeeElement.h"

namespace nordacam {

using namespace norda::exp;
using namespace norda::exp::streaming;

TeeElement::TeeElement(STREAMING_DATATYPE from, STREAMING_DATATYPE to, const std::string& name)
    : StreamingElement({from}, {to}, name, nullptr, false, 0), m_from(from), m_to(to) {}

bool TeeElement::process(FrameMap& inputs, FrameMap& outputs) {
    const auto& frame = inputs[m_from];
    if (!frame)
        return false;
    DataStorage<std::string> meta = frame->getMetaData();
    emit(outputs, m_to, std::make_unique<Frame>(frame->getFrameData(), std::move(meta)));
    return true;
}

} // namespace nordacam
