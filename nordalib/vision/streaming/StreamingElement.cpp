#include "nordalib/vision/streaming/StreamingElement.h"

namespace norda::exp::streaming {

std::string toString(STREAMING_DATATYPE slot) {
    switch (slot) {
    case STREAMING_DATATYPE_RAW:
        return "STREAMING_DATATYPE_RAW";
    case STREAMING_DATATYPE_CORRECTED:
        return "STREAMING_DATATYPE_CORRECTED";
    case STREAMING_DATATYPE_RAD:
        return "STREAMING_DATATYPE_RAD";
    case STREAMING_DATATYPE_RAD_CONST:
        return "STREAMING_DATATYPE_RAD_CONST";
    case STREAMING_DATATYPE_RGB:
        return "STREAMING_DATATYPE_RGB";
    case STREAMING_DATATYPE_YUV422:
        return "STREAMING_DATATYPE_YUV422";
    case STREAMING_DATATYPE_YUV422_HIRES:
        return "STREAMING_DATATYPE_YUV422_HIRES";
    }
    return "STREAMING_DATATYPE_" + std::to_string(static_cast<int32_t>(slot));
}

StreamingElement::StreamingElement(std::vector<STREAMING_DATATYPE> inputs,
                                   std::vector<STREAMING_DATATYPE> outputs, const std::string& name,
                                   DataProxy<std::string>* const dataProxy, bool blocking, int priority)
    : m_inputs(std::move(inputs)), m_outputs(std::move(outputs)), m_name(name), m_dataProxy(dataProxy),
      m_blocking(blocking), m_priority(priority) {}

StreamingElement::~StreamingElement() = default;

void StreamingElement::setName(const std::string& name) {
    m_name = name;
}

std::string StreamingElement::getName() const {
    return m_name;
}

void StreamingElement::start() {
    m_started = true;
}

void StreamingElement::passThrough(FrameMap& inputs, STREAMING_DATATYPE from, FrameMap& outputs,
                                   STREAMING_DATATYPE to) {
    auto& source = inputs[from];
    auto& target = outputs[to];
    if (&source == &target)
        return;
    target = std::move(source);
}

void StreamingElement::emit(FrameMap& outputs, STREAMING_DATATYPE slot, std::unique_ptr<Frame> frame) {
    outputs[slot] = std::move(frame);
}

} // namespace norda::exp::streaming
