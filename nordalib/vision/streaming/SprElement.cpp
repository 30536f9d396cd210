#include "nordalib/vision/streaming/SprElement.h"

#include "nordalib/core/keys/Keys.h"

namespace norda::exp::streaming {

SprElement::SprElement(DataProxy<std::string>* dataProxy)
    : NoiseFilterElement("SprElement", dataProxy,
                         NORDA_LOCATION("norda::exp::streaming::SprElement::SprElement"), 0, 0, 0) {
    dataProxy->setValue(Id::SprElement::Active, false, true);
    observe<short>(Id::SprElement::Threshold, [this](const short& v) { setThreshold(v); });
    observe<short>(Id::SprElement::LineLimit, [this](const short& v) { setLineLimit(v); });
    observe<short>(Id::SprElement::FrameLimit, [this](const short& v) { setFrameLimit(v); });
}

SprElement::~SprElement() {
    stopObserving();
}

void SprElement::setThreshold(int16_t threshold) {
    m_filter.setThreshold(threshold);
}
void SprElement::setLineLimit(int16_t limit) {
    m_filter.setLineLimit(limit);
}
void SprElement::setFrameLimit(int16_t limit) {
    m_filter.setFrameLimit(limit);
}

bool SprElement::process(FrameMap& inputs, FrameMap& outputs) {
    filterIntoNewFrame(inputs, outputs);
    return true;
}

} // namespace norda::exp::streaming
