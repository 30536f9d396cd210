#include "apps/nordacam/HostCommands.h"

#include "nordalib/core/exception/Exception.h"
#include "nordalib/core/keys/Keys.h"

namespace nordacam {

using namespace norda::exp;

HostCommands::HostCommands(cmd::CommandProxy& commands, Settings& settings)
    : ICallable(Cmd::ApplicationControlGroup), m_settings(settings) {
    registerDelegate(new cmd::Delegate<void>([this] { saveUserSettings(); }),
                     cmd::DelegateDescription(Cmd::SaveUserSettings, typeid(void), "Save user settings", {}));
    m_unregister = commands.registerCallable(this, false);
}

HostCommands::~HostCommands() {
    m_unregister();
}

void HostCommands::saveUserSettings() {
    try {
        m_settings.save();
    } catch (const SettingsError& e) {
        NORDA_THROW(e.what(), "nordacam::HostCommands::saveUserSettings");
    }
}

} // namespace nordacam
