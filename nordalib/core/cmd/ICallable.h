#pragma once
// ICallable: something that offers named commands (an element, the host application).
//
// It owns its delegates. Commands are looked up by name, their arguments checked, then run on
// the caller's thread. When an ICallable is destroyed, every CommandProxy registration of it goes
// dead, so a late call reports an unknown callable instead of reaching a destroyed object.

#include "nordalib/core/cmd/Delegate.h"
#include "nordalib/core/cmd/DelegateDescription.h"

#include <map>
#include <memory>
#include <shared_mutex>
#include <string>
#include <vector>

namespace norda::exp::cmd {

class CommandProxy;

class ICallable {
public:
    explicit ICallable(const std::string& name);
    virtual ~ICallable();
    ICallable(const ICallable&) = delete;
    ICallable& operator=(const ICallable&) = delete;

    const std::string& getCallableName() const { return m_callableName; }

    // Takes ownership of `delegate`. A second delegate of the same name throws.
    void registerDelegate(IDelegate* delegate, const DelegateDescription& description);
    IDelegate* getDelegate(const std::string& command) const;
    std::vector<DelegateDescription> getDescriptions() const;

    // Finds the delegate, checks the arguments and runs it. Unknown commands and arguments that
    // fail the check throw a norda::Exception naming the callable and the command.
    virtual std::shared_ptr<Variant> call(const std::string& command, const ParameterPack& parameters);

    // Liveness token shared with the registries this callable is registered in.
    struct Liveness {
        std::shared_mutex mutex; // shared while a call runs, exclusive while dying
        bool alive = true;
    };
    const std::shared_ptr<Liveness>& liveness() const { return m_liveness; }

private:
    struct Entry {
        std::unique_ptr<IDelegate> delegate;
        DelegateDescription description;
    };
    std::string m_callableName;
    std::map<std::string, Entry> m_delegates;
    std::vector<std::string> m_order;
    std::shared_ptr<Liveness> m_liveness;
};

} // namespace norda::exp::cmd
