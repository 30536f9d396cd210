#ifdef NORDACAM_CORE
#include "apps/nordacam/FactoryViews.h"
#include "apps/nordacam/Tools.h"

#include "tests/support/TempDir.h"

#include <gtest/gtest.h>

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

} // namespace
#endif
