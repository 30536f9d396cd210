#include "nordalib/vision/streaming/CaptureElement.h"

#include <iostream>

namespace norda::exp::streaming {

CaptureElement::CaptureElement(STREAMING_DATATYPE slot, Source source)
    : StreamingElement({}, {slot}, "CaptureElement", nullptr, true, 0), m_slot(slot),
      m_source(std::move(source)) {}

// The source may hold host resources (a driver handle); it goes before the base part.
CaptureElement::~CaptureElement() {
    m_source = nullptr;
}

bool CaptureElement::process(FrameMap& /*inputs*/, FrameMap& outputs) {
    try {
        std::unique_ptr<Frame> frame = m_source(); // an empty function throws std::bad_function_call
        auto& slot = outputs[m_slot];
        slot = std::move(frame);
        return slot != nullptr;
    } catch (...) {
        std::cout << "exception thrown in CaptureElement::process" << std::endl;
        return false;
    }
}

} // namespace norda::exp::streaming
