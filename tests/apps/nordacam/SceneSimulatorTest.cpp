#ifdef NORDACAM_CORE
#include "apps/nordacam/sim/SceneSimulator.h"

#include "nordalib/core/datatypes/Quantity.h"
#include "nordalib/core/keys/DefaultParameters.h"
#include "nordalib/core/keys/Keys.h"

#include "nordalib/vision/radiometry/RadiometricCalibration.h"

#include <gtest/gtest.h>

using namespace norda::exp;
using namespace nordacam::sim;
using Temp = quantity::Temperature<MarkedFloat>;

namespace {

std::string stateOf(const Frame& f) {
    return f.getMetaData().get<std::string>(Id::Shutter::State);
}

SimulatorConfig smallConfig() {
    SimulatorConfig c;
    c.fps = 10.0;
    c.shutterPeriodS = 2.0;
    c.maxCaptureFrames = 6;
    return c;
}

} // namespace

TEST(SceneSimulator, ShutterSequenceFollowsTheOffsetElementOrFrameCount) {
    DataProxy<std::string> store;
    setDefaultParameters(store);
    SceneSimulator sim(store, smallConfig(), std::make_shared<PlanckResponse>());

    // Without an offset element the capture ends after maxCaptureFrames frames.
    std::vector<std::string> states;
    for (int i = 0; i < 8; ++i)
        states.push_back(stateOf(*sim.nextFrame()));
    const std::vector<std::string> expected = {"CaptureOffsetFrame",
                                               "CaptureOffsetFrame",
                                               "CaptureOffsetFrame",
                                               "CaptureOffsetFrame",
                                               "CaptureOffsetFrame",
                                               "CaptureOffsetFrame",
                                               "Opening",
                                               "Idle"};
    EXPECT_EQ(states, expected);
    EXPECT_EQ(store.getValue<std::string>(Id::Shutter::State), "Idle");

    // The next shutter event comes after the period (2 s at 10 frames/s from the capture start);
    // the offset element's "Opening" ends the capture early.
    auto frame = sim.nextFrame();
    for (int i = 9; i <= 20; ++i) {
        EXPECT_EQ(stateOf(*frame), "Idle") << i;
        EXPECT_FALSE(frame->getMetaData().get<bool>(Id::Shutter::Closed));
        frame = sim.nextFrame();
    }
    EXPECT_EQ(stateOf(*frame), "Closing");
    EXPECT_TRUE(frame->getMetaData().get<bool>(Id::Shutter::Closed));
    EXPECT_EQ(stateOf(*sim.nextFrame()), "CaptureOffsetFrame");
    EXPECT_EQ(stateOf(*sim.nextFrame()), "CaptureOffsetFrame");
    store.setValue(Id::Shutter::State, Id::Shutter::StateOpening, true);
    EXPECT_EQ(stateOf(*sim.nextFrame()), "Opening");
    EXPECT_EQ(stateOf(*sim.nextFrame()), "Idle");
}

TEST(SceneSimulator, FramesCarryTheMetadataTheChainReads) {
    DataProxy<std::string> store;
    setDefaultParameters(store);
    store.setValue(Id::Environment::EmissivityValue, 0.9f, false);
    SimulatorConfig config = smallConfig();
    config.uptimeStartMs = 100000;
    SceneSimulator sim(store, config, std::make_shared<PlanckResponse>());
    std::unique_ptr<Frame> f = sim.nextFrame();
    const cv::Mat_<uint16_t> shutter = f->getFrameData().clone(); // the first frame shows the shutter
    for (int i = 1; i < 12; ++i)
        f = sim.nextFrame();
    const auto& m = f->getMetaData();
    EXPECT_EQ(f->getFrameData().type(), CV_16UC1);
    EXPECT_EQ(f->getFrameData().size(), cv::Size(640, 480));
    EXPECT_EQ(m.get<unsigned long long>("FrameCnt"), 11u);
    EXPECT_EQ(m.get<unsigned long long>(Id::DeviceInfo::Uptime), 101100u);
    EXPECT_EQ(m.get<unsigned char>(Id::ActiveMeasRange::Name), 1);
    EXPECT_FLOAT_EQ(m.get<float>(Id::Environment::EmissivityValue), 0.9f);
    EXPECT_GT(m.get<Temp>(Id::Temperatures::Current::TBoardSens50).celsius(), config.ambientC);
    EXPECT_GT(m.get<float>(Id::Temperatures::Current::TBoardSlope), 0.0f); // still warming up
    EXPECT_LT(m.get<Temp>(Id::Temperatures::Shuttering::TShutter).celsius(),
              m.get<Temp>(Id::Temperatures::Shuttering::TBoardSens50).celsius());
    for (const auto* key : {&Id::Temperatures::Current::TLens, &Id::Environment::ReflectedTemperature,
                            &Id::Environment::Temperature})
        EXPECT_NO_THROW(m.get<Temp>(*key)) << *key;
    EXPECT_TRUE(m.get<bool>(Id::ActiveLens::Attached));
    EXPECT_EQ(m.get<unsigned char>(Id::ActiveLens::Index), 1);
    EXPECT_FALSE(m.get<bool>(Id::ProtectiveGlass::Attached));
    EXPECT_NO_THROW(m.get<float>(Id::Viscam::CaptureTime));

    // Stuck pixels saturate, dead pixels do not see the scene.
    const cv::Mat_<uint16_t> raw = f->getFrameData();
    ASSERT_FALSE(sim.stuckPixels().empty());
    for (const auto& p : sim.stuckPixels())
        EXPECT_EQ(raw(p), 16383);
    const auto truth = sim.truth();
    EXPECT_EQ(truth.frame, 11u);
    EXPECT_FLOAT_EQ(truth.hotC, config.hotC);

    // A range switch closes the shutter at once and changes the gain behind it.
    sim.setRange(2);
    auto high = sim.nextFrame();
    EXPECT_EQ(stateOf(*high), "Closing");
    EXPECT_EQ(high->getMetaData().get<unsigned char>(Id::ActiveMeasRange::Name), 1);
    high = sim.nextFrame();
    EXPECT_EQ(stateOf(*high), "CaptureOffsetFrame");
    EXPECT_EQ(high->getMetaData().get<unsigned char>(Id::ActiveMeasRange::Name), 2);
    for (int i = 0; i < 10 && stateOf(*high) != "Idle"; ++i)
        high = sim.nextFrame();
    ASSERT_EQ(stateOf(*high), "Idle");
    EXPECT_EQ(high->getMetaData().get<unsigned char>(Id::ActiveMeasRange::Name), 2);
    const cv::Mat_<uint16_t> highRaw = high->getFrameData();
    const cv::Point warm(static_cast<int>(truth.warmCentre.x), static_cast<int>(truth.warmCentre.y));
    const cv::Point wall(320, 20);
    // Against the shutter frame the dark-level pattern cancels, as in the offset element.
    auto contrast = [&](const cv::Mat_<uint16_t>& m) {
        return (m(warm) - shutter(warm)) - (m(wall) - shutter(wall));
    };
    PlanckResponse planck;
    Conditions low, highRange;
    highRange.range = 2;
    // The objects' own emissivity: the setting of 0.9 above changes what the chain computes, not
    // what the detector sees.
    low.emissivity = highRange.emissivity = 0.95f;
    const float wallC = sim.sceneTemperature(320.0f, 20.0f);
    EXPECT_NEAR(contrast(raw), planck.sceneCounts(37.0f, low) - planck.sceneCounts(wallC, low), 25.0f);
    EXPECT_NEAR(contrast(highRaw),
                planck.sceneCounts(37.0f, highRange) - planck.sceneCounts(wallC, highRange), 25.0f);
}

TEST(SceneSimulator, PlanckResponseHasTheConfiguredGain) {
    PlanckResponse r(40.0f);
    Conditions c;
    c.emissivity = 1.0f;
    EXPECT_NEAR(r.sceneCounts(30.5f, c) - r.sceneCounts(29.5f, c), 40.0f, 0.2f);
    c.range = 2;
    EXPECT_NEAR(r.sceneCounts(30.5f, c) - r.sceneCounts(29.5f, c), 10.0f, 0.1f);
    // A grey body reflects its surroundings: at emissivity 0.5 half of the contrast remains.
    c.range = 1;
    Conditions grey = c;
    grey.emissivity = 0.5f;
    EXPECT_NEAR(r.sceneCounts(60.0f, grey) - r.sceneCounts(20.0f, grey),
                0.5f * (r.sceneCounts(60.0f, c) - r.sceneCounts(20.0f, c)), 1.0f);
    c.shutterC = 25.0f;
    EXPECT_FLOAT_EQ(r.shutterCounts(c), r.sceneCounts(25.0f, c));
}

TEST(SceneSimulator, CalibratedResponseInvertsTheRadiometricModel) {
    const std::string dir = std::string(NORDA_SOURCE_DIR) + "/data/calibration/";
    auto response = makeResponse(dir);
    ASSERT_NE(response->describe().find("radiometry.json"), std::string::npos);
    const auto cal = norda::vision::RadiometricCalibration::load(dir + "radiometry.json");
    Conditions c;
    c.shutterC = 31.0f;
    c.boardC = c.boardAtShutterC = 33.0f;
    c.lensC = 27.0f;
    for (unsigned char range : {1, 2}) {
        c.range = range;
        norda::vision::RadiometricConditions rc;
        rc.emissivity = c.emissivity;
        rc.reflectedK = c.reflectedC + 273.15;
        rc.shutterK = c.shutterC + 273.15;
        rc.boardCurrentK = rc.boardShutteringK = c.boardC + 273.15;
        rc.lensK = c.lensC + 273.15;
        rc.lensTransmission = cal.lenses.at(1).transmission;
        for (float t : {0.0f, 37.0f, 85.0f}) {
            // What the offset element passes on: scene minus shutter counts.
            const double corrected = response->sceneCounts(t, c) - response->shutterCounts(c);
            const double back =
                norda::vision::RadiometricTools::objectTemperature(cal.ranges.at(range), rc, corrected) -
                273.15;
            EXPECT_NEAR(back, t, 0.02) << "range " << int(range);
        }
    }
}
#endif
