// Builds a store with the factory defaults, observes a key on the store's thread and routes a
// command through the registry: the smallest host of nordalib.
#include "nordalib/nordalib.h"

#include <atomic>
#include <iostream>
#include <thread>

using namespace norda::exp;

class Greeter : public cmd::ICallable {
public:
    explicit Greeter(cmd::CommandProxy& commands) : ICallable("Greeter") {
        registerDelegate(
            new cmd::Delegate<std::string, std::string>([](const std::string& n) { return "hello " + n; }),
            cmd::DelegateDescription("Greet", typeid(std::string), "greets", {}));
        commands.registerCallable(this, false);
    }
};

int main() {
    DataProxy<std::string> store;
    setDefaultParameters(store);
    std::atomic<bool> otherThread{false};
    const auto self = std::this_thread::get_id();
    auto sub = store.subscribeValue<bool>(
        Id::Streaming::UpdateValues, [&](const bool&) { otherThread = std::this_thread::get_id() != self; });
    store.setValue(Id::Streaming::UpdateValues, true, true);
    store.flush();
    cmd::CommandProxy commands;
    Greeter greeter(commands);
    auto reply = commands.call("Greeter", "Greet", cmd::ParameterPack{makeVariant(std::string("camera"))});
    std::cout << reply->value<std::string>() << ", observer on another thread: " << otherThread << "\n";
    // The vision libraries' defaults come with the framework's.
    const bool defaults = store.contains(Id::Palette::Colors) && store.contains(Id::IrSensor::BadPixelList);
    return otherThread && defaults && reply->value<std::string>() == "hello camera" ? 0 : 1;
}
