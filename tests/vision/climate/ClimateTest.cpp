#include "nordalib/vision/climate/AutoSpanHint.h"
#include "nordalib/vision/climate/DewPoint.h"
#include "nordalib/vision/radiometry/RadiometricTools.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

using namespace norda::exp;
using norda::vision::AutoSpanHint;
using norda::vision::DewPoint;
using norda::vision::RadiometricTools;
using Temp = quantity::Temperature<MarkedFloat>;
using Rel = quantity::Relation<MarkedFloat>;

namespace {
Temp celsius(float t, uint8_t mark = 0) {
    return Temp(MarkedFloat::withMark(t, mark));
}
Rel percent(float p, uint8_t mark = 0) {
    return Rel(MarkedFloat::withMark(p / 100.0f, mark));
}
constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
constexpr float kInf = std::numeric_limits<float>::infinity();
} // namespace

TEST(DewPoint, AgreesWithThePublishedTable) {
    // Dew points over water from the building-physics dew-point table (0.1 °C steps).
    struct Row {
        float air, humidity, dewPoint;
    };
    const Row table[] = {{20, 30, 1.9}, {20, 50, 9.3},  {20, 90, 18.3}, {10, 50, 0.1},
                         {0, 80, -3.0}, {15, 90, 13.4}, {30, 80, 26.2}, {12, 80, 8.7}};
    for (const auto& row : table) {
        const Temp dew = DewPoint::calcDewPoint(celsius(row.air), percent(row.humidity));
        EXPECT_NEAR(dew.celsius(), row.dewPoint, 0.1) << row.air << " °C, " << row.humidity << " %";
        EXPECT_TRUE(dew.getValue().isValid());
    }
    // Kelvin input is converted.
    EXPECT_NEAR(
        DewPoint::calcDewPoint(Temp(MarkedFloat(293.15f), quantity::TemperatureUnit::Kelvin), percent(50))
            .celsius(),
        9.26f, 0.01f);
}

TEST(DewPoint, SurfaceMoistureIsFullAtTheDewPoint) {
    for (float air : {-10.0f, 0.0f, 12.0f, 20.0f, 35.0f})
        for (float rh : {20.0f, 50.0f, 80.0f, 95.0f}) {
            const Temp dew = DewPoint::calcDewPoint(celsius(air), percent(rh));
            const Rel atDew = DewPoint::calcSurfaceMoisture(dew, celsius(air), percent(rh));
            EXPECT_NEAR(atDew.percent(), 100.0f, 0.01f) << air << " " << rh;
            // At air temperature the surface sees the air's humidity; colder is damper.
            EXPECT_NEAR(DewPoint::calcSurfaceMoisture(celsius(air), celsius(air), percent(rh)).percent(), rh,
                        1e-3);
            EXPECT_GT(DewPoint::calcSurfaceMoisture(celsius(air - 3), celsius(air), percent(rh)).percent(),
                      rh);
        }
    // The mould criterion: 20 °C / 50 % inside, a 12.6 °C surface sees about 80 %.
    EXPECT_NEAR(DewPoint::calcSurfaceMoisture(celsius(12.6f), celsius(20), percent(50)).percent(), 80.0f,
                0.5f);
    // Below the dew point water condenses: above 100 %, capped at 1000 %.
    EXPECT_GT(DewPoint::calcSurfaceMoisture(celsius(0), celsius(20), percent(50)).percent(), 100.0f);
    EXPECT_LE(DewPoint::calcSurfaceMoisture(celsius(-45), celsius(60), percent(100)).percent(), 1000.0f);
}

TEST(DewPoint, OutOfRangeInputIsMarkedNeverNaN) {
    const float temperatures[] = {-80, 60.5f, kNaN, -kInf};
    const float humidities[] = {-10, 250, kNaN};
    for (float t : temperatures) {
        const Temp dew = DewPoint::calcDewPoint(celsius(t), percent(50));
        EXPECT_TRUE(std::isfinite(dew.celsius())) << t;
        EXPECT_FALSE(dew.getValue().isValid()) << t;
        const Rel surface = DewPoint::calcSurfaceMoisture(celsius(t), celsius(20), percent(50));
        EXPECT_TRUE(std::isfinite(surface.ratio())) << t;
        EXPECT_FALSE(surface.getValue().isValid()) << t;
    }
    for (float rh : humidities) {
        const Temp dew = DewPoint::calcDewPoint(celsius(20), percent(rh));
        EXPECT_TRUE(std::isfinite(dew.celsius())) << rh;
        EXPECT_FALSE(dew.getValue().isValid()) << rh;
        EXPECT_TRUE(
            std::isfinite(DewPoint::calcSurfaceMoisture(celsius(15), celsius(20), percent(rh)).ratio()));
    }
    // Very dry air: the dew point itself lies below the formula's range.
    EXPECT_FALSE(DewPoint::calcDewPoint(celsius(-30), percent(5)).getValue().isValid());
    // Input marks travel on; a range mark wins over "outside tolerance"; never an undefined mark.
    EXPECT_EQ(DewPoint::calcDewPoint(celsius(20, MarkedFloat::OverRange), percent(50)).getValue().getMark(),
              MarkedFloat::OverRange);
    EXPECT_EQ(DewPoint::calcDewPoint(celsius(20, MarkedFloat::UnderRange), percent(300)).getValue().getMark(),
              MarkedFloat::UnderRange);
    EXPECT_EQ(DewPoint::calcSurfaceMoisture(celsius(5, MarkedFloat::UnderRange),
                                            celsius(20, MarkedFloat::OverRange), percent(50))
                  .getValue()
                  .getMark(),
              MarkedFloat::OutOfTolerance);
    EXPECT_EQ(
        DewPoint::calcDewPoint(celsius(20, MarkedFloat::OutOfTolerance), percent(50, MarkedFloat::UnderRange))
            .getValue()
            .getMark(),
        MarkedFloat::UnderRange);
}

TEST(AutoSpanHint, PutsTheCriticalSurfaceTemperatureWellInsideTheSpan) {
    // Winter, 20 °C inside, 0 °C outside: T_crit = 14 °C, half-span 0.3 * 20 = 6 K,
    // centre 0.7 * 18 + 0.3 * 14 = 16.8 °C.
    auto s = AutoSpanHint::calculateSpan(celsius(20), celsius(0), celsius(18), 0.7f, 0.3f, 0.7f);
    EXPECT_NEAR(s.critical, 14.0, 1e-5);
    EXPECT_NEAR(s.minimum, 10.8, 1e-5);
    EXPECT_NEAR(s.maximum, 22.8, 1e-5);

    // Looking at a radiator: the span would leave T_crit behind; it is shifted to keep a 10 % margin.
    s = AutoSpanHint::calculateSpan(celsius(20), celsius(0), celsius(60), 0.7f, 0.3f, 0.7f);
    EXPECT_NEAR(s.maximum - s.minimum, 12.0, 1e-5);
    EXPECT_NEAR(s.critical - s.minimum, 1.2, 1e-5);
    s = AutoSpanHint::calculateSpan(celsius(20), celsius(0), celsius(-15), 0.7f, 0.3f, 0.7f);
    EXPECT_NEAR(s.maximum - s.critical, 1.2, 1e-5);
}

TEST(AutoSpanHint, DegradesGracefullyOnBadInput) {
    // No heating: T_in == T_out gives a 5 K scale around room and image temperature.
    auto s = AutoSpanHint::calculateSpan(celsius(21), celsius(21), celsius(21), 0.7f, 0.3f, 0.7f);
    EXPECT_NEAR(s.minimum, 18.5, 1e-5);
    EXPECT_NEAR(s.maximum, 23.5, 1e-5);
    // Unknown climate: around the image; nothing usable: limits untouched.
    s = AutoSpanHint::calculateSpan(celsius(kNaN), celsius(0), celsius(30), 0.7f, 0.3f, 0.7f);
    EXPECT_NEAR(s.minimum, 27.5, 1e-5);
    EXPECT_TRUE(std::isnan(s.critical));
    unsigned short lo = 1, hi = 2;
    EXPECT_FALSE(AutoSpanHint::calculateAutoSpanHint(lo, hi, celsius(kInf), celsius(0), celsius(kNaN), 0.7f,
                                                     0.3f, 0.7f));
    EXPECT_EQ(lo, 1);
    EXPECT_EQ(hi, 2);
    // Beyond the pixel encoding the span is shifted in, keeping its width.
    ASSERT_TRUE(AutoSpanHint::calculateAutoSpanHint(lo, hi, celsius(380), celsius(370), celsius(381), 0.7f,
                                                    0.3f, 0.7f));
    EXPECT_EQ(hi, 65535);
    EXPECT_EQ(hi - lo, 600); // 0.3 * 10 K each side
    // The 16-bit form is the °C form encoded.
    ASSERT_TRUE(
        AutoSpanHint::calculateAutoSpanHint(lo, hi, celsius(20), celsius(0), celsius(18), 0.7f, 0.3f, 0.7f));
    EXPECT_EQ(lo, RadiometricTools::getUint16(10.8f));
    EXPECT_EQ(hi, RadiometricTools::getUint16(22.8f));
}

TEST(RadiometricTools, EncodingRoundTripsAndSaturates) {
    for (int p = 0; p <= 65535; ++p)
        ASSERT_EQ(RadiometricTools::getUint16(RadiometricTools::getFloat(static_cast<unsigned short>(p))), p);
    EXPECT_EQ(RadiometricTools::getUint16(0.0f), 27315);
    EXPECT_EQ(RadiometricTools::getUint16(-300.0f), 0);
    EXPECT_EQ(RadiometricTools::getUint16(500.0f), 65535);
    EXPECT_EQ(RadiometricTools::getUint16(kNaN), 0);
}
