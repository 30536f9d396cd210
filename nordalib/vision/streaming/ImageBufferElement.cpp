#include "nordalib/vision/streaming/ImageBufferElement.h"

#include "nordalib/core/keys/Keys.h"

#include <algorithm>
#include <atomic>
#include <cmath>

namespace norda::exp::streaming {

ImageBufferElement::ImageBufferElement(uint8_t maxDepth, STREAMING_DATATYPE slot,
                                       DataProxy<std::string>* proxy)
    : StreamingElement({slot}, {slot}, "ImageBufferElement", nullptr, false, 0), m_maxDepth(maxDepth),
      m_slot(slot), m_proxy(proxy) {
    if (!m_proxy)
        NORDA_THROW("Pointer to DataProxy is mandatory for this element!",
                    "norda::exp::streaming::ImageBufferElement::ImageBufferElement");
    auto latency = m_proxy->get(Id::Viscam::MaximumImageLatency);
    try {
        m_maxLatency = latency->convert<float>();
    } catch (const Exception&) {
        m_maxLatency = latency->value<float>(); // not a number: report the held and wanted types
    }
}

bool ImageBufferElement::process(FrameMap& inputs, FrameMap& outputs) {
    // One depth for all instances; the first instance to run sets its start value. Atomic, so
    // buffers on different pipeline threads share it without a data race.
    static std::atomic<uint8_t> s_currentDepth{m_maxDepth};

    auto& entry = inputs[m_slot];
    if (!entry)
        return false;
    if (!m_queue.empty() && entry->getFrameData().size != m_queue.back()->getFrameData().size) {
        m_queue.clear();
        m_recomputeDepth = false;
    }
    const float captureTime = entry->getMetaData().get<float>(Id::Viscam::CaptureTime);
    m_queue.push_back(std::move(entry));

    unsigned depth;
    if (m_recomputeDepth) {
        // A zero, negative or non-finite capture time counts as "as deep as allowed".
        const double ratio = double(m_maxLatency) / double(captureTime);
        depth = std::isfinite(ratio) && ratio >= 0 ? unsigned(std::min(ratio, 255.0)) : m_maxDepth;
        m_recomputeDepth = false;
    } else {
        depth = s_currentDepth;
    }
    depth = std::min<unsigned>(depth, m_maxDepth);
    if (depth == 0)
        depth = 1;
    s_currentDepth = uint8_t(depth);

    while (m_queue.size() > depth)
        m_queue.pop_front();
    if (m_queue.size() == depth) {
        m_recomputeDepth = true;
        outputs[m_slot] = std::move(m_queue.front());
        m_queue.pop_front();
        return true;
    }
    return false;
}

} // namespace norda::exp::streaming
