#ifdef NORDACAM_CORE
#include "apps/nordacam/Settings.h"
#include "apps/nordacam/HostChecks.h"
#include "apps/nordacam/MeasRangeFollower.h"

#include "nordalib/core/datatypes/Quantity.h"
#include "nordalib/core/keys/DefaultParameters.h"
#include "nordalib/core/keys/Keys.h"
#include "tests/support/TempDir.h"

#include <gtest/gtest.h>

#include <atomic>
#include <fstream>

using namespace norda::exp;
using namespace nordacam;
using Temp = quantity::Temperature<MarkedFloat>;
using json = nlohmann::json;

namespace {

void writeFile(const std::string& path, const std::string& text) {
    std::ofstream(path) << text;
}

std::string errorOf(const std::function<void()>& f) {
    try {
        f();
    } catch (const SettingsError& e) {
        return e.what();
    }
    return "<no error>";
}

struct Store {
    DataProxy<std::string> store;
    Settings settings{store};
    Store() { setDefaultParameters(store); }
};

} // namespace

TEST(NordacamSettings, ValuesFollowTheKeysTypeAndRejectBadInput) {
    Store s;
    // Numbers, booleans and text of the command line.
    s.settings.applyAssignment("Environment.EmissivityValue=0.82");
    s.settings.applyAssignment("Alarm.AlarmTopActive=true");
    s.settings.applyAssignment("Miscellaneous.ImageCounter=41");
    s.settings.applyAssignment("Scaling.Mode=Manual");
    s.settings.applyAssignment("Palette.ActivePalette=rainbow");
    EXPECT_FLOAT_EQ(s.store.getValue<float>(Id::Environment::EmissivityValue), 0.82f);
    EXPECT_TRUE(s.store.getValue<bool>(Id::Alarm::AlarmTopActive));
    EXPECT_EQ(s.store.getValue<unsigned int>(Id::Miscellaneous::ImageCounter), 41u);
    EXPECT_EQ(s.store.getValue<std::string>(Id::Scaling::Mode), "Manual");
    // Command-line bytes that are not UTF-8 would make the settings unwritable as JSON.
    EXPECT_EQ(errorOf([&] { s.settings.applyAssignment("Scaling.Mode=Man\xff"); }),
              "setting Scaling.Mode: the text is not valid UTF-8");
    EXPECT_NO_THROW((void)s.settings.userSettings().dump());

    // Temperatures in their text form and the short forms.
    s.settings.applyAssignment("Scaling.TempMax=45");
    EXPECT_FLOAT_EQ(s.store.getValue<Temp>(Id::Scaling::TempMax).celsius(), 45.0f);
    s.settings.applyAssignment("Scaling.TempMin=293.15K");
    EXPECT_NEAR(s.store.getValue<Temp>(Id::Scaling::TempMin).celsius(), 20.0f, 1e-3);
    s.settings.applyAssignment("Environment.ReflectedTemperature=25,0,C");
    EXPECT_FLOAT_EQ(s.store.getValue<Temp>(Id::Environment::ReflectedTemperature).celsius(), 25.0f);
    s.settings.applyAssignment("Environment.Humidity=65%");
    EXPECT_NEAR(s.store.getValue<quantity::Relation<MarkedFloat>>(Id::Environment::Humidity).ratio(), 0.65f,
                1e-6);
    s.settings.applyAssignment("MeasPoints.MeasPoint1.Position=10,20");
    EXPECT_EQ(s.store.getValue<cv::Point_<int>>(Id::MeasPoints::MeasPoint1::Position),
              cv::Point_<int>(10, 20));

    // JSON values.
    s.settings.set(Id::Environment::EmissivityValue, json(0.9));
    s.settings.set(Id::Scaling::TempMax, json(60));
    EXPECT_FLOAT_EQ(s.store.getValue<Temp>(Id::Scaling::TempMax).celsius(), 60.0f);
    EXPECT_EQ(s.settings.get(Id::Environment::EmissivityValue), json(0.9)); // not 0.899999976

    // Bad input: one line naming the key, and the store unchanged.
    const std::pair<std::string, std::string> refused[] = {
        {"No.Such.Key=1", "unknown setting No.Such.Key"},
        {"Environment.EmissivityValue", "--set Environment.EmissivityValue: expected KEY=VALUE"},
        {"Environment.EmissivityValue=high", "setting Environment.EmissivityValue: \"high\" is not a valid "
                                             "float (an emissivity must lie in (0, 1])"},
        {"Miscellaneous.ImageCounter=-1",
         "setting Miscellaneous.ImageCounter: -1 is out of range for unsigned int"},
        {"Miscellaneous.ImageCounter=4294967296",
         "setting Miscellaneous.ImageCounter: 4294967296 is out of range for unsigned int"},
        {"Miscellaneous.ImageCounter=1.5",
         "setting Miscellaneous.ImageCounter: expected an integer, got 1.5"},
        {"IrImage.Max=20", "setting IrImage.Max is read-only"},
        {"Scaling.Min=20", "setting Scaling.Min is read-only"},
    };
    for (const auto& [assignment, error] : refused)
        EXPECT_EQ(errorOf([&] { s.settings.applyAssignment(assignment); }), error);
    EXPECT_EQ(errorOf([&] { s.settings.set(Id::Alarm::AlarmTopActive, json(3)); }),
              "setting Alarm.AlarmTopActive: expected a boolean, got 3");
    EXPECT_EQ(errorOf([&] { s.settings.set(Id::Scaling::Mode, json(true)); }),
              "setting Scaling.Mode: expected std::string, got a boolean");
    EXPECT_FLOAT_EQ(s.store.getValue<float>(Id::Environment::EmissivityValue), 0.9f);

    // Checks beyond the type.
    s.settings.addCheck(Id::Scaling::Mode, [](const Variant& v) {
        return v.value<std::string>() == "Sideways" ? std::string("not a mode") : std::string();
    });
    EXPECT_EQ(errorOf([&] { s.settings.applyAssignment("Scaling.Mode=Sideways"); }),
              "setting Scaling.Mode: not a mode");
    EXPECT_EQ(errorOf([&] {
                  s.settings.apply(json{{"Scaling.Mode", "Sideways"}}, "request");
              }),
              "request: setting Scaling.Mode: not a mode");
    EXPECT_EQ(s.store.getValue<std::string>(Id::Scaling::Mode), "Manual");
}

// Distance, humidity and window: refused with the accepted range, the previous value kept; the
// window's energy balance is weighed with the values of the same request.
TEST(NordacamSettings, AirAndWindowParametersAreRefusedOutsideTheirRanges) {
    Store s;
    addHostChecks(s.settings, s.store);
    s.settings.applyAssignment("Environment.Distance=30");
    const std::pair<std::string, std::string> refused[] = {
        {"Environment.Distance=0", "an object distance in m must lie in (0, 10000] (got 0)"},
        {"Environment.Distance=-5", "an object distance in m must lie in (0, 10000] (got -5)"},
        {"Environment.Distance=nan",
         "Distance: \"nan\" is not a valid float (an object distance in m must lie in (0, 10000])"},
        {"Environment.Distance=10001", "an object distance in m must lie in (0, 10000] (got 10001)"},
        {"Environment.Humidity=101%", "a relative humidity must lie in [0, 100] % (got 101 %)"},
        {"ProtectiveGlass.Transmission=0", "a transmission must lie in (0, 1] (got 0)"},
        {"ProtectiveGlass.Reflectance=0.1",
         "the window's transmission 0.92 + emissivity 0.05 + reflectance 0.1 = 1.070 must not exceed 1"},
    };
    for (const auto& [assignment, error] : refused)
        EXPECT_NE(errorOf([&] { s.settings.applyAssignment(assignment); }).find(error), std::string::npos)
            << assignment << ": " << errorOf([&] { s.settings.applyAssignment(assignment); });
    EXPECT_FLOAT_EQ(s.store.getValue<float>(Id::Environment::Distance), 30.0f);
    EXPECT_FLOAT_EQ(s.store.getValue<float>(Id::ProtectiveGlass::Reflectance), 0.0f);
    s.settings.apply(json{{"ProtectiveGlass.Reflectance", 0.1}, {"ProtectiveGlass.Transmission", 0.85}},
                     "request");
    EXPECT_FLOAT_EQ(s.store.getValue<float>(Id::ProtectiveGlass::Reflectance), 0.1f);
    EXPECT_EQ(
        errorOf([&] {
            s.settings.apply(json{{"ProtectiveGlass.Emissivity", 0.1}}, "request");
        }),
        "request: setting ProtectiveGlass.Emissivity: the window's transmission 0.85 + emissivity 0.1 + "
        "reflectance 0.1 = 1.050 must not exceed 1");
}

TEST(NordacamSettings, FileIsAppliedAllOrNothingAndSavedAtomically) {
    norda::test::TempDir dir;
    Store s;
    const auto path = dir.file("settings.json");

    writeFile(
        path,
        R"({"Environment.EmissivityValue": 0.7, "Scaling.TempMin": "10", "Alarm.AlarmTopActive": true})");
    s.settings.loadFile(path);
    EXPECT_FLOAT_EQ(s.store.getValue<float>(Id::Environment::EmissivityValue), 0.7f);
    EXPECT_EQ(s.settings.path(), path);

    // One bad entry: nothing of the file is applied.
    writeFile(path, R"({"Environment.EmissivityValue": 0.5, "Bogus.Key": 1})");
    EXPECT_EQ(errorOf([&] { s.settings.loadFile(path); }),
              "settings file " + path + ": unknown setting Bogus.Key");
    EXPECT_FLOAT_EQ(s.store.getValue<float>(Id::Environment::EmissivityValue), 0.7f);

    writeFile(path, R"({"Environment.EmissivityValue": 0.5,)");
    const auto malformed = errorOf([&] { s.settings.loadFile(path); });
    EXPECT_EQ(malformed.rfind("settings file " + path + ": malformed JSON", 0), 0u) << malformed;
    EXPECT_EQ(malformed.find('\n'), std::string::npos);
    writeFile(path, "[1, 2]");
    EXPECT_EQ(errorOf([&] { s.settings.loadFile(path); }),
              "settings file " + path + ": expected a JSON object of key/value pairs");

    // Saving keeps foreign keys, writes the user's keys (not results) and reads back the same.
    writeFile(path, R"({"Newer.Feature": 7})");
    s.settings.setPath(path);
    s.settings.applyAssignment("Miscellaneous.ImageCounter=12");
    s.settings.save();
    std::ifstream in(path);
    const auto saved = json::parse(in);
    EXPECT_EQ(saved["Newer.Feature"], 7);
    EXPECT_EQ(saved["Miscellaneous.ImageCounter"], 12);
    EXPECT_FALSE(saved.contains(Id::IrImage::Max));
    EXPECT_FALSE(saved.contains(Id::MeasPoints::HotSpot::MeasPoint));
    EXPECT_TRUE(saved.contains(Id::MeasPoints::HotSpot::Visible));

    Store fresh;
    json mine = saved;
    mine.erase("Newer.Feature");
    fresh.settings.apply(mine, "saved");
    EXPECT_EQ(fresh.settings.userSettings(), s.settings.userSettings());

    Store nowhere;
    nowhere.settings.setPath(dir.file("no/such/folder/settings.json"));
    EXPECT_THROW(nowhere.settings.save(), SettingsError);
}

TEST(NordacamMeasRange, ActiveRangeFollowsTheNameAndRefusesUnknownRanges) {
    DataProxy<std::string> store;
    setDefaultParameters(store);
    std::atomic<int> switchedTo{-1};
    MeasRangeFollower follower(store, [&](unsigned char r) { switchedTo = r; });
    store.flush();
    EXPECT_EQ(switchedTo.load(), 1);

    store.setValue<unsigned char>(Id::ActiveMeasRange::Name, 2, true);
    store.flush();
    store.flush(); // the follower's own writes are delivered in a second round
    EXPECT_EQ(switchedTo.load(), 2);
    EXPECT_EQ(follower.active(), 2);
    EXPECT_FLOAT_EQ(store.getValue<Temp>(Id::ActiveMeasRange::ToleranceTop).celsius(), 350.0f);
    EXPECT_FLOAT_EQ(store.getValue<Temp>(Id::ActiveMeasRange::DisplayBottom).celsius(), -10.0f);

    store.setValue<unsigned char>(Id::ActiveMeasRange::Name, 7, true);
    store.flush();
    store.flush();
    EXPECT_EQ(follower.active(), 2);
    EXPECT_EQ(store.getValue<unsigned char>(Id::ActiveMeasRange::Name), 2);
    EXPECT_EQ(switchedTo.load(), 2);
}
#endif
