#pragma once
// Observers of parameter-store keys.
//
// An Observer wraps a callback taking the new value. The store calls it on its notifier thread.
// detach() makes it inert: once detach() has returned, the callback is not running and will never
// run again, which is what lets an element drop its observers in its destructor while
// notifications are still in flight.

#include "nordalib/core/datatypes/Variant.h"

#include <functional>
#include <memory>
#include <mutex>
#include <vector>

namespace norda::exp {

class ObserverBase {
public:
    using Callback = std::function<void(std::shared_ptr<Variant>)>;
    explicit ObserverBase(Callback callback) : m_callback(std::move(callback)) {}

    // Runs the callback unless detached. Exceptions of the callback are logged, not propagated.
    void notify(const std::shared_ptr<Variant>& value);
    void detach();
    bool isAttached() const;

private:
    mutable std::recursive_mutex m_mutex; // recursive: a callback may detach its own observer
    Callback m_callback;
};

using Observer = std::shared_ptr<ObserverBase>;

struct FunctorFactory {
    static Observer createTransmitter(std::function<void(std::shared_ptr<Variant>)> callback) {
        return std::make_shared<ObserverBase>(std::move(callback));
    }
    // Unwraps the value as T (exact type) before calling.
    template <typename T> static Observer createTypedTransmitter(std::function<void(const T&)> callback) {
        return createTransmitter([cb = std::move(callback)](std::shared_ptr<Variant> v) {
            if (v)
                cb(v->template value<T>());
        });
    }
};

class ObserverList {
public:
    void add(Observer observer);
    bool remove(const Observer& observer);
    std::vector<Observer> snapshot() const;
    size_t size() const;

private:
    mutable std::mutex m_mutex;
    std::vector<Observer> m_observers;
};

// Keeps one subscription alive; destroying or resetting it detaches the observer and removes it
// from its key. Safe whatever the order in which store and subscription are destroyed.
class Subscription {
public:
    Subscription() = default;
    Subscription(Observer observer, std::function<void(const Observer&)> remover)
        : m_observer(std::move(observer)), m_remover(std::move(remover)) {}
    Subscription(Subscription&&) noexcept = default;
    Subscription& operator=(Subscription&& o) noexcept {
        if (this != &o) {
            reset();
            m_observer = std::move(o.m_observer);
            m_remover = std::move(o.m_remover);
        }
        return *this;
    }
    Subscription(const Subscription&) = delete;
    Subscription& operator=(const Subscription&) = delete;
    ~Subscription() { reset(); }

    void reset();
    const Observer& observer() const { return m_observer; }

private:
    Observer m_observer;
    std::function<void(const Observer&)> m_remover;
};

} // namespace norda::exp
