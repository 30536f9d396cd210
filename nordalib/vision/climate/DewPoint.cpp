#include "nordalib/vision/climate/DewPoint.h"

#include <algorithm>
#include <cmath>

namespace norda::vision {

using exp::MarkedFloat;

namespace {
constexpr double kA = 6.112;  // hPa
constexpr double kB = 17.62;  // dimensionless
constexpr double kC = 243.12; // °C

// Clamps into [lo, hi]; NaN goes to lo. Returns whether the value was inside.
bool clampInto(double& v, double lo, double hi) {
    if (!(v >= lo)) {
        v = lo;
        return false;
    }
    if (v > hi) {
        v = hi;
        return false;
    }
    return true;
}

// The more telling of two marks: a range mark (under/over) beats "outside tolerance"; an under and
// an over mark together only say that accuracy is not guaranteed. Never a mark outside 0, 1, 3, 5.
uint8_t combine(uint8_t a, uint8_t b) {
    if (a == b || b == MarkedFloat::Valid)
        return a;
    if (a == MarkedFloat::Valid || a == MarkedFloat::OutOfTolerance)
        return b;
    if (b == MarkedFloat::OutOfTolerance)
        return a;
    return MarkedFloat::OutOfTolerance;
}
} // namespace

double DewPoint::saturationPressure(double celsius) {
    return kA * std::exp(kB * celsius / (kC + celsius));
}

DewPoint::Temperature DewPoint::calcDewPoint(const Temperature& airTemperature, const Relation& humidity) {
    double t = airTemperature.celsius();
    double rh = humidity.ratio();
    uint8_t mark = combine(airTemperature.getValue().getMark(), humidity.getValue().getMark());
    if (!clampInto(t, kMinTemperature, kMaxTemperature))
        mark = combine(mark, MarkedFloat::OutOfTolerance);
    if (!clampInto(rh, 1e-3, 1.0))
        mark = combine(mark, MarkedFloat::OutOfTolerance);
    const double gamma = std::log(rh) + kB * t / (kC + t);
    const double dew = kC * gamma / (kB - gamma);
    // Very dry air: the dew point itself lies below the range in which the formula holds.
    if (dew < kMinTemperature)
        mark = combine(mark, MarkedFloat::OutOfTolerance);
    return Temperature(MarkedFloat::withMark(static_cast<float>(dew), mark));
}

DewPoint::Relation DewPoint::calcSurfaceMoisture(const Temperature& surfaceTemperature,
                                                 const Temperature& airTemperature,
                                                 const Relation& humidity) {
    double ts = surfaceTemperature.celsius();
    double ta = airTemperature.celsius();
    double rh = humidity.ratio();
    uint8_t mark =
        combine(combine(surfaceTemperature.getValue().getMark(), airTemperature.getValue().getMark()),
                humidity.getValue().getMark());
    if (!clampInto(ts, kMinTemperature, kMaxTemperature))
        mark = combine(mark, MarkedFloat::OutOfTolerance);
    if (!clampInto(ta, kMinTemperature, kMaxTemperature))
        mark = combine(mark, MarkedFloat::OutOfTolerance);
    if (!clampInto(rh, 0.0, 1.0))
        mark = combine(mark, MarkedFloat::OutOfTolerance);
    double surface = rh * saturationPressure(ta) / saturationPressure(ts);
    surface = std::min(surface, 10.0);
    return Relation(MarkedFloat::withMark(static_cast<float>(surface), mark));
}

} // namespace norda::vision
