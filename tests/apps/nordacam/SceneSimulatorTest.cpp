#ifdef NORDACAM_CORE
#include "apps/nordacam/sim/SceneSimulator.h"

#include "nordalib/core/keys/DefaultParameters.h"
#include "nordalib/core/keys/Keys.h"

#include "nordalib/vision/radiometry/RadiometricCalibration.h"

#include <gtest/gtest.h>

using namespace norda::exp;
using namespace nordacam::sim;

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
    std::vector<std::string> expected(6, "CaptureOffsetFrame");
    expected.insert(expected.end(), {"Opening", "Idle"});
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

// The detector's counts: the configured responsivity, grey bodies reflecting their surroundings, and
// range switches closing the shutter at once. (Metadata and temperatures as the chain sees them are
// checked end to end by NordacamCamera.)
TEST(SceneSimulator, ResponseAndRangeSwitch) {
    PlanckResponse r(40.0f);
    Conditions c;
    c.emissivity = 1.0f;
    EXPECT_NEAR(r.sceneCounts(30.5f, c) - r.sceneCounts(29.5f, c), 40.0f, 0.2f);
    Conditions grey = c;
    grey.emissivity = 0.5f;
    EXPECT_NEAR(r.sceneCounts(60.0f, grey) - r.sceneCounts(20.0f, grey),
                0.5f * (r.sceneCounts(60.0f, c) - r.sceneCounts(20.0f, c)), 1.0f);

    DataProxy<std::string> store;
    setDefaultParameters(store);
    SceneSimulator sim(store, smallConfig(), std::make_shared<PlanckResponse>());
    for (int i = 0; i < 12; ++i)
        sim.nextFrame();
    sim.setRange(2);
    EXPECT_EQ(stateOf(*sim.nextFrame()), "Closing");
    const auto next = sim.nextFrame();
    EXPECT_EQ(stateOf(*next), "CaptureOffsetFrame");
    EXPECT_EQ(next->getMetaData().get<unsigned char>(Id::ActiveMeasRange::Name), 2);
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
