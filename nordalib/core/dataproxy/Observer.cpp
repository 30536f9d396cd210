#include "nordalib/core/dataproxy/Observer.h"

#include "nordalib/core/logging/Logger.h"

#include <algorithm>

namespace norda::exp {

void ObserverBase::notify(const std::shared_ptr<Variant>& value) {
    std::lock_guard<std::recursive_mutex> lock(m_mutex);
    if (!m_callback)
        return;
    try {
        m_callback(value);
    } catch (const std::exception& e) {
        // The registry keeps the logger for the process's life (no function-local shared_ptr,
        // which the exit handlers would destroy under a late notification).
        logging::Logger::createSharedLogger("DATAPROXY", true)
            ->log(logging::LogLevel::error, "observer failed: {}", e.what());
    }
}

void ObserverBase::detach() {
    std::lock_guard<std::recursive_mutex> lock(m_mutex);
    m_callback = nullptr;
}

bool ObserverBase::isAttached() const {
    std::lock_guard<std::recursive_mutex> lock(m_mutex);
    return static_cast<bool>(m_callback);
}

void ObserverList::add(Observer observer) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_observers.push_back(std::move(observer));
}

bool ObserverList::remove(const Observer& observer) {
    std::lock_guard<std::mutex> lock(m_mutex);
    auto it = std::find(m_observers.begin(), m_observers.end(), observer);
    if (it == m_observers.end())
        return false;
    m_observers.erase(it);
    return true;
}

std::vector<Observer> ObserverList::snapshot() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_observers;
}

size_t ObserverList::size() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_observers.size();
}

void Subscription::reset() {
    if (!m_observer)
        return;
    m_observer->detach();
    if (m_remover)
        m_remover(m_observer);
    m_observer.reset();
    m_remover = nullptr;
}

} // namespace norda::exp
