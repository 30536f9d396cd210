#include "nordalib/core/dataproxy/DataProxy.h"

#include <algorithm>

namespace norda::exp {

namespace {
[[noreturn]] void fail(const std::string& message, int line, const char* function) {
    throw Exception(message, formatLocation("nordalib/core/dataproxy/DataProxy", line, function));
}
} // namespace

template <typename K> DataProxy<K>::DataProxy() : m_policy(std::make_shared<SingleTaskUpdatePolicy>()) {}

template <typename K>
DataProxy<K>::DataProxy(std::shared_ptr<SingleTaskUpdatePolicy> policy) : m_policy(std::move(policy)) {}

template <typename K> DataProxy<K>::~DataProxy() = default;

template <typename K>
std::shared_ptr<typename DataProxy<K>::Entry> DataProxy<K>::localEntry(const K& item, bool create) const {
    std::lock_guard<std::mutex> lock(m_mutex);
    auto it = m_table.find(item);
    if (it != m_table.end())
        return it->second;
    if (!create)
        return nullptr;
    auto entry = std::make_shared<Entry>(m_policy);
    m_table.emplace(item, entry);
    return entry;
}

template <typename K>
std::shared_ptr<typename DataProxy<K>::Entry>
DataProxy<K>::locate(const K& key, bool create, std::shared_ptr<Variant>* keepAlive) const {
    auto gi = discriminate(key);
    if (gi.group.empty())
        return localEntry(gi.item, create);

    std::shared_ptr<Variant> groupValue;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        auto it = m_table.find(gi.group);
        if (it == m_table.end() || !it->second->hasValue()) {
            if (!create)
                return nullptr;
            auto entry = it == m_table.end() ? std::make_shared<Entry>(m_policy) : it->second;
            groupValue = std::make_shared<Variant_<DataProxy<K>>>(std::in_place, m_policy);
            entry->set(groupValue, false);
            m_table[gi.group] = entry;
        } else {
            groupValue = it->second->get();
        }
    }
    if (groupValue->type() != typeid(DataProxy<K>))
        fail("Group " + gi.group + " is not a valid proxy", __LINE__, "norda::exp::DataProxy::locate");
    if (keepAlive)
        *keepAlive = groupValue;
    auto* group = static_cast<const DataProxy<K>*>(groupValue->address());
    return group->locate(gi.item, create, nullptr);
}

template <typename K> void DataProxy<K>::set(const K& key, const Variant& value, bool notify) {
    set(key, value.clone(), notify);
}

template <typename K> void DataProxy<K>::set(const K& key, std::shared_ptr<Variant> value, bool notify) {
    if (!value)
        fail("could not set", __LINE__, "norda::exp::DataProxy::set");
    std::vector<std::shared_ptr<Dispatcher<K>>> dispatchers;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        for (const auto& [prefix, d] : m_dispatchers)
            if (key == prefix || (key.size() > prefix.size() && key.compare(0, prefix.size(), prefix) == 0 &&
                                  key[prefix.size()] == '.'))
                dispatchers.push_back(d);
    }
    for (const auto& d : dispatchers)
        if (!d->dispatch(key, value))
            return;
    std::shared_ptr<Variant> keepAlive;
    auto entry = locate(key, true, &keepAlive);
    entry->set(std::move(value), notify);
}

template <typename K> std::shared_ptr<Variant> DataProxy<K>::get(const K& key) const {
    std::shared_ptr<Variant> keepAlive;
    auto entry = locate(key, false, &keepAlive);
    if (!entry || !entry->hasValue())
        fail("value: " + key + " could not be found!", __LINE__, "norda::exp::DataProxy::get");
    return entry->get();
}

template <typename K> bool DataProxy<K>::contains(const K& key) const {
    try {
        std::shared_ptr<Variant> keepAlive;
        auto entry = locate(key, false, &keepAlive);
        return entry && entry->hasValue();
    } catch (const Exception&) {
        return false;
    }
}

template <typename K> bool DataProxy<K>::remove(const K& key) {
    auto gi = discriminate(key);
    if (gi.group.empty()) {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_table.erase(gi.item) > 0;
    }
    std::shared_ptr<Variant> groupValue;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        auto it = m_table.find(gi.group);
        if (it == m_table.end() || !it->second->hasValue())
            return false;
        groupValue = it->second->get();
    }
    if (groupValue->type() != typeid(DataProxy<K>))
        return false;
    return static_cast<DataProxy<K>*>(groupValue->address())->remove(gi.item);
}

template <typename K> Subscription DataProxy<K>::subscribe(const K& key, Observer observer) {
    std::shared_ptr<Variant> keepAlive;
    auto entry = locate(key, false, &keepAlive);
    if (!entry)
        fail("could not find element", __LINE__, "norda::exp::DataProxy::subscribe");
    entry->subscribe(observer);
    std::weak_ptr<Entry> weak = entry;
    return Subscription(std::move(observer), [weak](const Observer& o) {
        if (auto e = weak.lock())
            e->unsubscribe(o);
    });
}

template <typename K>
void DataProxy<K>::registerDispatcher(const K& prefix, std::shared_ptr<Dispatcher<K>> dispatcher) {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (!dispatcher || prefix.empty() || m_dispatchers.count(prefix))
        fail("norda::exp::DataProxy::registerDispatcher", __LINE__,
             "norda::exp::DataProxy::registerDispatcher");
    m_dispatchers[prefix] = std::move(dispatcher);
}

template <typename K> void DataProxy<K>::collectKeys(const K& prefix, std::vector<K>& out) const {
    std::vector<std::pair<K, std::shared_ptr<Entry>>> entries;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        entries.assign(m_table.begin(), m_table.end());
    }
    for (const auto& [name, entry] : entries) {
        if (!entry->hasValue())
            continue;
        auto value = entry->get();
        if (value->type() == typeid(DataProxy<K>))
            static_cast<const DataProxy<K>*>(value->address())->collectKeys(prefix + name + ".", out);
        else
            out.push_back(prefix + name);
    }
}

template <typename K> std::vector<K> DataProxy<K>::keys() const {
    std::vector<K> out;
    collectKeys(K(), out);
    std::sort(out.begin(), out.end());
    return out;
}

template class DataProxy<std::string>;

} // namespace norda::exp
