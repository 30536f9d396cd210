#include "nordalib/core/dataproxy/SingleTaskUpdatePolicy.h"

namespace norda::exp {

SingleTaskUpdatePolicy::SingleTaskUpdatePolicy() : m_thread([this] { run(); }) {}

SingleTaskUpdatePolicy::~SingleTaskUpdatePolicy() {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_stop = true;
    }
    m_wake.notify_all();
    if (m_thread.joinable()) {
        if (onNotifierThread())
            m_thread.detach(); // the last reference died inside an observer
        else
            m_thread.join();
    }
}

void SingleTaskUpdatePolicy::post(std::vector<Observer> observers, std::shared_ptr<Variant> value) {
    if (observers.empty())
        return;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_queue.push_back({std::move(observers), std::move(value)});
        ++m_posted;
    }
    m_wake.notify_one();
}

void SingleTaskUpdatePolicy::flush() {
    if (onNotifierThread())
        return;
    std::unique_lock<std::mutex> lock(m_mutex);
    const uint64_t target = m_posted;
    m_done.wait(lock, [&] { return m_delivered >= target || m_stop; });
}

size_t SingleTaskUpdatePolicy::pending() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_queue.size();
}

void SingleTaskUpdatePolicy::run() {
    std::unique_lock<std::mutex> lock(m_mutex);
    for (;;) {
        m_wake.wait(lock, [&] { return m_stop || !m_queue.empty(); });
        if (m_stop)
            break;
        Item item = std::move(m_queue.front());
        m_queue.pop_front();
        lock.unlock();
        for (const auto& observer : item.observers)
            observer->notify(item.value);
        item = Item{}; // release values and observers outside the lock
        lock.lock();
        ++m_delivered;
        m_done.notify_all();
    }
    m_done.notify_all();
}

} // namespace norda::exp
