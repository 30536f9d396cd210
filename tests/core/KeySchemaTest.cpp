// The key schema against the keys the elements' descriptions name, with the types given there,
// and the store a factory reset leaves.
#include "nordalib/core/keys/KeySchema.h"
#include "nordalib/core/datatypes/MeasArea.h"
#include "nordalib/core/datatypes/Quantity.h"
#include "nordalib/core/keys/DefaultParameters.h"
#include "nordalib/core/keys/Keys.h"

#include <gtest/gtest.h>
#include <opencv2/core.hpp>

#include <set>

using namespace norda::exp;

namespace {

using Temp = quantity::Temperature<MarkedFloat>;
using Rel = quantity::Relation<MarkedFloat>;
struct Named {
    std::string key;
    std::type_index type; // typeid(void): the description gives no type
};
template <typename T> Named k(const std::string& key) {
    return {key, typeid(T)};
}

// Transcribed from the elements' key tables (value types as written there: "unsigned 8-bit" is
// unsigned char, "16-bit signed" short, "unsigned 32-bit" unsigned int, "pixel value" unsigned
// short, a range pool "map" a DataStorage, an uptime "integer, milliseconds" unsigned long long).
std::vector<Named> describedKeys() {
    std::vector<Named> keys = {k<std::string>("Shutter.State"),
                               k<cv::Mat>("Shutter.OffsetFrame"),
                               k<bool>("Shutter.Closed"),
                               k<bool>("Streaming.DisableOffset"),
                               k<void>("Streaming.UpdateValues"),
                               k<bool>("Streaming.WarmUp"),
                               k<unsigned char>("ActiveMeasRange.TnrGain"),
                               k<unsigned short>("ActiveMeasRange.TnrAlpha"),
                               k<Temp>("ActiveMeasRange.ToleranceTop"),
                               k<Temp>("ActiveMeasRange.ToleranceBottom"),
                               k<Temp>("ActiveMeasRange.DisplayTop"),
                               k<Temp>("ActiveMeasRange.DisplayBottom"),
                               k<Temp>("ActiveMeasRange.Top"),
                               k<Temp>("ActiveMeasRange.Bottom"),
                               k<unsigned char>("ActiveMeasRange.Name"),
                               k<DataStorage<std::string>>("MeasRangePool"),
                               k<bool>("MeasRangeSettings.EnableAutoRange"),
                               k<bool>("SprElement.Active"),
                               k<short>("SprElement.Threshold"),
                               k<short>("SprElement.LineLimit"),
                               k<short>("SprElement.FrameLimit"),
                               k<bool>("SnrElement.Active"),
                               k<float>("Environment.EmissivityValue"),
                               k<Temp>("Environment.ReflectedTemperature"),
                               k<Rel>("Environment.Humidity"),
                               k<bool>("Environment.HumidityModeActive"),
                               k<Temp>("Environment.Temperature"),
                               k<void>("Temperatures.Current.TBoardSens50"),
                               k<void>("Temperatures.Current.TBoardSlope"),
                               k<void>("Temperatures.Current.TLens"),
                               k<void>("Temperatures.Shuttering.TBoardSens50"),
                               k<void>("Temperatures.Shuttering.TShutter"),
                               k<bool>("Temperatures.Validity"),
                               k<unsigned long long>("DeviceInfo.Uptime"),
                               k<bool>("DeviceFeatures.FastFrameAvailable"),
                               k<void>("ActiveLens.Attached"),
                               k<void>("ActiveLens.Index"),
                               k<void>("ActiveLens.Serial"),
                               k<void>("ProtectiveGlass.Attached"),
                               k<void>("ProtectiveGlass.Transmission"),
                               k<void>("ProtectiveGlass.Emissivity"),
                               k<bool>("Gallery.ForceUpdate"),
                               k<std::string>("Gallery.ActiveFilename"),
                               k<bool>("DeltaT.Active"),
                               k<std::string>("DeltaT.Mode"),
                               k<bool>("MeasAreas.CenterArea.Visible"),
                               k<MeasArea>("MeasAreas.CenterArea.MeasArea"),
                               k<cv::Rect_<int>>("MeasAreas.CenterArea.Rect"),
                               k<Temp>("IrImage.Min"),
                               k<Temp>("IrImage.Max"),
                               k<Temp>("IrImage.Med"),
                               k<void>("IrImage.Cols"),
                               k<void>("IrImage.Rows"),
                               k<void>("IrSensor.BadPixelList"),
                               k<std::string>("Scaling.Mode"),
                               k<Temp>("Scaling.TempMin"),
                               k<Temp>("Scaling.TempMax"),
                               k<unsigned short>("Scaling.Min"),
                               k<unsigned short>("Scaling.Max"),
                               k<Temp>("Scaling.TempIn"),
                               k<Temp>("Scaling.TempOut"),
                               k<std::string>("Palette.ActivePalette"),
                               k<std::vector<unsigned char>>("Palette.Colors"),
                               k<bool>("Alarm.AlarmBottomActive"),
                               k<bool>("Alarm.AlarmTopActive"),
                               k<unsigned int>("Alarm.AlarmTopColor"),
                               k<unsigned int>("Alarm.AlarmBottomColor"),
                               k<Temp>("Alarm.AlarmBottomValue"),
                               k<Temp>("Alarm.AlarmTopValue"),
                               k<bool>("Isotherme.IsothermeActive"),
                               k<unsigned int>("Isotherme.IsothermeColor"),
                               k<Temp>("Isotherme.IsothermeTopValue"),
                               k<Temp>("Isotherme.IsothermeBottomValue"),
                               k<int>("Miscellaneous.SuperResolutionCount"),
                               k<std::vector<std::string>>("Miscellaneous.SuperResolutionDeleteRequest"),
                               k<bool>("Miscellaneous.WarnSrMovementDetected"),
                               k<bool>("Miscellaneous.ErrorImageSaving"),
                               k<void>("Miscellaneous.ImageCounter"),
                               k<void>("Miscellaneous.ImageRealSave"),
                               k<void>("Miscellaneous.LastImageFileName"),
                               k<void>("Miscellaneous.SaveImageMode"),
                               k<void>("Miscellaneous.SaveJpeg"),
                               k<void>("Miscellaneous.SpinnerVisible"),
                               k<void>("Miscellaneous.SuperResolution"),
                               k<void>("PlaceTag.MeasSiteFolder"),
                               k<void>("PlaceTag.SiteInUse"),
                               k<void>("Images.GuiJpeg"),
                               k<void>("Viscam.CaptureTime"),
                               k<void>("Viscam.CurrentImageResolution"),
                               k<void>("Viscam.MaximumImageLatency")};
    for (const char* p : {"HotSpot", "ColdSpot", "CenterSpot", "LaserSpot", "MeasPoint1", "MeasPoint2",
                          "MeasPoint3", "MeasPoint4", "MeasPoint5", "DeltaT1", "DeltaT2"}) {
        const std::string prefix = std::string("MeasPoints.") + p;
        keys.push_back(k<MeasPoint>(prefix + ".MeasPoint"));
        keys.push_back(k<cv::Point_<int>>(prefix + ".Position"));
        if (prefix.find("DeltaT") == std::string::npos)
            keys.push_back(k<bool>(prefix + ".Visible"));
    }
    return keys;
}

} // namespace

TEST(KeySchemaTest, HoldsEveryDescribedKeyWithItsTypeAndItsDefault) {
    std::set<std::string> names;
    for (const auto& keySpec : keySchema())
        EXPECT_TRUE(names.insert(keySpec.name).second) << keySpec.name << " is listed twice";
    for (const auto& described : describedKeys()) {
        const KeySpec* keySpec = findKey(described.key);
        ASSERT_NE(keySpec, nullptr) << described.key;
        if (described.type != typeid(void)) {
            EXPECT_EQ(keySpec->type, described.type) << described.key << " is " << keySpec->typeName();
        }
    }
    EXPECT_EQ(findKey("Environment.NoSuchKey"), nullptr);

    // A factory reset writes every default with the schema's type (the vision libraries add theirs).
    DataProxy<std::string> store;
    setDefaultParameters(store);
    for (const auto& keySpec : keySchema())
        if (keySpec.defaultValue) {
            ASSERT_TRUE(store.contains(keySpec.name)) << keySpec.name;
            EXPECT_EQ(store.get(keySpec.name)->type(), keySpec.type) << keySpec.name;
        }
    EXPECT_FLOAT_EQ(store.getValue<float>(Id::Environment::EmissivityValue), 0.95f);
    EXPECT_EQ(store.getValue<unsigned char>(Id::ActiveMeasRange::Name), 1);
}

TEST(KeySchemaTest, RangesAndWhoWritesWhat) {
    const KeySpec& emissivity = *findKey(Id::Environment::EmissivityValue);
    EXPECT_EQ(rangeProblem(emissivity, Variant_<float>(1.0f)), "");
    EXPECT_EQ(rangeProblem(emissivity, Variant_<float>(0.0f)), "an emissivity must lie in (0, 1] (got 0)");
    EXPECT_NE(rangeProblem(emissivity, Variant_<float>(1.01f)), "");
    // The user points' and areas' own emissivities obey the same range.
    for (const auto& m : userMarks())
        EXPECT_NE(rangeProblem(*findKey(m.emissivity), Variant_<float>(-0.5f)), "") << m.name;
    const KeySpec& reflected = *findKey(Id::Environment::ReflectedTemperature);
    EXPECT_EQ(rangeProblem(reflected, Variant_<Temp>(Temp(MarkedFloat(-100.0f)))), "");
    EXPECT_NE(rangeProblem(reflected, Variant_<Temp>(Temp(MarkedFloat(1100.0f)))), "");
    EXPECT_EQ(rangeProblem(*findKey(Id::Environment::Humidity), Variant_<Rel>(Rel(MarkedFloat(1.5f)))),
              "a relative humidity must lie in [0, 100] % (got 150 %)");

    // Settings are written from outside and kept; results are read-only.
    EXPECT_TRUE(findKey(Id::Environment::EmissivityValue)->saved());
    EXPECT_FALSE(findKey(Id::MeasPoints::MeasPoint3::MeasPoint)->writable());
    EXPECT_FALSE(findKey(Id::Shutter::State)->writable());
    EXPECT_TRUE(findKey(Id::ActiveLens::Serial)->writable());
    EXPECT_FALSE(findKey(Id::ActiveLens::Serial)->saved());

    // Five points and three areas, each with keys of its own.
    std::set<std::string> markKeys;
    int points = 0, areas = 0;
    for (const auto& m : userMarks()) {
        (m.area ? areas : points)++;
        for (const std::string* key : {&m.visible, m.area ? &m.rect : &m.position, &m.result,
                                       &m.localParameters, &m.emissivity, &m.reflectedTemperature}) {
            EXPECT_TRUE(markKeys.insert(*key).second) << *key;
            EXPECT_NE(findKey(*key), nullptr) << *key;
        }
    }
    EXPECT_EQ(points, 5);
    EXPECT_EQ(areas, 3);
    EXPECT_EQ(deltaTResultNames().size(), 13u);
}
