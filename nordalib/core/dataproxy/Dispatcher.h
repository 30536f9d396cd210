#pragma once
// Dispatcher: a write hook on a key or a whole group of the parameter store.
//
// Registered with DataProxy::registerDispatcher(prefix, dispatcher), it sees every set() of a key
// equal to the prefix or below it ("prefix.") before the value is stored. It may replace the
// value, or return false to drop the write (nothing is stored, nobody is notified). Hosts use it
// to validate user input or to route writes to the device.

#include "nordalib/core/datatypes/Variant.h"

#include <functional>
#include <memory>

namespace norda::exp {

template <typename K> class Dispatcher {
public:
    using Handler = std::function<bool(const K& key, std::shared_ptr<Variant>& value)>;
    explicit Dispatcher(Handler handler) : m_handler(std::move(handler)) {}
    bool dispatch(const K& key, std::shared_ptr<Variant>& value) const {
        return !m_handler || m_handler(key, value);
    }

private:
    Handler m_handler;
};

} // namespace norda::exp
