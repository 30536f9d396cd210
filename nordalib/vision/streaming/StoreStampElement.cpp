#include "nordalib/vision/streaming/StoreStampElement.h"

#include "nordalib/core/exception/Exception.h"

namespace norda::exp::streaming {

StoreStampElement::StoreStampElement(DataProxy<std::string>& store, STREAMING_DATATYPE slot,
                                     std::vector<std::string> keys, const std::string& name)
    : StreamingElement({slot}, {}, name, &store, false, 0), m_store(store), m_slot(slot),
      m_keys(std::move(keys)), m_missing(m_keys.size(), false) {}

bool StoreStampElement::process(FrameMap& inputs, FrameMap&) {
    auto it = inputs.find(m_slot);
    if (it == inputs.end() || !it->second)
        return false;
    // A key the store holds is looked up once; one it lacked is checked for first, without the
    // exception a missing key's get() throws every frame.
    auto& metadata = it->second->getMetaData();
    for (size_t i = 0; i < m_keys.size(); ++i) {
        const auto& key = m_keys[i];
        if (m_missing[i] && !m_store.contains(key))
            continue;
        try {
            metadata.set(key, m_store.get(key));
            m_missing[i] = false;
        } catch (const norda::Exception&) {
            m_missing[i] = true;
        }
    }
    return true;
}

} // namespace norda::exp::streaming
