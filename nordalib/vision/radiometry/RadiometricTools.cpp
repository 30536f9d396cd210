#include "nordalib/vision/radiometry/RadiometricTools.h"

#include "nordalib/vision/radiometry/ObjectSignal.h"

#include <cmath>
#include <limits>

namespace norda::vision {

namespace {
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
}

unsigned short RadiometricTools::getUint16(float celsius) {
    const double counts = std::round((static_cast<double>(celsius) + kKelvinOffset) * kCountsPerKelvin);
    if (!(counts > 0.0)) // also NaN
        return 0;
    if (counts >= 65535.0)
        return 65535;
    return static_cast<unsigned short>(counts);
}

double RadiometricTools::planckSignal(const PlanckConstants& c, double kelvin) {
    if (!(kelvin > 0.0))
        return kNaN;
    const double e = std::exp(c.B / kelvin) - c.F;
    if (!(e > 0.0))
        return kNaN;
    return c.R1 / (c.R2 * e) - c.O;
}

double RadiometricTools::planckTemperature(const PlanckConstants& c, double signal) {
    const double s = signal + c.O;
    if (!(s > 0.0))
        return kNaN;
    const double arg = c.R1 / (c.R2 * s) + c.F;
    if (!(arg > 1.0))
        return kNaN;
    return c.B / std::log(arg);
}

double RadiometricTools::planckSlope(const PlanckConstants& c, double kelvin) {
    const double x = std::exp(c.B / kelvin);
    const double d = x - c.F;
    return c.R1 / c.R2 * x * c.B / (kelvin * kelvin * d * d);
}

double RadiometricTools::driftSignal(const RangeCalibration& cal, const RadiometricConditions& cond) {
    return cal.boardDriftGain * (cond.boardCurrentK - cond.boardShutteringK) +
           cal.boardSlopeGain * cond.boardSlope;
}

double RadiometricTools::detectorGain(const RangeCalibration& cal, const RadiometricConditions& cond) {
    if (cal.responsivityExponent == 0.0)
        return cond.gain;
    return cond.gain * std::pow(cal.responsivityReferenceK / cond.boardCurrentK, cal.responsivityExponent);
}

double RadiometricTools::correctedSignal(const RangeCalibration& cal, const RadiometricConditions& cond,
                                         double objectK) {
    const auto& p = cal.planck;
    const double window = ObjectSignal(p, cond).signal(objectK);
    const double det =
        cond.lensTransmission * window + (1.0 - cond.lensTransmission) * planckSignal(p, cond.lensK);
    return detectorGain(cal, cond) * (det - planckSignal(p, cond.shutterK) + driftSignal(cal, cond));
}

double RadiometricTools::objectTemperature(const RangeCalibration& cal, const RadiometricConditions& cond,
                                           double corrected) {
    const auto& p = cal.planck;
    const double det =
        corrected / detectorGain(cal, cond) + planckSignal(p, cond.shutterK) - driftSignal(cal, cond);
    const double window =
        (det - (1.0 - cond.lensTransmission) * planckSignal(p, cond.lensK)) / cond.lensTransmission;
    return ObjectSignal(p, cond).objectTemperature(window);
}

double RadiometricTools::shutterCounts(const RangeCalibration& cal, const RadiometricConditions& cond,
                                       double pedestal) {
    return pedestal + cond.gain * planckSignal(cal.planck, cond.shutterK);
}

double RadiometricTools::rawCounts(const RangeCalibration& cal, const RadiometricConditions& cond,
                                   double objectK, double pedestal) {
    return shutterCounts(cal, cond, pedestal) + correctedSignal(cal, cond, objectK);
}

double RadiometricTools::temperatureStep(const RangeCalibration& cal, const RadiometricConditions& cond,
                                         double objectK) {
    const double countsPerKelvin = detectorGain(cal, cond) * cond.lensTransmission *
                                   ObjectSignal(cal.planck, cond).gain() * planckSlope(cal.planck, objectK);
    return 1.0 / countsPerKelvin;
}

} // namespace norda::vision
