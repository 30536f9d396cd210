#pragma once
// One entry of the parameter store: the last value of a key and the observers of that key.

#include "nordalib/core/dataproxy/Observer.h"

#include <memory>
#include <mutex>

namespace norda::exp {

template <typename K, typename UpdatePolicy> class CachedDataElement {
public:
    explicit CachedDataElement(std::shared_ptr<UpdatePolicy> policy, std::shared_ptr<Variant> value = nullptr)
        : m_policy(std::move(policy)), m_value(std::move(value)) {}

    // "could not get" while no value was ever set.
    std::shared_ptr<Variant> get() const {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (!m_value)
            NORDA_THROW("could not get", "norda::exp::CachedDataElement::get");
        return m_value;
    }
    bool hasValue() const {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_value != nullptr;
    }
    // "could not set" for an empty value. Notifications are posted in set order per key.
    void set(std::shared_ptr<Variant> value, bool notify) {
        if (!value)
            NORDA_THROW("could not set", "norda::exp::CachedDataElement::set");
        std::lock_guard<std::mutex> lock(m_mutex);
        m_value = value;
        if (notify && m_policy)
            m_policy->post(m_observers.snapshot(), std::move(value));
    }
    void subscribe(Observer observer) { m_observers.add(std::move(observer)); }
    bool unsubscribe(const Observer& observer) { return m_observers.remove(observer); }
    size_t observerCount() const { return m_observers.size(); }

private:
    std::shared_ptr<UpdatePolicy> m_policy;
    mutable std::mutex m_mutex;
    std::shared_ptr<Variant> m_value;
    ObserverList m_observers;
};

} // namespace norda::exp
