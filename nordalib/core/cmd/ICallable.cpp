#include "nordalib/core/cmd/ICallable.h"

#include "nordalib/core/datatypes/TypeName.h"

#include <mutex>

namespace norda::exp::cmd {

ICallable::ICallable(const std::string& name)
    : m_callableName(name), m_liveness(std::make_shared<Liveness>()) {}

ICallable::~ICallable() {
    std::unique_lock<std::shared_mutex> lock(m_liveness->mutex); // waits for calls in flight
    m_liveness->alive = false;
}

void ICallable::registerDelegate(IDelegate* delegate, const DelegateDescription& description) {
    std::unique_ptr<IDelegate> owned(delegate);
    if (!owned)
        NORDA_THROW("Command " + m_callableName + "." + description.getName() + ": no delegate given",
                    "norda::exp::cmd::ICallable::registerDelegate");
    if (m_delegates.count(description.getName()))
        NORDA_THROW("Command " + m_callableName + "." + description.getName() + " is already registered",
                    "norda::exp::cmd::ICallable::registerDelegate");
    m_order.push_back(description.getName());
    m_delegates.emplace(description.getName(), Entry{std::move(owned), description});
}

IDelegate* ICallable::getDelegate(const std::string& command) const {
    auto it = m_delegates.find(command);
    return it == m_delegates.end() ? nullptr : it->second.delegate.get();
}

std::vector<DelegateDescription> ICallable::getDescriptions() const {
    std::vector<DelegateDescription> out;
    for (const auto& name : m_order)
        out.push_back(m_delegates.at(name).description);
    return out;
}

std::shared_ptr<Variant> ICallable::call(const std::string& command, const ParameterPack& parameters) {
    IDelegate* delegate = getDelegate(command);
    if (!delegate)
        NORDA_THROW("Callable " + m_callableName + " has no command " + command,
                    "norda::exp::cmd::ICallable::call");
    if (!delegate->check(parameters)) {
        std::string expected;
        for (const auto& p : m_delegates.at(command).description.getParameters())
            expected += (expected.empty() ? "" : ", ") + typeName(p.getType()) + " " + p.getName();
        std::string given;
        for (size_t i = 0; i < parameters.size(); ++i)
            given += (i ? ", " : "") + (parameters[i] ? parameters[i]->typeName() : std::string("empty"));
        NORDA_THROW("Command " + m_callableName + "." + command + ": arguments (" + given +
                        ") do not match (" + expected + ")",
                    "norda::exp::cmd::ICallable::call");
    }
    return delegate->call(parameters);
}

} // namespace norda::exp::cmd
