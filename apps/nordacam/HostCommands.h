#pragma once
// The host's own commands, callable "ApplicationControl" (Cmd::ApplicationControlGroup):
//   "SaveUserSettings" (Cmd::SaveUserSettings), no arguments: writes the user's settings to the
//   settings file. The image writer calls it after every saved image so that the image counter
//   survives a restart.

#include "apps/nordacam/Settings.h"

#include "nordalib/core/cmd/CommandProxy.h"

#include <functional>

namespace nordacam {

class HostCommands : public norda::exp::cmd::ICallable {
public:
    HostCommands(norda::exp::cmd::CommandProxy& commands, Settings& settings);
    ~HostCommands() override;

private:
    void saveUserSettings();

    Settings& m_settings;
    std::function<void()> m_unregister;
};

} // namespace nordacam
