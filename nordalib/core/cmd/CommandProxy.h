#pragma once
// CommandProxy: the registry through which commands are addressed by callable and command name.
//
// Registration and calls are thread-safe; a call runs on the caller's thread. A call to an
// unknown callable or command, or with arguments that fail the delegate's check, throws a
// norda::Exception naming both, and nothing runs.

#include "nordalib/core/cmd/ICallable.h"

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace norda::exp::cmd {

class CommandProxy {
public:
    // Registers under the callable's name. With `replace` false, a name held by a living
    // callable throws; registrations of destroyed callables are replaced silently.
    // The returned function unregisters this registration (and nothing registered later).
    std::function<void()> registerCallable(ICallable* callable, bool replace);
    void unregisterCallable(const std::string& name);
    bool hasCallable(const std::string& name) const;
    std::vector<std::string> getCallableNames() const;
    // Descriptions of a callable's commands (empty for unknown names).
    std::vector<DelegateDescription> getDescriptions(const std::string& name) const;

    std::shared_ptr<Variant> call(const std::string& callable, const std::string& command,
                                  const ParameterPack& arguments);

private:
    struct Registration {
        ICallable* callable;
        std::shared_ptr<ICallable::Liveness> liveness;
        uint64_t id;
    };
    mutable std::mutex m_mutex;
    std::map<std::string, Registration> m_callables;
    uint64_t m_nextId = 1;
};

} // namespace norda::exp::cmd
