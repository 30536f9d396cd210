#include "nordalib/vision/streaming/SnrElement.h"

#include "nordalib/core/keys/Keys.h"

namespace norda::exp::streaming {

SnrElement::SnrElement(DataProxy<std::string>* dataProxy)
    : StreamingElement({STREAMING_DATATYPE_CORRECTED}, {STREAMING_DATATYPE_CORRECTED}, "SnrElement",
                       dataProxy, false, 0),
      m_filter(0), m_dataProxy(dataProxy) {
    if (!dataProxy)
        NORDA_THROW("Pointer to DataProxy is mandatory for this element!",
                    "norda::exp::streaming::SnrElement::SnrElement");
    dataProxy->setValue(Id::SnrElement::Active, false, true);
    m_gainObserver =
        dataProxy->subscribeValue<short>(Id::SprElement::FrameLimit, [this](const short& v) { setGain(v); });
}

SnrElement::~SnrElement() {
    m_gainObserver.reset();
}

void SnrElement::setGain(int16_t gain) {
    m_filter.setGain(gain);
}

bool SnrElement::process(FrameMap& inputs, FrameMap& outputs) {
    auto& input = inputs[STREAMING_DATATYPE_CORRECTED];
    cv::Mat result;
    m_filter.process(input->getFrameData(), result);
    emit(outputs, STREAMING_DATATYPE_CORRECTED, std::make_unique<Frame>(result, input->releaseMetaData()));
    return true;
}

} // namespace norda::exp::streaming
