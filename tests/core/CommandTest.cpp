#include "nordalib/core/cmd/CommandProxy.h"

#include "tests/support/Messages.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

using namespace norda::exp;
using norda::test::messageOf;
using namespace norda::exp::cmd;

namespace {

// A recorder-like callable: typed commands, one with a deliberately duplicated parameter index.
class Recorder : public ICallable {
public:
    explicit Recorder(CommandProxy& commands, const std::string& name = "Rec") : ICallable(name) {
        registerDelegate(new Delegate<void, std::string, unsigned long long, unsigned short, bool>(
                             [this](std::string f, unsigned long long n, unsigned short d, bool s) {
                                 file = f;
                                 frames = n;
                                 delay = d;
                                 shutter = s;
                             }),
                         DelegateDescription(
                             "Start", typeid(void), "start pxm recording",
                             {PackParameterDescription(0, typeid(std::string), "strFilename", "pxm filename"),
                              PackParameterDescription(1, typeid(unsigned long long), "u64NumFrames", "n"),
                              PackParameterDescription(2, typeid(unsigned short), "u16Delay", "d"),
                              PackParameterDescription(2, typeid(bool), "bCaptShutter", "s")}));
        registerDelegate(new Delegate<bool, unsigned int>([this](unsigned int n) {
                             ++calls;
                             return n > 0;
                         }),
                         DelegateDescription("Check", typeid(bool), "check", {}));
        commands.registerCallable(this, false);
    }
    std::string file;
    unsigned long long frames = 0;
    unsigned short delay = 0;
    bool shutter = false;
    std::atomic<int> calls{0};
};

} // namespace

TEST(Commands, ExactTypesAndArgumentCountAreChecked) {
    CommandProxy commands;
    Recorder rec(commands);
    auto result =
        commands.call("Rec", "Start",
                      ParameterPack{makeVariant(std::string("a.pxm")), makeVariant<unsigned long long>(3),
                                    makeVariant<unsigned short>(0), makeVariant(true)});
    EXPECT_EQ(result, nullptr);
    EXPECT_EQ(rec.file, "a.pxm");
    EXPECT_EQ(rec.frames, 3u);

    // Three arguments, or a signed 64-bit count: rejected, nothing runs.
    rec.file.clear();
    EXPECT_THROW(
        commands.call("Rec", "Start",
                      ParameterPack{makeVariant(std::string("b")), makeVariant<unsigned long long>(3),
                                    makeVariant<unsigned short>(0)}),
        norda::Exception);
    auto msg = messageOf([&] {
        commands.call("Rec", "Start",
                      ParameterPack{makeVariant(std::string("b")), makeVariant<long long>(3),
                                    makeVariant<unsigned short>(0), makeVariant(true)});
    });
    EXPECT_NE(msg.find("Rec"), std::string::npos);
    EXPECT_NE(msg.find("Start"), std::string::npos);
    EXPECT_TRUE(rec.file.empty());

    // The duplicate index keeps both descriptions.
    EXPECT_EQ(commands.getDescriptions("Rec").front().getParameters().size(), 4u);

    auto r = commands.call("Rec", "Check", ParameterPack{makeVariant(5u)});
    ASSERT_TRUE(r);
    EXPECT_TRUE(r->value<bool>());
    EXPECT_NE(messageOf([&] { commands.call("Rec", "Nope", {}); }).find("Nope"), std::string::npos);
    EXPECT_NE(messageOf([&] { commands.call("Ghost", "Start", {}); }).find("Ghost"), std::string::npos);

    // Unpacking through the delegate directly reports the Variant mismatch.
    Delegate<void, int> d([](int) {});
    EXPECT_FALSE(d.check(ParameterPack{makeVariant(1.0f)}));
    EXPECT_EQ(messageOf([&] { d.call(ParameterPack{makeVariant(1.0f)}); }),
              "Variant-type (float)!= Template-type (int)");
}

TEST(Commands, RegistrationLifecycleAndConcurrentCalls) {
    CommandProxy commands;
    {
        Recorder rec(commands);
        EXPECT_THROW(Recorder(commands, "Rec"), norda::Exception); // name taken by a living callable
        std::vector<std::thread> callers;
        for (int t = 0; t < 4; ++t)
            callers.emplace_back([&] {
                for (int i = 0; i < 500; ++i)
                    commands.call("Rec", "Check", ParameterPack{makeVariant(1u)});
            });
        for (auto& c : callers)
            c.join();
        EXPECT_EQ(rec.calls.load(), 2000);
    }
    // A destroyed callable that never unregistered is not reachable any more, and its name is free.
    EXPECT_FALSE(commands.hasCallable("Rec"));
    EXPECT_THROW(commands.call("Rec", "Check", ParameterPack{makeVariant(1u)}), norda::Exception);
    Recorder again(commands);
    EXPECT_TRUE(commands.call("Rec", "Check", ParameterPack{makeVariant(1u)})->value<bool>());
    commands.unregisterCallable("Rec");
    EXPECT_FALSE(commands.hasCallable("Rec"));
}
