#include "nordalib/vision/streaming/TnrElement.h"

#include "nordalib/core/keys/Keys.h"

namespace norda::exp::streaming {

TnrElement::TnrElement(DataProxy<std::string>* dataProxy)
    : NoiseFilterElement("TnrElement", dataProxy,
                         NORDA_LOCATION("norda::exp::streaming::TnrElement::TnrElement"), 16, 1843),
      m_typeName("TnrElement") {
    dataProxy->setValue(activityKey(m_typeName), true, true);
    observe<unsigned char>(Id::ActiveMeasRange::TnrGain,
                           [this](const unsigned char& g) { setControlGain(g); });
    observe<unsigned short>(Id::ActiveMeasRange::TnrAlpha,
                            [this](const unsigned short& a) { setFeedbackFactor(a); });
    setControlGain(dataProxy->getValue<unsigned char>(Id::ActiveMeasRange::TnrGain));
    setFeedbackFactor(dataProxy->getValue<unsigned short>(Id::ActiveMeasRange::TnrAlpha));
}

TnrElement::~TnrElement() {
    stopObserving();
}

void TnrElement::setControlGain(uint8_t gain) {
    m_filter.setControlGain(gain);
}

void TnrElement::setFeedbackFactor(uint16_t factor) {
    m_filter.setFeedbackFactor(factor);
}

bool TnrElement::process(FrameMap& inputs, FrameMap& outputs) {
    cv::Mat pixels = inputs[STREAMING_DATATYPE_CORRECTED]->getFrameData(); // shares the frame's pixels
    m_filter.process(pixels);
    passThrough(inputs, STREAMING_DATATYPE_CORRECTED, outputs, STREAMING_DATATYPE_CORRECTED);
    return true;
}

} // namespace norda::exp::streaming
