#include "nordalib/vision/streaming/SprElement.h"

#include "nordalib/core/keys/Keys.h"

namespace norda::exp::streaming {

SprElement::SprElement(DataProxy<std::string>* dataProxy)
    : StreamingElement({STREAMING_DATATYPE_CORRECTED}, {STREAMING_DATATYPE_CORRECTED}, "SprElement",
                       dataProxy, false, 0),
      m_filter(0, 0, 0), m_dataProxy(dataProxy) {
    if (!dataProxy)
        NORDA_THROW("Pointer to DataProxy is mandatory for this element!",
                    "norda::exp::streaming::SprElement::SprElement");
    dataProxy->setValue(Id::SprElement::Active, false, true);
    m_thresholdObserver = dataProxy->subscribeValue<short>(Id::SprElement::Threshold,
                                                           [this](const short& v) { setThreshold(v); });
    m_lineLimitObserver = dataProxy->subscribeValue<short>(Id::SprElement::LineLimit,
                                                           [this](const short& v) { setLineLimit(v); });
    m_frameLimitObserver = dataProxy->subscribeValue<short>(Id::SprElement::FrameLimit,
                                                            [this](const short& v) { setFrameLimit(v); });
}

SprElement::~SprElement() {
    m_thresholdObserver.reset();
    m_lineLimitObserver.reset();
    m_frameLimitObserver.reset();
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
    auto& input = inputs[STREAMING_DATATYPE_CORRECTED];
    cv::Mat result;
    m_filter.process(input->getFrameData(), result);
    emit(outputs, STREAMING_DATATYPE_CORRECTED, std::make_unique<Frame>(result, input->releaseMetaData()));
    return true;
}

} // namespace norda::exp::streaming
