#include "nordalib/vision/streaming/TnrElement.h"

#include "nordalib/core/keys/Keys.h"

namespace norda::exp::streaming {

TnrElement::TnrElement(DataProxy<std::string>* dataProxy)
    : StreamingElement({STREAMING_DATATYPE_CORRECTED}, {STREAMING_DATATYPE_CORRECTED}, "TnrElement",
                       dataProxy, false, 0),
      m_filter(16, 1843), m_dataProxy(dataProxy), m_typeName("TnrElement") {
    if (!dataProxy)
        NORDA_THROW("Pointer to DataProxy is mandatory for this element!",
                    "norda::exp::streaming::TnrElement::TnrElement");
    dataProxy->setValue(activityKey(m_typeName), true, true);
    m_gainObserver = dataProxy->subscribeValue<unsigned char>(
        Id::ActiveMeasRange::TnrGain, [this](const unsigned char& g) { setControlGain(g); });
    m_alphaObserver = dataProxy->subscribeValue<unsigned short>(
        Id::ActiveMeasRange::TnrAlpha, [this](const unsigned short& a) { setFeedbackFactor(a); });
    setControlGain(dataProxy->getValue<unsigned char>(Id::ActiveMeasRange::TnrGain));
    setFeedbackFactor(dataProxy->getValue<unsigned short>(Id::ActiveMeasRange::TnrAlpha));
}

TnrElement::~TnrElement() {
    m_gainObserver.reset();
    m_alphaObserver.reset();
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
