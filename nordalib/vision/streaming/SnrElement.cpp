#include "nordalib/vision/streaming/SnrElement.h"

#include "nordalib/core/keys/Keys.h"

namespace norda::exp::streaming {

SnrElement::SnrElement(DataProxy<std::string>* dataProxy)
    : NoiseFilterElement("SnrElement", dataProxy,
                         NORDA_LOCATION("norda::exp::streaming::SnrElement::SnrElement"), 0) {
    dataProxy->setValue(Id::SnrElement::Active, false, true);
    observe<short>(Id::SprElement::FrameLimit, [this](const short& v) { setGain(v); });
}

SnrElement::~SnrElement() {
    stopObserving();
}

void SnrElement::setGain(int16_t gain) {
    m_filter.setGain(gain);
}

bool SnrElement::process(FrameMap& inputs, FrameMap& outputs) {
    filterIntoNewFrame(inputs, outputs);
    return true;
}

} // namespace norda::exp::streaming
