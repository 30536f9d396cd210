#include "nordalib/vision/radiometry/Reanalysis.h"
#include "nordalib/core/keys/Keys.h"
#include "nordalib/vision/radiometry/RadiometricCalibration.h"
#include "nordalib/vision/rix/RixReanalysis.h"
#include "tests/support/Messages.h"

#include <gtest/gtest.h>

using namespace norda;
using namespace norda::vision;
using namespace norda::exp;

namespace {

RadiometricConditions conditions(double emissivity, double reflectedK, double tauPg, double emisPg) {
    RadiometricConditions c;
    c.emissivity = emissivity;
    c.reflectedK = reflectedK;
    c.tauPg = tauPg;
    c.emisPg = emisPg;
    c.boardCurrentK = 305.0; // drift, lens and gain must cancel
    c.lensTransmission = 0.95;
    c.gain = 1.3;
    return c;
}

ObjectParameters objectSide(const RadiometricConditions& c) {
    return {c.emissivity, c.reflectedK, c.tauPg, c.emisPg};
}

} // namespace

TEST(Reanalysis, AgreesWithTheFullModelAndInvertsForEmissivity) {
    const auto range = RadiometricCalibration::makeDefault().ranges.at(1);
    const Reanalysis model(range.planck);
    const auto taken = conditions(0.95, 293.15, 0.92, 0.05);
    const auto other = conditions(0.6, 268.15, 1.0, 0.0);
    for (double objectK : {250.0, 310.0, 420.0}) {
        // What the camera saw, evaluated once with each set of parameters.
        const double corrected = RadiometricTools::correctedSignal(range, taken, objectK);
        const double measured = RadiometricTools::objectTemperature(range, taken, corrected);
        const double expected = RadiometricTools::objectTemperature(range, other, corrected);
        EXPECT_NEAR(model.convert(measured, objectSide(taken), objectSide(other)), expected, 1e-6) << objectK;
    }
    // By hand on S(T) = R1 / (R2 (exp(B / T) - F)) - O, R1 300000, R2 1, B 1428, F 1, O -40:
    // 330 K shown with emissivity 0.95 and 293.15 K reflected is the signal 0.95 S(330) +
    // 0.05 S(293.15) = 3969.1966; with emissivity 0.6 the object's own signal is (3969.1966 -
    // 0.4 S(293.15)) / 0.6 = 5044.0309, the temperature 347.43839 K.
    const Reanalysis hand(PlanckConstants{300000.0, 1.0, 1428.0, 1.0, -40.0});
    const ObjectParameters at95{0.95, 293.15, 1.0, 0.0}, at60{0.6, 293.15, 1.0, 0.0};
    EXPECT_NEAR(hand.convert(330.0, at95, at60), 347.43839, 1e-4);
    EXPECT_EQ(hand.convertPixel(33000, at95, at60), 34744);
    // A surface known to be at 347.43839 K and shown as 330 K with 0.95 has emissivity 0.6.
    EXPECT_NEAR(hand.emissivity(330.0, 347.43839, at95), 0.6, 1e-6);
    EXPECT_TRUE(std::isnan(hand.emissivity(330.0, 293.15, at95))); // no contrast, no answer
}

TEST(Reanalysis, ImagePathsMatchThePixelReference) {
    const Reanalysis model(RadiometricCalibration::makeDefault().ranges.at(1).planck);
    cv::Mat_<uint16_t> image(3, 200);
    for (int i = 0; i < int(image.total()); ++i)
        image(i / image.cols, i % image.cols) = static_cast<uint16_t>(20000 + 75 * i);
    image(0, 0) = 0;
    image(0, 1) = 65535;
    const ObjectParameters taken{0.95, 293.15, 1.0, 0.0}, other{0.3, 313.15, 0.9, 0.08};

    EXPECT_EQ(cv::countNonZero(model.apply(image, taken, taken) != image), 0); // stored parameters: no change
    const ObjectParameters sameButGlass{0.95, 293.15, 0.999999, 0.0};
    EXPECT_LE(cv::norm(model.apply(image, taken, sameButGlass), image, cv::NORM_INF), 1.0);
    const auto table = model.apply(image, taken, other);
    const auto perPixel = model.apply(image, taken, other, cv::Mat(image.size(), CV_32FC1, cv::Scalar(0.3)));
    for (int i = 0; i < int(image.total()); ++i) {
        const uint16_t p = image(i / image.cols, i % image.cols);
        ASSERT_EQ(table(i / image.cols, i % image.cols), model.convertPixel(p, taken, other)) << p;
        ASSERT_EQ(perPixel(i / image.cols, i % image.cols), table(i / image.cols, i % image.cols)) << p;
    }
    EXPECT_EQ(table(0, 0), 0);     // below the scale stays below
    EXPECT_EQ(table(0, 1), 65535); // beyond stays beyond
    // Lower emissivity: a warm object reads warmer, a cold one colder.
    EXPECT_GT(model.convertPixel(35000, taken, {0.5, 293.15, 1.0, 0.0}), 35000);
    EXPECT_LT(model.convertPixel(25000, taken, {0.5, 293.15, 1.0, 0.0}), 25000);
}

TEST(Reanalysis, RejectsParametersOutOfRangeNamingThem) {
    const Reanalysis model(PlanckConstants{300000.0, 1.0, 1428.0, 1.0, -40.0});
    const cv::Mat_<uint16_t> image(2, 2, uint16_t(30000));
    const ObjectParameters ok;
    struct Case {
        ObjectParameters to;
        cv::Mat map;
        const char* message;
    } cases[] = {
        {{0.0, 293.15, 1.0, 0.0}, {}, "emissivity (0, 1] 0.000000 is out of range"},
        {{1.2, 293.15, 1.0, 0.0}, {}, "emissivity (0, 1] 1.200000 is out of range"},
        {{1.0, -1.0, 1.0, 0.0}, {}, "reflected temperature (K, > 0) -1.000000 is out of range"},
        {{1.0, 293.15, 0.0, 0.0}, {}, "protective glass transmission (0, 1] 0.000000 is out of range"},
        {{1.0, 293.15, 1.0, 1.0}, {}, "protective glass emissivity [0, 1) 1.000000 is out of range"},
        {ok, cv::Mat(3, 2, CV_32FC1, cv::Scalar(1)),
         "emissivity map must be CV_32FC1 of the image's size 2 x 2"},
        {ok, (cv::Mat_<float>(2, 2) << 1, 1, 0, 1), "emissivity 0.000000 at (0, 1) is out of range (0, 1]"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(test::messageOf([&] {
                      c.map.empty() ? model.apply(image, ok, c.to) : model.apply(image, ok, c.to, c.map);
                  }),
                  c.message);
    EXPECT_EQ(test::messageOf([] {
                  Reanalysis(PlanckConstants{0.0, 1.0, 1428.0, 1.0, 0.0});
              }),
              "Planck constants R1, R2 and B must be positive and all finite");
}

TEST(RixReanalysis, ReadsWhatTheImageWasTakenWith) {
    Rix rix;
    rix.setRadiometricImage(cv::Mat_<uint16_t>(2, 2, uint16_t(31315)));
    rix.setEmissivityOriginal(0.9f);
    rix.setReflectedTempOriginal(Rix::Temperature(MarkedFloat(20.0f), quantity::TemperatureUnit::Celsius));
    EXPECT_EQ(
        test::messageOf([&] { RixReanalysis::temperatures(rix, {}); }),
        "the image carries no Planck constants (Radiometry.Planck with R1, R2, B, F, O[, T0]); it can not be "
        "re-analysed");

    rix.setGeneric(Id::Radiometry::Planck,
                   makeVariant(std::vector<double>{300000.0, 1.0, 1428.0, 1.0, -40.0}));
    rix.setGeneric(Id::ProtectiveGlass::Attached, makeVariant(true));
    rix.setGeneric(Id::ProtectiveGlass::Transmission, makeVariant(0.9f));
    rix.setGeneric(Id::ProtectiveGlass::Emissivity, makeVariant(0.1f));
    const auto stored = RixReanalysis::storedParameters(rix);
    EXPECT_FLOAT_EQ(float(stored.emissivity), 0.9f);
    EXPECT_NEAR(stored.reflectedK, 293.15, 1e-3);
    EXPECT_FLOAT_EQ(float(stored.tauPg), 0.9f);
    EXPECT_FLOAT_EQ(float(stored.emisPg), 0.1f);
    EXPECT_EQ(cv::countNonZero(RixReanalysis::temperatures(rix, stored) != rix.getRadiometricImage()), 0);
    EXPECT_GT(RixReanalysis::temperatures(rix, {0.5, 293.15, 0.9, 0.1})(0, 0), 31315);
}
