#include "nordalib/vision/radiometry/ObjectSignal.h"
#include "nordalib/vision/radiometry/RadiometricCalibration.h"
#include "nordalib/vision/radiometry/RadiometryTypeA.h"
#include "tests/support/Messages.h"
#include "tests/vision/TestSupport.h"

#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <functional>

using namespace norda;
using namespace norda::vision;
using norda::test::celsius;

namespace {

// Band transmission of a horizontal path written out from the published data, independently of the
// library: water-vapour self-continuum of Roberts, Selby and Biberman (1976), saturation vapour
// pressure over water by the Magnus form of Alduchov and Eskridge (1996) (the library uses Buck's),
// midpoint rule over 7.5-14 um with equal weight per wavelength.
double publishedTau(double distanceM, double airK, double humidityPercent) {
    const double t = airK - 273.15;
    const double ePa = humidityPercent / 100.0 * 610.94 * std::exp(17.625 * t / (t + 243.04));
    const double perCm3 = ePa / (1.380649e-23 * airK) * 1e-6;
    const double eAtm = ePa / 101325.0;
    const double broadening = eAtm + 0.002 * (1.0 - eAtm);
    const double temperature = std::exp(1800.0 * (1.0 / airK - 1.0 / 296.0));
    const int n = 4000;
    double sum = 0.0;
    for (int i = 0; i < n; ++i) {
        const double nu = 1e4 / (7.5 + (i + 0.5) * 6.5 / n); // cm^-1
        const double cs = 1.25e-22 + 1.67e-19 * std::exp(-7.87e-3 * nu);
        sum += std::exp(-cs * temperature * broadening * perCm3 * distanceM * 100.0);
    }
    return sum / n;
}

// The Planck curve of a range, written out.
double planck(const PlanckConstants& p, double kelvin) {
    return p.R1 / (p.R2 * (std::exp(p.B / kelvin) - p.F)) - p.O;
}
double inversePlanck(const PlanckConstants& p, double signal) {
    return p.B / std::log(p.R1 / (p.R2 * (signal + p.O)) + p.F);
}

// A thermographer's path: 30 m of warm humid air, an inspection window warmer than the room that
// reflects the room at 25 °C (float-exact coefficients, as the radiometry model holds floats).
const ObjectParameters kInspection{.emissivity = 0.875,
                                   .reflectedK = 288.15,
                                   .tauPg = 0.8125,
                                   .emisPg = 0.125,
                                   .distanceM = 30.0,
                                   .airK = 303.15,
                                   .humidityPercent = 70.0,
                                   .pgReflectance = 0.0625,
                                   .pgK = 313.15,
                                   .pgReflectedK = 298.15};

// The front signal of the inspection path for an object at objectK and an air transmission tau.
double handFront(const PlanckConstants& c, const ObjectParameters& p, double tau, double objectK) {
    const double scene = p.emissivity * planck(c, objectK) + (1.0 - p.emissivity) * planck(c, p.reflectedK);
    return p.tauPg * (tau * scene + (1.0 - tau) * planck(c, p.airK)) + p.emisPg * planck(c, *p.pgK) +
           p.pgReflectance * planck(c, *p.pgReflectedK);
}

} // namespace

TEST(ObjectSignal, AirTransmissionFollowsPublishedWaterVapourData) {
    // Saturation vapour pressure over water from steam tables: 2339 Pa at 20 °C, 7385 Pa at 40 °C.
    EXPECT_NEAR(ObjectSignal::saturationVapourPressure(293.15), 2339.0, 3.0);
    EXPECT_NEAR(ObjectSignal::saturationVapourPressure(313.15), 7385.0, 8.0);

    ObjectParameters p;
    for (double airK : {298.15, 273.15})
        for (double humidity : {20.0, 90.0})
            for (double distance : {10.0, 100.0, 1000.0}) {
                p.airK = airK;
                p.humidityPercent = humidity;
                p.distanceM = distance;
                const double expected = publishedTau(distance, airK, humidity);
                // Buck and Magnus differ by up to 0.25 % in vapour pressure here, the attenuation (about
                // its square) by 0.5 %.
                EXPECT_NEAR(ObjectSignal::airTransmission(p), expected, 6e-3 * (1.0 - expected) + 1e-9)
                    << distance << " m, " << humidity << " %, " << airK << " K";
            }
    p.airTauSet = 0.9;
    EXPECT_EQ(ObjectSignal::airTransmission(p), 0.9);
}

TEST(ObjectSignal, InverseWithAirAndWindowMatchesHandForward) {
    const auto cal = RadiometricCalibration::makeDefault();
    const auto& c = cal.ranges.at(1).planck;
    ObjectParameters p = kInspection;
    const double tau = publishedTau(p.distanceM, p.airK, p.humidityPercent);
    ASSERT_LT(tau, 0.999); // the air matters on this path
    for (double objectK : {263.15, 350.0, 420.0}) {
        const double front = handFront(c, p, tau, objectK);
        const ObjectSignal path(c, p);
        // The vapour formulas' difference moves the temperature by less than a count.
        EXPECT_NEAR(path.objectTemperature(front), objectK, 0.01) << objectK;
        EXPECT_NEAR(path.gain() * planck(c, objectK) + path.offset(), path.signal(objectK), 1e-9 * front);
    }

    // The radiometric table with a known air transmission: a one-pixel frame reads the hand inverse
    // of its signal to the 0.01 K encoding.
    p.airTauSet = 0.93;
    // Constants of its own: a straight board drift and no responsivity term, as the hand has it.
    test::TempDir dir;
    std::ofstream(dir.file("radiometry.json")) << R"({"version": 1, "ranges": [{"range": 1, "R1": 300000.0,
        "R2": 1.0, "B": 1428.0, "F": 1.0, "O": -40.0, "boardDriftGain": 14.0, "boardSlopeGain": 2.5,
        "slowFrameGain": 1.0, "bandBottom": -20.0, "bandTop": 150.0}]})";
    RadiometryTypeA model(1, 1, 0.01f, test::slashed(dir));
    const std::pair<unsigned, std::shared_ptr<exp::Variant>> data[] = {
        {RadiometryId::Emis, exp::makeVariant(0.875f)},
        {RadiometryId::Treflected, exp::makeVariant(celsius(15.0f))},
        {RadiometryId::TboardCurrent, exp::makeVariant(celsius(31.0f))},
        {RadiometryId::TboardShuttering, exp::makeVariant(celsius(30.0f))},
        {RadiometryId::TShutterShuttering, exp::makeVariant(celsius(25.0f))},
        {RadiometryId::MeasRange, exp::makeVariant<unsigned char>(1)},
        {RadiometryId::TBoardSlope, exp::makeVariant(0.0f)},
        {RadiometryId::TauPg, exp::makeVariant(0.8125f)},
        {RadiometryId::EmisPg, exp::makeVariant(0.125f)}};
    for (const auto& [id, value] : data)
        model.setData(id, value);
    model.setAirPath(p);
    const auto& range = model.activeRange();
    const auto& rp = range.planck;
    const double dark = planck(rp, 298.15) - range.boardDriftGain; // shutter, board 1 K warmer
    for (double objectK : {260.0, 330.0, 400.0}) {
        const auto s = static_cast<short>(std::lround(handFront(rp, p, 0.93, objectK) - dark));
        const double window =
            s + dark - p.emisPg * planck(rp, *p.pgK) - p.pgReflectance * planck(rp, *p.pgReflectedK);
        const double scene = (window / p.tauPg - 0.07 * planck(rp, p.airK)) / 0.93;
        const double object = (scene - (1.0 - p.emissivity) * planck(rp, p.reflectedK)) / p.emissivity;
        cv::Mat_<short> raw(1, 1, s);
        EXPECT_NEAR(model.processFrame(raw)(0, 0), inversePlanck(rp, object) * 100.0, 0.51) << objectK;
    }
    // Frames under the same path reuse the table; another distance builds one more.
    EXPECT_EQ(model.tableBuilds(), 1u);
    auto farther = p;
    farther.distanceM += 1.0;
    model.setAirPath(farther);
    cv::Mat_<short> raw(1, 1, short(0));
    model.processFrame(raw);
    model.processFrame(raw);
    EXPECT_EQ(model.tableBuilds(), 2u);
}

TEST(ObjectSignal, OutOfRangeParametersAreNamed) {
    const std::pair<std::function<void(ObjectParameters&)>, std::string> cases[] = {
        {[](auto& p) { p.distanceM = 10001.0; }, "object distance [0, 10000] m 10001.000000 is out of range"},
        {[](auto& p) { p.distanceM = -1.0; }, "object distance [0, 10000] m -1.000000 is out of range"},
        {[](auto& p) { p.humidityPercent = 100.5; },
         "relative humidity [0, 100] % 100.500000 is out of range"},
        {[](auto& p) { p.tauPg = 0.0; }, "protective glass transmission (0, 1] 0.000000 is out of range"},
        {[](auto& p) { p.pgReflectance = 0.1; }, // with 0.8125 + 0.125
         "protective glass transmission + emissivity + reflectance (<= 1) 1.037500 is out of range"},
        {[](auto& p) { p.airK = 400.0; }, "air temperature [223.15, 333.15] K 400.000000 is out of range"}};
    const auto cal = RadiometricCalibration::makeDefault();
    for (const auto& [mutate, expected] : cases) {
        ObjectParameters p = kInspection;
        mutate(p);
        EXPECT_EQ(test::messageOf([&] { ObjectSignal(cal.ranges.at(1).planck, p); }), expected);
    }
}
