#include "nordalib/core/keys/DefaultParameters.h"
#include "nordalib/vision/radiometry/BoardLag.h"
#include "nordalib/vision/radiometry/RadiometricCalibration.h"
#include "nordalib/vision/radiometry/RadiometricTools.h"
#include "nordalib/vision/radiometry/RadiometryTypeA.h"
#include "nordalib/vision/streaming/RadiometryElement.h"
#include "tests/vision/TestSupport.h"

#include <gtest/gtest.h>

#include <cmath>
#include <fstream>

using namespace norda;
using namespace norda::vision;
using namespace norda::exp;
using namespace norda::exp::streaming;
using norda::test::celsius;

namespace {
void writeFile(const std::string& path, const std::string& text) {
    std::ofstream(path) << text;
}

// The conditions of test::radiometricMeta(), computed from the same float metadata the model sees.
RadiometricConditions conditionsOf(float emissivity, float reflected, bool glass) {
    RadiometricConditions c;
    c.emissivity = emissivity;
    c.reflectedK = celsius(reflected).kelvin();
    c.boardCurrentK = celsius(31.0f).kelvin();
    c.boardShutteringK = celsius(30.0f).kelvin();
    c.shutterK = celsius(25.0f).kelvin();
    c.boardSlope = 0.2f;
    c.tauPg = glass ? 0.92f : 1.0f;
    c.emisPg = glass ? 0.05f : 0.0f;
    return c;
}

// Hands the model the frame conditions of `meta` as the element does, without protective glass;
// with `lens`, the range and lens entries as well.
void setConditions(RadiometryBase& model, const exp::DataStorage<std::string>& meta, bool lens = false) {
    std::vector<std::pair<const char*, unsigned>> ids = {
        {"Environment.EmissivityValue", RadiometryId::Emis},
        {"Environment.ReflectedTemperature", RadiometryId::Treflected},
        {"Temperatures.Current.TBoardSens50", RadiometryId::TboardCurrent},
        {"Temperatures.Shuttering.TBoardSens50", RadiometryId::TboardShuttering},
        {"Temperatures.Shuttering.TShutter", RadiometryId::TShutterShuttering},
        {"Temperatures.Current.TBoardSlope", RadiometryId::TBoardSlope}};
    if (lens)
        ids.insert(ids.end(), {{"ActiveMeasRange.Name", RadiometryId::MeasRange},
                               {"ActiveLens.Index", RadiometryId::LensIndex},
                               {"Temperatures.Current.TLens", RadiometryId::TlensCurrent}});
    for (const auto& [key, id] : ids)
        model.setData(id, meta.getVariant(key));
    model.setData(RadiometryId::TauPg, makeVariant(1.0f));
    model.setData(RadiometryId::EmisPg, makeVariant(0.0f));
}
} // namespace

TEST(RadiometricTools, PlanckCurveAndItsInverse) {
    const auto cal = RadiometricCalibration::makeDefault();
    const auto& p = cal.ranges.at(1).planck;
    for (double t : {230.0, 273.15, 300.0, 423.15, 600.0}) {
        const double s = RadiometricTools::planckSignal(p, t);
        EXPECT_NEAR(RadiometricTools::planckTemperature(p, s), t, 1e-9 * t);
        const double numeric =
            (RadiometricTools::planckSignal(p, t + 1e-3) - RadiometricTools::planckSignal(p, t - 1e-3)) /
            2e-3;
        EXPECT_NEAR(RadiometricTools::planckSlope(p, t), numeric, 1e-6 * numeric);
    }
    // The shifted curve, written out by hand, and the form frames carry it in.
    PlanckConstants shifted = p;
    shifted.T0 = 15.0;
    for (double t : {250.0, 350.0, 600.0}) {
        const double s = p.R1 / (p.R2 * (std::exp(p.B / (t + 15.0)) - p.F)) - p.O;
        EXPECT_NEAR(RadiometricTools::planckSignal(shifted, t), s, 1e-9 * std::abs(s));
        EXPECT_NEAR(RadiometricTools::planckTemperature(shifted, s), t, 1e-9 * t);
        const double numeric = (RadiometricTools::planckSignal(shifted, t + 1e-3) -
                                RadiometricTools::planckSignal(shifted, t - 1e-3)) /
                               2e-3;
        EXPECT_NEAR(RadiometricTools::planckSlope(shifted, t), numeric, 1e-6 * numeric);
    }
    EXPECT_EQ(PlanckConstants::fromVector(shifted.toVector()).T0, 15.0);
    EXPECT_EQ(p.toVector().size(), 5u);
    EXPECT_EQ(PlanckConstants::fromVector(p.toVector()).T0, 0.0);
    EXPECT_NE(test::messageOf([] {
                  PlanckConstants::fromVector({1.0, 2.0});
              }).find("got 2"),
              std::string::npos);

    // At or below -O there is no temperature, nor a signal at 0 K.
    EXPECT_TRUE(std::isnan(RadiometricTools::planckTemperature(p, -p.O)));
    EXPECT_TRUE(std::isnan(RadiometricTools::planckSignal(p, 0.0)));

    // The simulator's forward path and the model's inverse agree, and a shutter-temperature object
    // seen without losses gives the board drift only.
    const auto& range = cal.ranges.at(1);
    const auto c = conditionsOf(0.7f, -5.0f, true);
    for (double t : {260.0, 310.0, 400.0})
        EXPECT_NEAR(
            RadiometricTools::objectTemperature(range, c, RadiometricTools::correctedSignal(range, c, t)), t,
            1e-6);
    RadiometricConditions plain;
    plain.boardCurrentK = plain.boardShutteringK + 2.0;
    EXPECT_NEAR(RadiometricTools::correctedSignal(range, plain, plain.shutterK), 2.0 * range.boardDriftGain,
                1e-9);
}

TEST(BoardLag, FollowsTheBoardLikeAFirstOrderLagWhateverItsFeedRate) {
    // A ramp of 0.02 K/s settles slope * tau behind; an exponential warm-up (tau_b 90 s) matches the
    // closed-form response of a 150 s lag, fed every 33 ms or once every 5 s.
    BoardLag ramp(150.0);
    for (double t = 0.0; t <= 2000.0; t += 7.0)
        ramp.update(t, 300.0 + 0.02 * t);
    EXPECT_NEAR(ramp.value(), 300.0 + 0.02 * 1995.0 - 0.02 * 150.0, 1e-3);
    BoardLag late(150.0); // started on the ramp long after switching on, given its slope
    EXPECT_NEAR(late.update(1000.0, 320.0, 0.02), 320.0 - 0.02 * 150.0, 1e-9);
    EXPECT_NEAR(late.update(1100.0, 322.0), 322.0 - 0.02 * 150.0, 1e-9);
    auto board = [](double t) { return 294.15 + 18.0 * (1.0 - std::exp(-t / 90.0)); };
    const double exact =
        294.15 + 18.0 * (1.0 - (150.0 * std::exp(-240.0 / 150.0) - 90.0 * std::exp(-240.0 / 90.0)) / 60.0);
    for (double step : {1.0 / 30.0, 5.0}) {
        BoardLag lag(150.0);
        for (double t = 0.0; t < 240.0 + step / 2; t += step)
            lag.update(t, board(t));
        EXPECT_NEAR(lag.value(), exact, 2e-3) << step;
    }
    std::vector<std::pair<double, double>> log;
    for (double t = 0.0; t <= 300.0; t += 1.0)
        log.emplace_back(t, board(t));
    EXPECT_NEAR(BoardLag::at(log, 150.0, 1.0, 240.0), exact, 1e-3);
    // A housing rising by 85 % of the board's rise since switching on.
    EXPECT_NEAR(BoardLag::at(log, 150.0, 0.85, 240.0), 294.15 + 0.85 * (exact - 294.15), 1e-3);
    // A restart (uptime going back) starts afresh at the board.
    BoardLag restarted(150.0);
    restarted.update(100.0, 310.0);
    restarted.update(101.0, 311.0);
    EXPECT_EQ(restarted.update(3.0, 295.0), 295.0);
    EXPECT_NE(test::messageOf([] { BoardLag(0.0); }).find("must be positive"), std::string::npos);
}

TEST(RadiometricCalibration, FileErrorsNameFileAndKey) {
    test::TempDir dir;
    const std::string file = test::slashed(dir) + "radiometry.json";
    EXPECT_EQ(test::messageOf([&] { RadiometricCalibration::load(file); }),
              "radiometric calibration file " + file + " is missing");
    writeFile(file, "{ \"ranges\": [ { \"range\": 1, ");
    EXPECT_NE(test::messageOf([&] { RadiometricCalibration::load(file); }).find("is not valid JSON"),
              std::string::npos);

    // Round trip of the default calibration, then one broken constant at a time.
    RadiometricCalibration::makeDefault().save(file);
    const auto loaded = RadiometricCalibration::load(file);
    EXPECT_EQ(loaded.ranges.size(), 2u);
    EXPECT_DOUBLE_EQ(loaded.ranges.at(2).planck.R1, 60000.0);
    EXPECT_EQ(loaded.lenses.at(1).serial, "L25-000001");
    EXPECT_EQ(loaded.ranges.at(1).planck.T0, 0.0);
    EXPECT_EQ(loaded.ranges.at(1).boardLagGain, 0.0);
    auto shifted = RadiometricCalibration::makeDefault();
    shifted.ranges[2].planck.T0 = -12.5;
    shifted.ranges[2].boardLagGain = 2.5;
    shifted.ranges[2].boardLagTimeConstantS = 140.0;
    shifted.save(file);
    EXPECT_EQ(RadiometricCalibration::load(file).ranges.at(2).planck.T0, -12.5);
    EXPECT_EQ(RadiometricCalibration::load(file).ranges.at(2).boardLagTimeConstantS, 140.0);

    auto broken = [&](auto mutate) {
        auto cal = RadiometricCalibration::makeDefault();
        mutate(cal);
        cal.save(file);
        return test::messageOf([&] { RadiometricCalibration::load(file); });
    };
    EXPECT_EQ(broken([](auto& c) { c.ranges[2].planck.F = 20.0; }),
              "radiometric calibration " + file +
                  ": ranges[1].F makes the Planck curve undefined inside the band (exp(B / (T + T0)) <= F)");
    EXPECT_NE(broken([](auto& c) { c.lenses[2].transmission = 1.5; }).find("lenses[1].transmission"),
              std::string::npos);
    writeFile(file, R"({"ranges":[{"range":1,"R2":1,"B":1,"F":1,"O":0,"bandBottom":0,"bandTop":10}]})");
    EXPECT_EQ(test::messageOf([&] { RadiometricCalibration::load(file); }),
              "radiometric calibration " + file + ": ranges[0].R1 is missing");
}

TEST(RadiometryModel, DataValidationAndTableReuse) {
    RadiometryTypeA model(4, 2, 0.01f, test::calibrationDir());
    cv::Mat_<short> raw(2, 4, short(0));
    // Nothing set yet: the first missing condition is named.
    EXPECT_EQ(test::messageOf([&] { model.processFrame(raw); }), "radiometry data MeasRange is not set");
    EXPECT_EQ(test::messageOf([&] { model.setData(RadiometryId::Emis, makeVariant(0.9)); }),
              "Variant-type (double)!= Template-type (float)");
    EXPECT_EQ(test::messageOf([&] { model.setData(RadiometryId::Emis, makeVariant(1.5f)); }),
              "radiometry data Emis = 1.5 is out of range");
    EXPECT_THROW(model.setData(RadiometryId::Emis, makeVariant(0.0f)), norda::Exception);

    const auto meta = test::radiometricMeta();
    setConditions(model, meta);
    model.setData(RadiometryId::MeasRange, makeVariant<unsigned char>(7));
    EXPECT_NE(
        test::messageOf([&] { model.processFrame(raw); }).find("no calibration for measurement range 7"),
        std::string::npos);
    model.setData(RadiometryId::MeasRange, makeVariant<unsigned char>(1));

    // The table is rebuilt when the conditions change.
    auto a = model.processFrame(raw);
    model.setData(RadiometryId::Emis, makeVariant(0.5f));
    EXPECT_NE(cv::norm(a, model.processFrame(raw), cv::NORM_INF), 0.0);
    // Hot pixels read hotter; the table is monotonic over the whole signal span.
    cv::Mat_<short> ramp(1, 4);
    ramp << -3000, 0, 3000, 30000;
    RadiometryTypeA wide(4, 1, 0.01f, test::calibrationDir());
    setConditions(wide, meta);
    wide.setData(RadiometryId::MeasRange, makeVariant<unsigned char>(1));
    auto t = wide.processFrame(ramp);
    EXPECT_LT(t(0, 0), t(0, 1));
    EXPECT_LT(t(0, 1), t(0, 2));
    EXPECT_LT(t(0, 2), t(0, 3));
    // Each entry is the model's temperature rounded to the nearest 0.01 K, not cut off (the first
    // signal has no temperature: 0).
    const auto c = wide.conditions();
    for (int i = 1; i < 4; ++i)
        EXPECT_EQ(t(0, i),
                  std::lround(RadiometricTools::objectTemperature(wide.activeRange(), c, ramp(0, i)) * 100.0))
            << ramp(0, i);
    // Filled for a frame's signals: a later frame's other signals under the same conditions are
    // added, below and above.
    RadiometryTypeA grown(4, 1, 0.01f, test::calibrationDir());
    setConditions(grown, meta);
    grown.setData(RadiometryId::MeasRange, makeVariant<unsigned char>(1));
    cv::Mat_<short> narrow(1, 4, short(3000));
    grown.processFrame(narrow);
    EXPECT_EQ(cv::norm(grown.processFrame(ramp), t, cv::NORM_INF), 0.0);
    EXPECT_EQ(grown.tableBuilds(), 1u);
}

// Scenes synthesised with the forward model at known temperatures come back through the element
// within 0.05 K or the temperature step of one signal count, whichever is larger.
TEST(RadiometryAccuracy, SynthesisedScenesThroughElement) {
    DataProxy<std::string> proxy;
    setDefaultParameters(proxy);
    const auto cal = RadiometricCalibration::load(test::calibrationDir() + RadiometricCalibration::kFileName);
    const float emissivities[] = {0.6f, 0.8f, 1.0f};
    const float reflected[] = {-10.0f, 15.0f, 40.0f};
    constexpr int kTemps = 24;

    for (unsigned rangeNo : {1u, 2u}) {
        const auto& range = cal.ranges.at(rangeNo);
        for (bool glass : {false, true}) {
            for (float eps : emissivities) {
                for (float refl : reflected) {
                    proxy.setValue<unsigned short>(Id::IrImage::Cols, kTemps, false);
                    proxy.setValue<unsigned short>(Id::IrImage::Rows, 1, false);
                    RadiometryElement element(&proxy, test::calibrationDir(), RadiometricCamTypeA);
                    RadiometricConditions c = conditionsOf(eps, refl, glass);
                    // The element's housing estimate on its first frame, 600 s after switching on: the
                    // board's steady trail on its slope, moved as far as the board since the shutter.
                    c.boardLagK = c.boardCurrentK -
                                  range.boardLagShare * c.boardSlope / 60.0 * range.boardLagTimeConstantS;
                    c.boardLagShutteringK = c.boardLagK - (c.boardCurrentK - c.boardShutteringK);
                    cv::Mat_<short> frame(1, kTemps);
                    std::vector<double> truth(kTemps);
                    for (int i = 0; i < kTemps; ++i) {
                        truth[i] =
                            range.bandBottomK + (range.bandTopK - range.bandBottomK) * i / (kTemps - 1);
                        const double s = std::round(RadiometricTools::correctedSignal(range, c, truth[i]));
                        ASSERT_LT(std::abs(s), 32767.0);
                        frame(0, i) = static_cast<short>(s);
                    }
                    FrameMap in, out;
                    in[STREAMING_DATATYPE_CORRECTED] = std::make_unique<Frame>(
                        frame, test::radiometricMeta(eps, refl, static_cast<unsigned char>(rangeNo), glass));
                    ASSERT_TRUE(element.process(in, out));
                    ASSERT_TRUE(
                        out[STREAMING_DATATYPE_RAD]->getMetaData().get<bool>(Id::Temperatures::Validity));
                    const cv::Mat_<unsigned short> result = out[STREAMING_DATATYPE_RAD]->getFrameData();
                    for (int i = 0; i < kTemps; ++i)
                        EXPECT_NEAR(result(0, i) * 0.01, truth[i],
                                    std::max(0.05, RadiometricTools::temperatureStep(range, c, truth[i])))
                            << "range " << rangeNo << " eps " << eps << " refl " << refl << " glass "
                            << glass;
                }
            }
        }
    }
}
