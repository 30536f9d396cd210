// nordacam: the host program of nordalib.
//
// "nordacam demo" fills a parameter store with the factory defaults, observes a key on the
// store's notifier thread and routes a command through the command registry.
#include "nordalib/nordalib.h"

#include <iostream>
#include <future>
#include <thread>

using namespace norda::exp;

namespace {

class Host : public cmd::ICallable {
public:
    explicit Host(cmd::CommandProxy& commands) : ICallable(Cmd::ApplicationControlGroup) {
        registerDelegate(new cmd::Delegate<std::string, std::string>([](const std::string& who) {
                             return "settings of " + who + " saved";
                         }),
                         cmd::DelegateDescription(Cmd::SaveUserSettings, typeid(std::string), "Save user settings",
                                                  {cmd::PackParameterDescription(0, typeid(std::string), "who",
                                                                                 "whose settings")}));
        m_unregister = commands.registerCallable(this, false);
    }
    ~Host() override { m_unregister(); }

private:
    std::function<void()> m_unregister;
};

int demo() {
    DataProxy<std::string> store;
    setDefaultParameters(store);
    auto keys = store.keys();
    std::cout << "store: " << keys.size() << " keys after setDefaultParameters\n";
    for (const auto& key : {Id::IrImage::Cols, Id::IrImage::Rows, Id::Environment::EmissivityValue,
                            Id::ActiveMeasRange::ToleranceTop, Id::Scaling::Mode})
        std::cout << "  " << key << " = " << store.get(key)->toString() << "\n";

    const auto pipelineThread = std::this_thread::get_id();
    std::promise<std::string> seen;
    auto subscription = store.subscribeValue<float>(Id::Environment::EmissivityValue, [&](const float& e) {
        seen.set_value(std::string("observer saw emissivity ") + std::to_string(e) +
                       (std::this_thread::get_id() != pipelineThread ? " on the notifier thread" : " on the caller"));
    });
    store.setValue(Id::Environment::EmissivityValue, 0.82f, true);
    store.flush();
    std::cout << seen.get_future().get() << "\n";

    cmd::CommandProxy commands;
    Host host(commands);
    auto result = commands.call(Cmd::ApplicationControlGroup, Cmd::SaveUserSettings,
                                cmd::ParameterPack{makeVariant(std::string("demo user"))});
    std::cout << "command " << Cmd::ApplicationControlGroup << "." << Cmd::SaveUserSettings << " -> "
              << result->value<std::string>() << "\n";
    try {
        commands.call(Cmd::ApplicationControlGroup, Cmd::SaveUserSettings, cmd::ParameterPack{makeVariant(42)});
    } catch (const norda::Exception& e) {
        std::cout << "rejected: " << e.what() << "\n";
    }
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    const std::string command = argc > 1 ? argv[1] : "demo";
    if (command == "demo")
        return demo();
    std::cerr << "usage: nordacam demo\n";
    return 2;
}
