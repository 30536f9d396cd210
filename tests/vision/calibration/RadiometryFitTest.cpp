#include "nordalib/vision/calibration/RadiometryFit.h"
#include "nordalib/vision/radiometry/RadiometryTypeA.h"
#include "tests/vision/TestSupport.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <memory>

using namespace norda;
using namespace norda::vision;

namespace {
// The camera the views come from, written out here rather than taken from the library's model.
// Its responsivity goes as (303.15 K / Tboard)^n: a bolometer's -Ea / (k T^2) law is n = 2.
// `lag`: the housing's share, seen through the Planck curve at the housing's temperature, which
// follows the board as a first-order lag (settled: the board's temperature). T0 shifts the curve.
struct Truth {
    double R, B, F, O, drift, slope, slow, n, T0 = 0.0, lag = 0.0;
    double S(double k) const { return R / (std::exp(B / (k + T0)) - F) - O; }
    double corrected(double bb, double board, double boardShutter, double shutter, double boardSlope,
                     bool slowFrame, double housing = 0.0, double housingShutter = 0.0) const {
        if (housing == 0.0)
            housing = board, housingShutter = boardShutter;
        const double c = S(bb) - S(shutter) + drift * (board - boardShutter) + slope * boardSlope +
                         lag * (S(housing) - S(housingShutter));
        return std::pow(303.15 / board, n) * (slowFrame ? slow * c : c);
    }
};
const Truth kLow{410000.0, 1550.0, 1.3, -40.0, 11.0, 2.0, 1.0, 2.0};
const Truth kHigh{72000.0, 1390.0, 0.7, 15.0, 2.5, 0.4, 0.8, 0.5, 12.0};
constexpr double kC = 273.15;
constexpr double kNoise = 0.05; // counts, the standard deviation of a view's mean

// Ten blackbody temperatures over the band x three board temperatures x two states (just after
// the shutter closed, warmed since); range 2 has slow-frame views, range 1 board slopes.
std::vector<BlackbodyView> makeViews(cv::RNG& rng, const Truth& low = kLow, const Truth& high = kHigh) {
    std::vector<BlackbodyView> views;
    for (unsigned range : {1u, 2u}) {
        const Truth& t = range == 1 ? low : high;
        const double bottom = range == 1 ? -20.0 : 0.0, top = range == 1 ? 150.0 : 350.0;
        for (int i = 0; i < 10; ++i)
            for (double board : {25.0, 35.0, 45.0})
                for (int warmed = 0; warmed < 2; ++warmed) {
                    BlackbodyView v;
                    v.range = range;
                    v.blackbodyK = bottom + (top - bottom) * i / 9.0 + kC;
                    auto& c = v.conditions;
                    c.boardCurrentK = board + kC;
                    c.boardShutteringK = c.boardCurrentK - (warmed ? 1.5 + 0.1 * i : 0.0);
                    c.shutterK = c.boardShutteringK - 4.0;
                    c.boardSlope = range == 1 && warmed ? 0.5 * (i % 4) : 0.0; // K/min, warming up
                    v.slowFrame = range == 2 && warmed && i % 2;
                    v.name = fmt::format("r{}-bb{}-board{}{}", range, i, board, warmed ? "w" : "");
                    v.signal = t.corrected(v.blackbodyK, c.boardCurrentK, c.boardShutteringK, c.shutterK,
                                           c.boardSlope, v.slowFrame) +
                               rng.gaussian(kNoise);
                    v.noise = kNoise;
                    views.push_back(v);
                }
    }
    return views;
}

// Warm-up runs of range 1 (switched on cold at each ambient, the board rising 18 K with a 90 s time
// constant, the housing rising by 85 % of that, lagging by tauH): the shutter closes every 30 s,
// views 5, 15 and 28 s later. (Settled views: the chamber moved, every part alike.) The housing's temperature
// is the closed-form response of a first-order lag to the board's exponential rise; the views carry the
// board's log once a second.
constexpr double kShare = 0.85;
std::vector<BlackbodyView> warmUpViews(cv::RNG& rng, const Truth& t, double tauH,
                                       std::initializer_list<double> ambients) {
    constexpr double kRise = 18.0, kTauB = 90.0;
    std::vector<BlackbodyView> views;
    for (double ambient : ambients) {
        const double a = ambient + kC;
        auto board = [&](double s) { return a + kRise * (1.0 - std::exp(-s / kTauB)); };
        auto housing = [&](double s) {
            return a +
                   kShare * kRise *
                       (1.0 - (tauH * std::exp(-s / tauH) - kTauB * std::exp(-s / kTauB)) / (tauH - kTauB));
        };
        auto log = std::make_shared<BoardLog>();
        for (double s = 0.0; s <= 600.0; s += 1.0)
            log->emplace_back(s, board(s));
        for (double shutterAt = 30.0; shutterAt < 600.0; shutterAt += 30.0)
            for (double after : {5.0, 15.0, 28.0}) {
                BlackbodyView v;
                v.blackbodyK = (ambient < 20.0 ? 40.0 : 70.0) + kC;
                v.boardLog = log;
                v.shutterUptimeS = shutterAt;
                v.uptimeS = shutterAt + after;
                auto& c = v.conditions;
                c.boardCurrentK = board(v.uptimeS);
                c.boardShutteringK = board(shutterAt);
                c.shutterK = housing(shutterAt) - 0.5;
                v.name = fmt::format("warm{:.0f}-t{:.0f}", ambient, v.uptimeS);
                v.signal = t.corrected(v.blackbodyK, c.boardCurrentK, c.boardShutteringK, c.shutterK, 0.0,
                                       false, housing(v.uptimeS), housing(shutterAt)) +
                           rng.gaussian(kNoise);
                v.noise = kNoise;
                views.push_back(v);
            }
    }
    return views;
}

// Frames of a view: a raw detector with a pedestal and fixed pattern, 16 frames of temporal noise.
void toFrames(BlackbodyView& v, cv::RNG& rng, double drift = 0.0) {
    const cv::Size size(40, 30);
    cv::Mat pattern(size, CV_64F);
    rng.fill(pattern, cv::RNG::NORMAL, 8000.0, 40.0);
    const auto& c = v.conditions;
    const Truth& t = v.range == 1 ? kLow : kHigh;
    cv::Mat noise(size, CV_64F);
    for (int i = 0; i < 16; ++i) {
        rng.fill(noise, cv::RNG::NORMAL, 0.0, 3.0);
        cv::Mat f;
        const double signal = t.corrected(v.blackbodyK, c.boardCurrentK, c.boardShutteringK, c.shutterK,
                                          c.boardSlope, v.slowFrame);
        cv::Mat(pattern + signal + noise + drift * i).convertTo(f, CV_16U);
        v.frames.push_back(f);
    }
    rng.fill(noise, cv::RNG::NORMAL, 0.0, 3.0 / 2.0); // the mean of four shutter frames
    cv::Mat(pattern + noise).convertTo(v.shutter, CV_16U);
    v.region = cv::Rect(5, 5, 30, 20);
    v.signal = v.noise = std::nan("");
}
} // namespace

TEST(RadiometryFit, RecoversTheConstantsOfEachRangeFromAFarStart) {
    cv::RNG rng(20261125);
    auto views = makeViews(rng);
    for (size_t i = 0; i < views.size(); i += 7)
        toFrames(views[i], rng);
    std::vector<std::string> progress;
    RadiometryFitSettings settings; // starts at B 1428, F 1: far from both ranges
    settings.progress = [&](const std::string& s) { progress.push_back(s); };
    settings.bands[1] = {-20.0 + kC, 150.0 + kC};
    const auto fits = RadiometryFit(settings).fit(views);
    ASSERT_EQ(fits.size(), 2u);
    EXPECT_EQ(progress.size(), 2u);
    for (unsigned range : {1u, 2u}) {
        SCOPED_TRACE(range);
        const Truth& t = range == 1 ? kLow : kHigh;
        const auto& f = fits.at(range);
        const auto& p = f.constants.planck;
        // R, B and T0 trade against each other within the noise; the curve itself is tight.
        EXPECT_NEAR(p.R1 / p.R2, t.R, 3e-3 * t.R);
        EXPECT_NEAR(p.B, t.B, 2.5);
        for (double k = f.constants.bandBottomK; k <= f.constants.bandTopK; k += 10.0)
            EXPECT_NEAR(RadiometricTools::planckTemperature(p, t.S(k) - t.S(303.15) +
                                                                   RadiometricTools::planckSignal(p, 303.15)),
                        k, 0.005); // signals count from the shutter's: only differences are seen
        EXPECT_NEAR(p.F, t.F, 0.005);
        EXPECT_NEAR(f.constants.boardDriftGain, t.drift, 0.02);
        EXPECT_NEAR(f.constants.responsivityExponent, t.n, 0.01);
        EXPECT_NEAR(f.constants.planck.T0, t.T0, 0.3);
        EXPECT_FALSE(f.lagFitted);
        EXPECT_GT(f.iterations, 3u);
        EXPECT_LT(f.rmsK, 0.005);
        EXPECT_EQ(f.views.size(), 60u);
    }
    EXPECT_TRUE(fits.at(1).slopeGainFitted);
    EXPECT_NEAR(fits.at(1).constants.boardSlopeGain, kLow.slope, 0.05);
    EXPECT_FALSE(fits.at(1).slowFrameGainFitted);
    EXPECT_TRUE(fits.at(2).slowFrameGainFitted);
    EXPECT_NEAR(fits.at(2).constants.slowFrameGain, kHigh.slow, 1e-3);
    EXPECT_DOUBLE_EQ(fits.at(1).constants.bandBottomK, -20.0 + kC);
    EXPECT_DOUBLE_EQ(fits.at(2).constants.bandTopK, 350.0 + kC);

    // The written file, read back by the camera's radiometry, measures a blackbody no view showed,
    // at a board 10 K above the responsivity's reference.
    test::TempDir dir;
    const std::string file = dir.file("radiometry.json");
    RadiometryFit::write(RadiometryFit::calibration(fits, {{1, {"L1", 0.96}}}), file);
    EXPECT_DOUBLE_EQ(RadiometricCalibration::load(file).lenses.at(1).transmission, 0.96);
    RadiometryTypeA camera(1, 1, 0.01f, test::slashed(dir));
    camera.setData(RadiometryId::Emis, exp::makeVariant(1.0f));
    camera.setData(RadiometryId::Treflected, exp::makeVariant(test::celsius(20.0f)));
    camera.setData(RadiometryId::TboardCurrent, exp::makeVariant(test::celsius(40.0f)));
    camera.setData(RadiometryId::TboardShuttering, exp::makeVariant(test::celsius(38.5f)));
    camera.setData(RadiometryId::TShutterShuttering, exp::makeVariant(test::celsius(34.0f)));
    camera.setData(RadiometryId::TBoardSlope, exp::makeVariant(0.0f));
    camera.setData(RadiometryId::TauPg, exp::makeVariant(1.0f));
    camera.setData(RadiometryId::EmisPg, exp::makeVariant(0.0f));
    for (unsigned range : {1u, 2u}) {
        SCOPED_TRACE(range);
        const Truth& t = range == 1 ? kLow : kHigh;
        camera.setData(RadiometryId::MeasRange,
                       exp::makeVariant<unsigned char>(static_cast<unsigned char>(range)));
        const double object = 77.7 + kC;
        const double signal = t.corrected(object, 40.0 + kC, 38.5 + kC, 34.0 + kC, 0.0, false);
        cv::Mat_<short> raw(1, 1, static_cast<short>(std::lround(signal)));
        const double step =
            1.0 / (std::pow(303.15 / (40.0 + kC), t.n) * (t.S(object + 0.5) - t.S(object - 0.5)));
        EXPECT_NEAR(camera.processFrame(raw)(0, 0) * 0.01, object, 0.01 + step * (0.5 + 0.01));
    }
}

TEST(RadiometryFit, RefusesBadViewsNamingThemAndKeepsTheOldFile) {
    cv::RNG rng(7);
    const auto good = makeViews(rng);
    auto fails = [](std::vector<BlackbodyView> views, RadiometryFitSettings s = {}) {
        return test::messageOf([&] { RadiometryFit(s).fit(views); });
    };
    auto has = [](const std::string& message, const std::string& part) {
        return message.find(part) != std::string::npos;
    };

    auto few = good; // range 2 at seven temperatures
    std::erase_if(few, [](const BlackbodyView& v) { return v.range == 2 && v.blackbodyK > 270.0 + kC; });
    EXPECT_TRUE(has(fails(few), "range 2: views at 7 blackbody temperatures, at least 8 needed"))
        << fails(few);

    auto unwarmed = good;
    std::erase_if(unwarmed, [](const BlackbodyView& v) { return v.range == 1 && v.name.back() == 'w'; });
    EXPECT_TRUE(has(fails(unwarmed), "range 1: the board warmed by the same amount")) << fails(unwarmed);

    auto mislabelled = good; // the operator typed 70 °C for a blackbody at 71
    mislabelled[30].blackbodyK -= 1.0;
    EXPECT_TRUE(has(fails(mislabelled), "view " + good[30].name + " (")) << fails(mislabelled);

    auto outside = good;
    RadiometryFitSettings wide;
    wide.bands[1] = {-40.0 + kC, 150.0 + kC};
    EXPECT_TRUE(
        has(fails(outside, wide), "range 1: the views span -20.0..150.0 °C, the band -40.0..150.0 °C"));

    auto saturated = good;
    toFrames(saturated[3], rng);
    saturated[3].frames[5].at<uint16_t>(10, 10) = 65535;
    EXPECT_TRUE(has(fails(saturated), "view " + good[3].name + ": 1 pixels of its region are saturated"))
        << fails(saturated);

    auto drifting = good; // 0.2 counts a frame: 1.6 counts between the halves, the noise allows 0.37
    toFrames(drifting[4], rng, 0.2);
    EXPECT_TRUE(has(fails(drifting), "view " + good[4].name +
                                         ": the target drifted during the view: the mean of "
                                         "its frames changed by 1.6")) // +- 0.06
        << fails(drifting);
    auto steady = good;
    toFrames(steady[4], rng);
    EXPECT_EQ(fails(steady), "<no exception>");

    // A calibration the library would refuse never replaces the file, and leaves nothing behind.
    test::TempDir dir;
    const std::string file = dir.file("radiometry.json");
    const auto fits = RadiometryFit().fit(good);
    RadiometryFit::write(RadiometryFit::calibration(fits), file);
    auto broken = RadiometryFit::calibration(fits);
    broken.ranges[1].planck.F = 1e9;
    EXPECT_TRUE(has(test::messageOf([&] { RadiometryFit::write(broken, file); }), "ranges[0].F"));
    EXPECT_DOUBLE_EQ(RadiometricCalibration::load(file).ranges.at(1).planck.F, fits.at(1).constants.planck.F);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir.path()), {}), 1);
}

TEST(RadiometryFit, WarmUpRunsDetermineTheBoardLagThatTheCameraThenFollows) {
    constexpr double kTauH = 140.0;
    Truth low = kLow;
    low.lag = 3.0;
    cv::RNG rng(5);
    auto views = makeViews(rng, low);
    RadiometryFitSettings lenient; // settled views can not tell the lag from the drift: they miss it
    lenient.minResidualLimitK = 5.0;
    const auto settledOnly = RadiometryFit(lenient).fit(views);
    auto warm = warmUpViews(rng, low, kTauH, {15.0, 27.0});
    views.insert(views.end(), warm.begin(), warm.end());
    const auto fits = RadiometryFit().fit(views);
    const auto& f = fits.at(1).constants;
    EXPECT_TRUE(fits.at(1).lagFitted);
    EXPECT_FALSE(fits.at(2).lagFitted);
    EXPECT_NEAR(f.boardLagGain, low.lag, 0.03);
    EXPECT_NEAR(f.boardLagTimeConstantS, kTauH, 2.0);
    EXPECT_NEAR(f.boardLagShare, kShare, 0.01);
    EXPECT_NEAR(f.boardEmissionGain, 0.0, 0.05);
    EXPECT_NEAR(f.boardDriftGain, low.drift, 0.1);
    EXPECT_LT(fits.at(1).maxK, 0.01);
    EXPECT_FALSE(settledOnly.at(1).lagFitted);

    // The camera, switched on at 21 °C (no run was), fed the board and uptime of each frame, the
    // shutter closing at 200 s: at 225 s it reads a 45 °C blackbody right; the settled-only
    // calibration misses the housing's lag.
    auto reading = [&](const std::map<unsigned, RangeFit>& fit, bool uptime) {
        test::TempDir dir;
        RadiometryFit::write(RadiometryFit::calibration(fit), dir.file("radiometry.json"));
        const auto file = RadiometricCalibration::load(dir.file("radiometry.json"));
        EXPECT_EQ(file.ranges.at(1).boardLagGain, fit.at(1).constants.boardLagGain);
        RadiometryTypeA camera(1, 1, 0.01f, test::slashed(dir));
        for (auto [id, v] : {std::pair{RadiometryId::Emis, 1.0f},
                             {RadiometryId::TBoardSlope, 0.0f},
                             {RadiometryId::TauPg, 1.0f},
                             {RadiometryId::EmisPg, 0.0f}})
            camera.setData(id, exp::makeVariant(v));
        camera.setData(RadiometryId::Treflected, exp::makeVariant(test::celsius(21.0f)));
        camera.setData(RadiometryId::MeasRange, exp::makeVariant<unsigned char>(1));
        auto board = [](double s) { return 21.0 + 18.0 * (1.0 - std::exp(-s / 90.0)); };
        auto housing = [](double s) {
            return 21.0 +
                   kShare * 18.0 *
                       (1.0 - (kTauH * std::exp(-s / kTauH) - 90.0 * std::exp(-s / 90.0)) / (kTauH - 90.0));
        };
        const double object = 45.0 + kC;
        double measured = 0;
        for (double s = 0.0; s <= 225.0; s += 0.5) {
            const double shutterAt = s < 200.0 ? 0.0 : 200.0;
            camera.setData(RadiometryId::TboardCurrent, exp::makeVariant(test::celsius(float(board(s)))));
            camera.setData(RadiometryId::TboardShuttering,
                           exp::makeVariant(test::celsius(float(board(shutterAt)))));
            camera.setData(RadiometryId::TShutterShuttering,
                           exp::makeVariant(test::celsius(float(housing(shutterAt) - 0.5))));
            if (uptime)
                camera.setData(RadiometryId::UpTime, exp::makeVariant<unsigned long long>(
                                                         static_cast<unsigned long long>(s * 1000.0)));
            const double signal =
                low.corrected(object, board(s) + kC, board(shutterAt) + kC, housing(shutterAt) - 0.5 + kC,
                              0.0, false, housing(s) + kC, housing(shutterAt) + kC);
            cv::Mat_<short> raw(1, 1, static_cast<short>(std::lround(signal)));
            measured = camera.processFrame(raw)(0, 0) * 0.01 - object;
        }
        return measured;
    };
    EXPECT_NEAR(reading(fits, true), 0.0, 0.05);
    const double settled = reading(settledOnly, true), noUptime = reading(fits, false);
    EXPECT_GT(std::abs(settled), 0.2) << settled;
    EXPECT_GT(std::abs(noUptime), 0.2) << noUptime;

    // One run can not separate the lag from the board's own drift.
    auto oneRun = makeViews(rng, low);
    warm = warmUpViews(rng, low, kTauH, {15.0});
    oneRun.insert(oneRun.end(), warm.begin(), warm.end());
    EXPECT_NE(test::messageOf([&] { RadiometryFit().fit(oneRun); })
                  .find("range 1: warm-up views of one run only; the board lag needs runs at two or more "
                        "ambient conditions"),
              std::string::npos);
}
