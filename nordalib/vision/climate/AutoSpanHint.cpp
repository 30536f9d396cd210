#include "nordalib/vision/climate/AutoSpanHint.h"

#include "nordalib/vision/radiometry/RadiometricTools.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace norda::vision {

namespace {
double usable(float factor, double fallback, double lo, double hi) {
    if (!std::isfinite(factor))
        return fallback;
    return std::clamp(static_cast<double>(factor), lo, hi);
}
// A temperature a radiometric pixel can hold. MarkedFloat stores infinity as the largest float, so
// finiteness alone does not catch a failed sensor reading.
bool plausible(double celsius) {
    return celsius >= RadiometricTools::getFloat(0) && celsius <= RadiometricTools::getFloat(65535);
}
} // namespace

AutoSpanHint::Span AutoSpanHint::calculateSpan(const Temperature& tempIn, const Temperature& tempOut,
                                               const Temperature& imageTemperature, float criticalFactor,
                                               float spanFactor, float imageWeight) {
    const double f = usable(criticalFactor, 0.7, 0.0, 1.0);
    const double s = usable(std::fabs(spanFactor), 0.3, 0.0, 10.0);
    const double w = usable(imageWeight, 0.7, 0.0, 1.0);
    const double tin = tempIn.celsius();
    const double tout = tempOut.celsius();
    const double timg = imageTemperature.celsius();
    const double nan = std::numeric_limits<double>::quiet_NaN();

    Span span{nan, nan, nan};
    double centre = nan;
    double half = kMinSpan / 2.0;
    if (plausible(tin) && plausible(tout)) {
        const double dT = tin - tout;
        span.critical = tout + f * dT;
        half = std::max(s * std::fabs(dT), half);
        centre = plausible(timg) ? w * timg + (1.0 - w) * span.critical : span.critical;
    } else if (plausible(timg)) {
        centre = timg;
    } else {
        return span;
    }
    span.minimum = centre - half;
    span.maximum = centre + half;

    if (std::isfinite(span.critical)) {
        const double margin = kEdgeMargin * (span.maximum - span.minimum);
        double shift = 0.0;
        if (span.critical < span.minimum + margin)
            shift = span.critical - (span.minimum + margin);
        else if (span.critical > span.maximum - margin)
            shift = span.critical - (span.maximum - margin);
        span.minimum += shift;
        span.maximum += shift;
    }

    // Keep the span inside what a radiometric pixel can encode, keeping its width where possible.
    const double lowest = RadiometricTools::getFloat(0);
    const double highest = RadiometricTools::getFloat(65535);
    if (span.maximum > highest) {
        span.minimum = std::max(lowest, span.minimum - (span.maximum - highest));
        span.maximum = highest;
    }
    if (span.minimum < lowest) {
        span.maximum = std::min(highest, span.maximum + (lowest - span.minimum));
        span.minimum = lowest;
    }
    return span;
}

bool AutoSpanHint::calculateAutoSpanHint(unsigned short& min, unsigned short& max, const Temperature& tempIn,
                                         const Temperature& tempOut, const Temperature& imageTemperature,
                                         float criticalFactor, float spanFactor, float imageWeight) {
    const Span span =
        calculateSpan(tempIn, tempOut, imageTemperature, criticalFactor, spanFactor, imageWeight);
    if (!std::isfinite(span.minimum) || !std::isfinite(span.maximum))
        return false;
    min = RadiometricTools::getUint16(static_cast<float>(span.minimum));
    max = RadiometricTools::getUint16(static_cast<float>(span.maximum));
    return true;
}

} // namespace norda::vision
