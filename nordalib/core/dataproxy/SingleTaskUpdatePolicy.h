#pragma once
// The parameter store's notifier: one thread that delivers every notification in the order the
// values were set. Observers therefore never run on the thread that set the value, and a slow
// observer delays other notifications but never the setter.

#include "nordalib/core/dataproxy/Observer.h"

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <thread>

namespace norda::exp {

class SingleTaskUpdatePolicy {
public:
    SingleTaskUpdatePolicy();
    ~SingleTaskUpdatePolicy(); // pending notifications are dropped, the thread is joined
    SingleTaskUpdatePolicy(const SingleTaskUpdatePolicy&) = delete;
    SingleTaskUpdatePolicy& operator=(const SingleTaskUpdatePolicy&) = delete;

    void post(std::vector<Observer> observers, std::shared_ptr<Variant> value);
    // Returns once everything posted before the call has been delivered. Called from the
    // notifier thread itself (inside an observer) it returns at once.
    void flush();
    bool onNotifierThread() const { return std::this_thread::get_id() == m_thread.get_id(); }
    size_t pending() const;

private:
    void run();

    struct Item {
        std::vector<Observer> observers;
        std::shared_ptr<Variant> value;
    };
    mutable std::mutex m_mutex;
    std::condition_variable m_wake;
    std::condition_variable m_done;
    std::deque<Item> m_queue;
    uint64_t m_posted = 0;
    uint64_t m_delivered = 0;
    bool m_stop = false;
    std::thread m_thread;
};

} // namespace norda::exp
