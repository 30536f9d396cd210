#include "nordalib/core/cmd/CommandProxy.h"

#include <shared_mutex>

namespace norda::exp::cmd {

namespace {
bool isAlive(const std::shared_ptr<ICallable::Liveness>& l) {
    std::shared_lock<std::shared_mutex> lock(l->mutex);
    return l->alive;
}
} // namespace

std::function<void()> CommandProxy::registerCallable(ICallable* callable, bool replace) {
    if (!callable)
        NORDA_THROW("registerCallable: no callable given", "norda::exp::cmd::CommandProxy::registerCallable");
    const std::string name = callable->getCallableName();
    std::lock_guard<std::mutex> lock(m_mutex);
    auto it = m_callables.find(name);
    if (it != m_callables.end() && !replace && it->second.callable != callable &&
        isAlive(it->second.liveness))
        NORDA_THROW("Callable " + name + " is already registered",
                    "norda::exp::cmd::CommandProxy::registerCallable");
    const uint64_t id = m_nextId++;
    m_callables[name] = Registration{callable, callable->liveness(), id};
    return [this, name, id] {
        std::lock_guard<std::mutex> lock(m_mutex);
        auto it = m_callables.find(name);
        if (it != m_callables.end() && it->second.id == id)
            m_callables.erase(it);
    };
}

void CommandProxy::unregisterCallable(const std::string& name) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_callables.erase(name);
}

bool CommandProxy::hasCallable(const std::string& name) const {
    std::lock_guard<std::mutex> lock(m_mutex);
    auto it = m_callables.find(name);
    return it != m_callables.end() && isAlive(it->second.liveness);
}

std::vector<std::string> CommandProxy::getCallableNames() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    std::vector<std::string> names;
    for (const auto& [name, reg] : m_callables)
        if (isAlive(reg.liveness))
            names.push_back(name);
    return names;
}

std::vector<DelegateDescription> CommandProxy::getDescriptions(const std::string& name) const {
    Registration reg;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        auto it = m_callables.find(name);
        if (it == m_callables.end())
            return {};
        reg = it->second;
    }
    std::shared_lock<std::shared_mutex> alive(reg.liveness->mutex);
    if (!reg.liveness->alive)
        return {};
    return reg.callable->getDescriptions();
}

std::shared_ptr<Variant> CommandProxy::call(const std::string& callable, const std::string& command,
                                            const ParameterPack& arguments) {
    Registration reg{nullptr, nullptr, 0};
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        auto it = m_callables.find(callable);
        if (it != m_callables.end())
            reg = it->second;
    }
    if (!reg.callable)
        NORDA_THROW("Unknown callable " + callable + " (command " + command + ")",
                    "norda::exp::cmd::CommandProxy::call");
    // Held shared for the whole call: the callable cannot finish dying while its command runs.
    std::shared_lock<std::shared_mutex> alive(reg.liveness->mutex);
    if (!reg.liveness->alive)
        NORDA_THROW("Unknown callable " + callable + " (command " + command + ")",
                    "norda::exp::cmd::CommandProxy::call");
    return reg.callable->call(command, arguments);
}

} // namespace norda::exp::cmd
