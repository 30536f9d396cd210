#include "nordalib/vision/streaming/StoreStampElement.h"

namespace norda::exp::streaming {

StoreStampElement::StoreStampElement(DataProxy<std::string>& store, STREAMING_DATATYPE slot,
                                     std::vector<std::string> keys, const std::string& name)
    : StreamingElement({slot}, {}, name, &store, false, 0), m_store(store), m_slot(slot),
      m_keys(std::move(keys)) {}

bool StoreStampElement::process(FrameMap& inputs, FrameMap&) {
    auto it = inputs.find(m_slot);
    if (it == inputs.end() || !it->second)
        return false;
    for (const auto& key : m_keys)
        if (auto value = m_store.contains(key) ? m_store.get(key) : nullptr)
            it->second->replaceMetaDate(key, value);
    return true;
}

} // namespace norda::exp::streaming
