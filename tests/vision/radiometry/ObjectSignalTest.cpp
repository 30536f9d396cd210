#include "nordalib/vision/radiometry/ObjectSignal.h"
#include "nordalib/vision/radiometry/RadiometricCalibration.h"
#include "nordalib/vision/radiometry/RadiometryTypeA.h"
#include "tests/support/Messages.h"
#include "tests/vision/TestSupport.h"

#include <gtest/gtest.h>

#include <cmath>

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
// reflects the room at 25 °C.
ObjectParameters inspectionPath() {
    ObjectParameters p;
    p.emissivity = 0.85;
    p.reflectedK = 288.15;
    p.distanceM = 30.0;
    p.airK = 303.15;
    p.humidityPercent = 70.0;
    p.tauPg = 0.82;
    p.emisPg = 0.1;
    p.pgReflectance = 0.06;
    p.pgK = 313.15;
    p.pgReflectedK = 298.15;
    return p;
}

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
    ObjectParameters p = inspectionPath();
    const double tau = publishedTau(p.distanceM, p.airK, p.humidityPercent);
    ASSERT_LT(tau, 0.999); // the air matters on this path
    for (double objectK : {263.15, 350.0, 420.0}) {
        const double front = handFront(c, p, tau, objectK);
        const ObjectSignal path(c, p);
        // The vapour formulas' difference moves the temperature by less than a count.
        EXPECT_NEAR(path.objectTemperature(front), objectK, 0.01) << objectK;
        EXPECT_NEAR(path.gain() * planck(c, objectK) + path.offset(), path.signal(objectK), 1e-9 * front);
    }
    p.airTauSet = 0.93;
    EXPECT_NEAR(ObjectSignal(c, p).objectTemperature(handFront(c, p, 0.93, 330.0)), 330.0, 1e-7);

    // The radiometric table with the same path: a frame of one pixel reads the hand inverse of its
    // signal, to the 0.01 K encoding.
    RadiometryTypeA model(1, 1, 0.01f, test::calibrationDir());
    model.setData(RadiometryId::Emis, exp::makeVariant(float(p.emissivity)));
    model.setData(RadiometryId::Treflected, exp::makeVariant(celsius(15.0f)));
    model.setData(RadiometryId::TboardCurrent, exp::makeVariant(celsius(31.0f)));
    model.setData(RadiometryId::TboardShuttering, exp::makeVariant(celsius(30.0f)));
    model.setData(RadiometryId::TShutterShuttering, exp::makeVariant(celsius(25.0f)));
    model.setData(RadiometryId::MeasRange, exp::makeVariant<unsigned char>(1));
    model.setData(RadiometryId::TBoardSlope, exp::makeVariant(0.0f));
    model.setData(RadiometryId::TauPg, exp::makeVariant(float(p.tauPg)));
    model.setData(RadiometryId::EmisPg, exp::makeVariant(float(p.emisPg)));
    model.setAirPath(p);
    const auto& range = model.activeRange();
    const auto& rp = range.planck;
    const auto cond = model.conditions();
    ObjectParameters q = p;
    q.emissivity = cond.emissivity; // the float values the model holds
    q.reflectedK = cond.reflectedK;
    q.tauPg = cond.tauPg;
    q.emisPg = cond.emisPg;
    const double drift = range.boardDriftGain * (cond.boardCurrentK - cond.boardShutteringK);
    for (double objectK : {260.0, 330.0, 400.0}) {
        const auto s = static_cast<short>(
            std::lround(handFront(rp, q, 0.93, objectK) - planck(rp, cond.shutterK) + drift));
        cv::Mat_<short> raw(1, 1, s);
        const double front = s + planck(rp, cond.shutterK) - drift;
        const double scene =
            ((front - q.emisPg * planck(rp, *q.pgK) - q.pgReflectance * planck(rp, *q.pgReflectedK)) /
                 q.tauPg -
             0.07 * planck(rp, q.airK)) /
            0.93;
        const double object = (scene - (1.0 - q.emissivity) * planck(rp, q.reflectedK)) / q.emissivity;
        EXPECT_NEAR(model.processFrame(raw)(0, 0), inversePlanck(rp, object) * 100.0, 0.5001) << s;
    }
}

TEST(ObjectSignal, OutOfRangeParametersAreNamed) {
    const auto message = [](auto mutate) {
        ObjectParameters p;
        mutate(p);
        return test::messageOf([&] { p.validate(); });
    };
    EXPECT_EQ(message([](auto& p) { p.distanceM = 10001.0; }),
              "object distance [0, 10000] m 10001.000000 is out of range");
    EXPECT_EQ(message([](auto& p) { p.distanceM = -1.0; }),
              "object distance [0, 10000] m -1.000000 is out of range");
    EXPECT_EQ(message([](auto& p) { p.humidityPercent = 100.5; }),
              "relative humidity [0, 100] % 100.500000 is out of range");
    EXPECT_EQ(message([](auto& p) { p.tauPg = 0.0; }),
              "protective glass transmission (0, 1] 0.000000 is out of range");
    EXPECT_NE(message([](auto& p) {
                  p.tauPg = 0.9;
                  p.emisPg = 0.08;
                  p.pgReflectance = 0.05;
              }).find("protective glass transmission + emissivity + reflectance (<= 1) 1.03"),
              std::string::npos);
    EXPECT_NE(message([](auto& p) { p.airK = 400.0; }).find("air temperature [223.15, 333.15] K"),
              std::string::npos);
    // The signal path refuses them as well.
    const auto cal = RadiometricCalibration::makeDefault();
    ObjectParameters p;
    p.humidityPercent = -1.0;
    EXPECT_THROW(ObjectSignal(cal.ranges.at(1).planck, p), norda::Exception);
}
