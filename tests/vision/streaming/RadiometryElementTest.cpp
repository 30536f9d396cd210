#include "nordalib/vision/streaming/RadiometryElement.h"
#include "nordalib/core/keys/DefaultParameters.h"
#include "tests/vision/TestSupport.h"

#include <gtest/gtest.h>

using namespace norda;
using namespace norda::exp;
using namespace norda::exp::streaming;

namespace {
constexpr int kCols = 8, kRows = 4;

struct RadiometryElementTest : ::testing::Test {
    RadiometryElementTest() {
        setDefaultParameters(proxy);
        proxy.setValue<unsigned short>(Id::IrImage::Cols, kCols, false);
        proxy.setValue<unsigned short>(Id::IrImage::Rows, kRows, false);
    }
    // Runs one frame; returns process()'s result.
    bool run(RadiometryElement& e, DataStorage<std::string> meta, short value = 1000, int rows = kRows) {
        in.clear();
        in[STREAMING_DATATYPE_CORRECTED] =
            std::make_unique<Frame>(cv::Mat(rows, kCols, CV_16S, cv::Scalar(value)), std::move(meta));
        return e.process(in, out);
    }
    bool valid() const {
        return out.at(STREAMING_DATATYPE_RAD)->getMetaData().get<bool>(Id::Temperatures::Validity);
    }
    void reload() {
        proxy.setValue(Id::Streaming::UpdateValues, true);
        proxy.flush();
    }

    DataProxy<std::string> proxy;
    test::LogCapture logs;
    FrameMap in, out;
};
} // namespace

TEST_F(RadiometryElementTest, ConstructionLoadAndLensStates) {
    RadiometryElement e(&proxy, test::calibrationDir(), vision::RadiometricCamTypeA);
    EXPECT_EQ(logs.count("load/reload radiomety data"), 0); // loaded on the first frame, not before

    // A valid frame: loads the model, computes temperatures, drops stale extrema.
    auto meta = test::radiometricMeta();
    meta.setValue(Id::IrImage::Min, test::celsius(1.0f));
    meta.setValue(Id::IrImage::Max, test::celsius(2.0f));
    meta.setValue(Id::Temperatures::Validity, false);
    ASSERT_TRUE(run(e, meta));
    EXPECT_EQ(logs.count("load/reload radiomety data"), 1);
    EXPECT_TRUE(valid());
    const auto& m = out[STREAMING_DATATYPE_RAD]->getMetaData();
    EXPECT_FALSE(m.contains(Id::IrImage::Min));
    EXPECT_FALSE(m.contains(Id::IrImage::Max));
    EXPECT_TRUE(m.contains(Id::Environment::EmissivityValue));
    EXPECT_TRUE(in[STREAMING_DATATYPE_CORRECTED]->getMetaData().empty());

    // Lens not attached: no output, metadata gone from the input.
    out.clear();
    meta = test::radiometricMeta();
    meta.setValue(Id::ActiveLens::Attached, false);
    EXPECT_FALSE(run(e, meta));
    EXPECT_FALSE(out.count(STREAMING_DATATYPE_RAD));
    EXPECT_TRUE(in[STREAMING_DATATYPE_CORRECTED]->getMetaData().empty());

    // Lens index 0: dummy frames, one message per episode, "error gone" when it ends.
    meta = test::radiometricMeta();
    meta.setValue<unsigned char>(Id::ActiveLens::Index, 0);
    for (int i = 0; i < 3; ++i) {
        ASSERT_TRUE(run(e, meta, -32768));
        EXPECT_FALSE(valid());
    }
    EXPECT_EQ(logs.count("No valid Lens --> Calculate dummy values!"), 3 - 2);
    EXPECT_EQ(out[STREAMING_DATATYPE_RAD]->getFrameData().at<uint16_t>(0, 0), 0);
    ASSERT_TRUE(run(e, meta, 0));
    EXPECT_EQ(out[STREAMING_DATATYPE_RAD]->getFrameData().at<uint16_t>(1, 1), 32768);
    ASSERT_TRUE(run(e, meta, 32767));
    EXPECT_EQ(out[STREAMING_DATATYPE_RAD]->getFrameData().at<uint16_t>(3, 7), 65535);
    ASSERT_TRUE(run(e, test::radiometricMeta()));
    EXPECT_TRUE(valid());
    EXPECT_EQ(logs.count("Frame processing success (error gone)"), 1);

    // A frame of the wrong type is a processing failure: a dummy frame, never converted pixels.
    in[STREAMING_DATATYPE_CORRECTED] =
        std::make_unique<Frame>(cv::Mat(kRows, kCols, CV_8UC3, cv::Scalar::all(9)), test::radiometricMeta());
    ASSERT_TRUE(e.process(in, out));
    EXPECT_FALSE(valid());
    EXPECT_EQ(cv::countNonZero(out[STREAMING_DATATYPE_RAD]->getFrameData()), 0);
    EXPECT_EQ(
        logs.count(
            "Error processing frame: frame of type 16 is not CV_16SC1 ...Dummy values will be calculated!"),
        1);
}

TEST_F(RadiometryElementTest, ErrorBudgetAndReload) {
    RadiometryElement e(&proxy, test::calibrationDir(), vision::RadiometricCamTypeA);
    // Processing failures (frame of the wrong size): each costs one unit and yields a dummy frame.
    for (int i = 0; i < 100; ++i) {
        ASSERT_TRUE(run(e, test::radiometricMeta(), 5, kRows + 1));
        ASSERT_FALSE(valid());
    }
    EXPECT_EQ(
        logs.countPrefix("Error processing frame: frame size 8x5 does not match", logging::LogLevel::error),
        1);
    // Budget spent: even a good frame is a dummy now, without calling the model.
    ASSERT_TRUE(run(e, test::radiometricMeta(), 7));
    EXPECT_FALSE(valid());
    EXPECT_EQ(out[STREAMING_DATATYPE_RAD]->getFrameData().at<uint16_t>(0, 0), 32775);
    // A reload restores the budget.
    reload();
    ASSERT_TRUE(run(e, test::radiometricMeta()));
    EXPECT_TRUE(valid());
    EXPECT_EQ(logs.count("load/reload radiomety data"), 2);
    EXPECT_EQ(logs.count("Frame processing success (error gone)"), 1);

    // Metadata failures drop the frame until the budget runs out; the 100th becomes a dummy.
    logs.clear();
    out.clear();
    auto bad = test::radiometricMeta();
    bad.setValue(Id::Environment::EmissivityValue, 0.9); // double instead of float
    for (int i = 0; i < 99; ++i)
        ASSERT_FALSE(run(e, bad));
    EXPECT_FALSE(out.count(STREAMING_DATATYPE_RAD));
    ASSERT_TRUE(run(e, bad));
    EXPECT_FALSE(valid());
    ASSERT_EQ(logs.records().size(), 1u);
    EXPECT_EQ(logs.records()[0].message,
              "Error setting meta data for frame: Variant-type (double)!= Template-type "
              "(float)  - frame(s) are dropped");
    EXPECT_EQ(logs.records()[0].level, logging::LogLevel::error);
}

TEST_F(RadiometryElementTest, ProtectiveGlassRuleAndSlowFrames) {
    RadiometryElement e(&proxy, test::calibrationDir(), vision::RadiometricCamTypeB);
    // Without glass, the glass values of the metadata are ignored (1.0 / 0.0 reach the model),
    // even when they are unusable.
    auto noGlass = test::radiometricMeta(0.95f, 20.0f, 1, false);
    noGlass.setValue(Id::ProtectiveGlass::Transmission, 7.0f);
    ASSERT_TRUE(run(e, noGlass, 2000));
    ASSERT_TRUE(valid());
    const auto bare = out[STREAMING_DATATYPE_RAD]->getFrameData().at<uint16_t>(0, 0);
    // With glass, the same signal means a hotter object (the glass absorbs part of its radiation).
    ASSERT_TRUE(run(e, test::radiometricMeta(0.95f, 20.0f, 1, true), 2000));
    ASSERT_TRUE(valid());
    EXPECT_GT(out[STREAMING_DATATYPE_RAD]->getFrameData().at<uint16_t>(0, 0), bare + 100);
    auto badGlass = test::radiometricMeta(0.95f, 20.0f, 1, true);
    badGlass.setValue(Id::ProtectiveGlass::Transmission, 7.0f);
    EXPECT_FALSE(run(e, badGlass));
    // Transmission and emissivity of the glass adding up to more than 1 are no physics: a dummy frame.
    badGlass.setValue(Id::ProtectiveGlass::Transmission, 0.98f);
    ASSERT_TRUE(run(e, badGlass));
    EXPECT_FALSE(valid());

    // Fast frames unavailable: the type B model runs in slow-frame mode.
    proxy.setValue(Id::DeviceFeatures::FastFrameAvailable, false, false);
    reload();
    ASSERT_TRUE(run(e, noGlass, 2000));
    ASSERT_TRUE(valid());
}

// The air and window of the frame's metadata enter the temperatures (re-analysis against the live
// chain: NordacamThermography); the laser's distance replaces the set one while its spot is found.
TEST_F(RadiometryElementTest, AirWindowAndLaserDistanceEnterTheTemperatures) {
    RadiometryElement e(&proxy, test::calibrationDir(), vision::RadiometricCamTypeA);
    auto temperatures = [&](const DataStorage<std::string>& meta) {
        in.clear();
        cv::Mat ramp(kRows, kCols, CV_16S);
        for (int i = 0; i < kRows * kCols; ++i)
            ramp.at<short>(i) = static_cast<short>(-3000 + 900 * i); // about -10 to 400 °C
        in[STREAMING_DATATYPE_CORRECTED] = std::make_unique<Frame>(ramp, DataStorage<std::string>(meta));
        EXPECT_TRUE(e.process(in, out));
        EXPECT_TRUE(valid());
        return cv::Mat_<uint16_t>(out.at(STREAMING_DATATYPE_RAD)->getFrameData().clone());
    };
    auto humid = [](float distance, bool ownWindow = true) {
        auto m = test::radiometricMeta(0.95f, 20.0f, 1, true);
        m.setValue(Id::Environment::AirCorrection, true);
        m.setValue(Id::Environment::Distance, distance);
        m.setValue(Id::Environment::Temperature, test::celsius(30.0f));
        m.setValue(Id::Environment::Humidity, quantity::Relation<MarkedFloat>(MarkedFloat(0.8f)));
        m.setValue(Id::ProtectiveGlass::Reflectance, 0.02f);
        m.setValue(Id::ProtectiveGlass::OwnTemperature, ownWindow);
        m.setValue(Id::ProtectiveGlass::Temperature, test::celsius(35.0f));
        return m;
    };
    const auto plain = temperatures(test::radiometricMeta(0.95f, 20.0f, 1, true));
    const auto far = temperatures(humid(1000.0f));
    const auto near = temperatures(humid(10.0f));
    // Warm objects behind absorbing air read warmer once corrected, the more the farther; a window
    // warmer than the room adds signal, so the object reads colder than with the window at 20 °C.
    EXPECT_GT(far(kRows - 1, kCols - 1), near(kRows - 1, kCols - 1) + 500);
    EXPECT_GT(near(kRows - 1, kCols - 1), plain(kRows - 1, kCols - 1));
    EXPECT_GT(temperatures(humid(10.0f, false))(kRows - 1, kCols - 1), near(kRows - 1, kCols - 1));

    // The laser's distance while its spot is found, kept in the frame; not once it is lost.
    auto laser = humid(1000.0f);
    laser.setValue(Id::Environment::DistanceFromLaser, true);
    proxy.setValue(Id::Laser::Distance, 10.0f, false);
    proxy.setValue(Id::Laser::Status, std::string("Found"), false);
    EXPECT_EQ(cv::countNonZero(temperatures(laser) != near), 0);
    EXPECT_EQ(out.at(STREAMING_DATATYPE_RAD)->getMetaData().get<float>(Id::Environment::Distance), 10.0f);
    proxy.setValue(Id::Laser::Status, std::string("NotFound"), false);
    EXPECT_EQ(cv::countNonZero(temperatures(laser) != far), 0);
}
