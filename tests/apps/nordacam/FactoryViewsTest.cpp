#ifdef NORDACAM_CORE
#include "apps/nordacam/FactoryViews.h"
#include "apps/nordacam/CalibTools.h"
#include "apps/nordacam/sim/physics/Microbolometer.h"

#include "nordalib/vision/imgproc/BadPixelMap.h"

#include "tests/support/TempDir.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <sstream>

namespace {
using nordacam::FactoryViewOptions;
using nordacam::FactoryViews;

// The whole radiometric calibration of range 1: the views rendered by the physical simulator, the
// fit command, then fresh views (other blackbody and board temperatures) converted with the fitted
// file, against the blackbody temperatures the simulator was given. The camera is one the library's
// model describes: a stabilised focal plane (constant responsivity); the default camera's 1/T^2
// responsivity is what the model misses (see docs/calibration.md). A wrong sign, swapped
// conditions or a fit stopped early miss by kelvins.
TEST(FactoryViews, RadiometricCalibrationMeetsItsGoalsAgainstTheSimulatorsTruth) {
    norda::test::TempDir dir;
    FactoryViewOptions o;
    o.reduced = true;
    o.ranges = {1};
    o.boardsC = {37.0, 39.0, 41.0};
    o.checkBoardsC = {38.0, 40.0};
    o.camera.detector.responsivityExponent = 0.0;
    const FactoryViews views(o);
    const std::string folder = dir.file("views");
    views.radiometry(folder);
    std::ostringstream log;
    ASSERT_EQ(nordacam::calibFitRadiometry(folder, dir.file("radiometry.json"), "", log), 0) << log.str();
    const auto check = views.checkRadiometry(dir.file("radiometry.json"));
    ASSERT_EQ(check.size(), 1u);
    EXPECT_EQ(check[0].views, 8u);
    EXPECT_LE(check[0].rmsK, 0.1);
    EXPECT_LE(std::abs(check[0].worstK), 0.3);
}

// The checked-in calibration (make calibrate from the simulator's views) against the simulator's
// truth: fresh blackbody views, the lens, the rig from 0.5 to 10 m, the detector's planted defects.
TEST(FactoryViews, ShippedCalibrationMeasuresTheSimulatorsTruth) {
    const std::string shipped = std::string(NORDA_SOURCE_DIR) + "/data/calibration/";
    FactoryViewOptions o;
    o.reduced = true;
    const FactoryViews views(o);
    for (const auto& c : views.checkRadiometry(shipped + "radiometry.json")) {
        EXPECT_LE(c.rmsK, 0.1) << c.range;
        EXPECT_LE(std::abs(c.worstK), 0.3) << c.range;
    }
    EXPECT_LE(views.checkDistortion(shipped + "lens1/distort.pxm").rmsPx, 0.2);
    const auto rig = views.checkRegistration(shipped + "registration.json", shipped + "lens1/distort.pxm");
    ASSERT_EQ(rig.size(), std::size(FactoryViews::kCheckDistances));
    for (const auto& c : rig) {
        EXPECT_LE(c.worstPx, 1.0) << c.distance;
        EXPECT_LE(c.laserPx, 1.0) << c.distance;
        EXPECT_LE(std::abs(c.laserDistancePercent), c.distance <= 5.0 ? 3.0 : 6.0) << c.distance;
    }
    // Dead and stuck pixels are where the simulated detector has them (the fit marks both dead).
    const nordacam::sim::physics::Microbolometer detector(o.camera.detector);
    auto planted = detector.deadPixels();
    planted.insert(planted.end(), detector.stuckPixels().begin(), detector.stuckPixels().end());
    const auto found = norda::vision::BadPixelMap::read(shipped + "badpixel.pxm");
    ASSERT_EQ(found.size(), planted.size());
    for (const auto& p : planted)
        EXPECT_EQ(std::count_if(found.begin(), found.end(),
                                [&](const auto& b) { return b.x == p.x && b.y == p.y; }),
                  1)
            << p;
    // The gain table is the detector's within the flat fields' noise and takes most of the
    // pattern off a hot uniform scene (a 0.2 % spread over thousands of counts from the shutter).
    for (const auto& c : views.checkGain(shipped + "gain.pxm")) {
        EXPECT_LE(c.gainErrorSigma, 0.001);
        EXPECT_LE(c.withK, 0.6 * c.withoutK) << c.blackbodyC;
        EXPECT_GE(c.withK, c.temporalK) << c.blackbodyC; // no table beats the noise
    }
}

// The registration from views of the simulator's rig: stereo grid views and laser spots, the fit
// command, then the fitted file against the rig's truth. A transposed rotation, a baseline or laser
// ray with a wrong sign, or swapped image axes miss by many pixels.
TEST(FactoryViews, RegistrationCalibrationMeetsItsGoalsAgainstTheSimulatorsTruth) {
    norda::test::TempDir dir;
    FactoryViewOptions o;
    o.reduced = true;
    const FactoryViews views(o);
    views.registration(dir.file("views"));
    std::ostringstream log;
    ASSERT_EQ(nordacam::calibFitRegistration(dir.file("views"), dir.file("registration.json"), log), 0)
        << log.str();
    // The lens table of the shipped calibration: the registration's infrared camera is its output.
    const auto rig = views.checkRegistration(
        dir.file("registration.json"), std::string(NORDA_SOURCE_DIR) + "/data/calibration/lens1/distort.pxm");
    for (const auto& c : rig) {
        EXPECT_LE(c.worstPx, 1.0) << c.distance;
        EXPECT_LE(c.laserPx, 1.0) << c.distance;
        EXPECT_LE(std::abs(c.laserDistancePercent), c.distance <= 5.0 ? 3.0 : 6.0) << c.distance;
    }
}

} // namespace
#endif
