#include "nordalib/core/dataproxy/DataProxy.h"
#include "nordalib/core/datatypes/Quantity.h"
#include "nordalib/core/keys/DefaultParameters.h"
#include "nordalib/core/keys/Keys.h"

#include "tests/support/Messages.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

using namespace norda::exp;
using norda::test::messageOf;

TEST(DataProxy, GroupsLookupAndFailureMessages) {
    DataProxy<std::string> proxy;
    proxy.setValue("Shutter.State", std::string("Idle"), false); // creates group "Shutter"
    proxy.setValue("Plain", 3, false);
    proxy.setValue("A.B.C", 1.5f, false);

    EXPECT_EQ(proxy.getValue<std::string>("Shutter.State"), "Idle");
    EXPECT_EQ(proxy.getValue<float>("A.B.C"), 1.5f);
    EXPECT_EQ(messageOf([&] { proxy.get("Shutter.Nope"); }), "value: Shutter.Nope could not be found!");
    EXPECT_EQ(messageOf([&] { (void)proxy.getValue<float>("Plain"); }),
              "Variant-type (int)!= Template-type (float)");
    EXPECT_EQ(messageOf([&] { proxy.get("Plain.X"); }), "Group Plain is not a valid proxy");
    EXPECT_EQ(messageOf([&] { proxy.setValue("Plain.X", 1); }), "Group Plain is not a valid proxy");
    EXPECT_EQ(
        messageOf([&] { (void)proxy.subscribe("Shutter.Missing", FunctorFactory::createTransmitter({})); }),
        "could not find element");

    // The store stays usable after failures, and lists its keys with full paths, sorted (the
    // table itself is hashed).
    proxy.setValue("Shutter.Closed", true, false);
    proxy.setValue("Zoom", 2, false);
    proxy.setValue("Beta", 0, false);
    EXPECT_EQ(proxy.keys(), (std::vector<std::string>{"A.B.C", "Beta", "Plain", "Shutter.Closed",
                                                      "Shutter.State", "Zoom"}));
    EXPECT_TRUE(proxy.remove("Shutter.Closed"));
    EXPECT_FALSE(proxy.contains("Shutter.Closed"));
}

TEST(DataProxy, ObserversRunOnTheNotifierThreadInSetOrder) {
    DataProxy<std::string> proxy;
    proxy.setValue("Counter.Value", 0, false);
    std::vector<int> seen;
    std::thread::id callbackThread;
    auto sub = proxy.subscribeValue<int>("Counter.Value", [&](const int& v) {
        callbackThread = std::this_thread::get_id();
        seen.push_back(v);
    });
    for (int i = 1; i <= 100; ++i)
        proxy.setValue("Counter.Value", i, true);
    proxy.setValue("Counter.Value", 999, false); // stored, not announced
    proxy.flush();
    ASSERT_EQ(seen.size(), 100u);
    for (int i = 0; i < 100; ++i)
        EXPECT_EQ(seen[i], i + 1);
    EXPECT_NE(callbackThread, std::this_thread::get_id());
    EXPECT_EQ(proxy.getValue<int>("Counter.Value"), 999);

    // A failing observer is logged and does not stop the others.
    std::atomic<int> second{0};
    auto bad =
        proxy.subscribe("Counter.Value", FunctorFactory::createTransmitter([](std::shared_ptr<Variant> v) {
                            (void)v->value<float>(); // wrong type: throws on the notifier thread
                        }));
    auto good = proxy.subscribeValue<int>("Counter.Value", [&](const int&) { ++second; });
    proxy.setValue("Counter.Value", 5, true);
    proxy.flush();
    EXPECT_EQ(second.load(), 1);
}

TEST(DataProxy, UnsubscribingIsSafeWhileNotificationsAreInFlight) {
    DataProxy<std::string> proxy;
    proxy.setValue("Load.Value", 0, false);
    for (int round = 0; round < 50; ++round) {
        // An "element" whose state dies with its subscription: the callback must never touch it afterwards.
        auto state = std::make_unique<std::atomic<int>>(0);
        auto* raw = state.get();
        auto sub = proxy.subscribeValue<int>("Load.Value", [raw](const int& v) { raw->store(v); });
        std::thread setter([&] {
            for (int i = 0; i < 200; ++i)
                proxy.setValue("Load.Value", i, true);
        });
        std::this_thread::yield();
        sub.reset(); // after this returns the callback is not running and never runs again
        state.reset();
        setter.join();
    }
    proxy.flush();
    // Subscriptions may also outlive the store.
    Subscription late;
    {
        DataProxy<std::string> shortLived;
        shortLived.setValue("X", 1, false);
        late = shortLived.subscribeValue<int>("X", [](const int&) {});
    }
    late.reset();
}

TEST(DataProxy, DispatcherCanRewriteOrDropWrites) {
    DataProxy<std::string> proxy;
    proxy.registerDispatcher("Environment", std::make_shared<Dispatcher<std::string>>(
                                                [](const std::string& key, std::shared_ptr<Variant>& value) {
                                                    if (key == Id::Environment::EmissivityValue) {
                                                        float e = value->value<float>();
                                                        if (e <= 0.0f || e > 1.0f)
                                                            return false; // drop
                                                    }
                                                    return true;
                                                }));
    proxy.setValue(Id::Environment::EmissivityValue, 0.9f, false);
    proxy.setValue(Id::Environment::EmissivityValue, 1.7f, false);
    EXPECT_EQ(proxy.getValue<float>(Id::Environment::EmissivityValue), 0.9f);
    EXPECT_EQ(messageOf([&] {
                  proxy.registerDispatcher("Environment", std::make_shared<Dispatcher<std::string>>(nullptr));
              }),
              "norda::exp::DataProxy::registerDispatcher");
}

TEST(DataProxy, DefaultParametersCoverTheLibraryKeysWithTheirTypes) {
    DataProxy<std::string> proxy;
    setDefaultParameters(proxy);
    EXPECT_EQ(proxy.getValue<unsigned short>(Id::IrImage::Cols), 640);
    EXPECT_EQ(proxy.getValue<unsigned char>(Id::ActiveMeasRange::Name), 1);
    EXPECT_FLOAT_EQ(
        proxy.getValue<quantity::Temperature<MarkedFloat>>(Id::ActiveMeasRange::ToleranceTop).celsius(),
        120.0f);
    EXPECT_EQ(proxy.getValue<std::string>(Id::Scaling::Mode), Id::Scaling::Auto);
    EXPECT_EQ(proxy.getValue<std::vector<unsigned char>>(Id::Palette::Colors).size(), 768u);
    EXPECT_TRUE(proxy.getValue<bool>(Id::MeasPoints::HotSpot::Visible));

    activateMeasRange(proxy, 2);
    proxy.flush();
    EXPECT_EQ(proxy.getValue<unsigned char>(Id::ActiveMeasRange::Name), 2);
    EXPECT_FLOAT_EQ(
        proxy.getValue<quantity::Temperature<MarkedFloat>>(Id::ActiveMeasRange::ToleranceTop).celsius(),
        350.0f);
    EXPECT_THROW(activateMeasRange(proxy, 7), norda::Exception);
}
