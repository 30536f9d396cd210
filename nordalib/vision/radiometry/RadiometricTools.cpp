#include "nordalib/vision/radiometry/RadiometricTools.h"

#include "nordalib/vision/radiometry/ObjectSignal.h"

#include "nordalib/core/exception/Exception.h"

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

std::vector<double> PlanckConstants::toVector() const {
    std::vector<double> v{R1, R2, B, F, O};
    if (T0 != 0.0)
        v.push_back(T0);
    return v;
}

PlanckConstants PlanckConstants::fromVector(const std::vector<double>& v) {
    if (v.size() != 5 && v.size() != 6)
        NORDA_THROW("Planck constants need 5 or 6 values (R1, R2, B, F, O[, T0]), got " +
                        std::to_string(v.size()),
                    "norda::vision::PlanckConstants::fromVector");
    return {v[0], v[1], v[2], v[3], v[4], v.size() == 6 ? v[5] : 0.0};
}

double RadiometricTools::planckSignal(const PlanckConstants& c, double kelvin) {
    if (!(kelvin + c.T0 > 0.0))
        return kNaN;
    const double e = std::exp(c.B / (kelvin + c.T0)) - c.F;
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
    const double kelvin = c.B / std::log(arg) - c.T0;
    return kelvin > 0.0 ? kelvin : kNaN;
}

double RadiometricTools::planckSlope(const PlanckConstants& c, double kelvin) {
    const double t = kelvin + c.T0;
    const double x = std::exp(c.B / t);
    const double d = x - c.F;
    return c.R1 / c.R2 * x * c.B / (t * t * d * d);
}

double RadiometricTools::driftSignal(const RangeCalibration& cal, const RadiometricConditions& cond) {
    double d = cal.boardDriftGain * (cond.boardCurrentK - cond.boardShutteringK) +
               cal.boardSlopeGain * cond.boardSlope;
    if (cal.boardEmissionGain != 0.0)
        d += cal.boardEmissionGain *
             (planckSignal(cal.planck, cond.boardCurrentK) - planckSignal(cal.planck, cond.boardShutteringK));
    if (cal.boardLagGain != 0.0) {
        const bool known = cond.boardLagK > 0.0 && cond.boardLagShutteringK > 0.0;
        d += cal.boardLagGain *
             (planckSignal(cal.planck, known ? cond.boardLagK : cond.boardCurrentK) -
              planckSignal(cal.planck, known ? cond.boardLagShutteringK : cond.boardShutteringK));
    }
    return d;
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
