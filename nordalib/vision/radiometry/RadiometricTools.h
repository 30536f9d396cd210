#pragma once
// The 16-bit temperature encoding of radiometric frames, used by the whole library, and the
// radiometric camera model shared by the radiometry models (signal -> temperature) and by scene
// simulators (temperature -> signal).
//
// Encoding:
//   pixel = round((T[°C] + 273.15) * 100)        T[°C] = pixel / 100 - 273.15
// i.e. 0.01 K per count from absolute zero: 0 is -273.15 °C, 27315 is 0 °C, 65535 is 382.20 °C.
// Temperatures outside that span saturate at 0 or 65535. The order of pixel values is the order
// of temperatures, so extrema can be searched on raw pixels.
//
// Camera model (all temperatures in kelvin, signals in detector counts):
//   Planck curve         S(T) = R1 / (R2 * (exp(B / (T + T0)) - F)) - O
//   detector signal      Sdet = tauL * Swin + (1 - tauL) * S(Tlens)            (lens, type B only)
//   at the camera front  Swin = ObjectSignal: object, air and external window (ObjectSignal.h)
//   board drift          D = driftGain * (TboardCurrent - TboardShuttering) + slopeGain * slope
//                          + emissionGain * (S(TboardCurrent) - S(TboardShuttering))
//                          + lagGain * (S(Tlag) - S(TlagShuttering))
//   responsivity         g = (Tref / TboardCurrent)^n                            (n = 0: g = 1)
//   offset-corrected     C = gain * g * (Sdet - S(Tshutter) + D)
// The offset frame is captured against the closed shutter, so the corrected frame C is a signal
// difference against the shutter; D is the signal the detector picked up from its own warming
// since then, which the shutter reference does not contain. `gain` is the ratio of the detector's
// responsivity in the current frame mode to the one the constants were fitted for (1 in the normal
// mode).
//
// g is the bolometer's responsivity at the current focal-plane (board) temperature relative to
// the one at Tref, where the Planck constants hold. It follows the film's temperature coefficient
// of resistance, -Ea / (k T^2), hence the power law (n = 2 for that law; first order
// g = 1 - n (Tb - Tref) / Tref, about -0.65 %/K at 30 °C). Object and shutter go through the same
// detector: with r the responsivity, the frame reads r(Tb) Sdet and the shutter frame, taken at
// the board temperature Tbs of shuttering, r(Tbs) S(Tshutter). Their difference is
//   r(Tb) (Sdet - S(Tshutter)) + (r(Tb) - r(Tbs)) S(Tshutter),
// a gain on the signal difference plus a term that grows with the board warming Tb - Tbs and so
// is part of D. g therefore scales the whole difference, the object's signal and the shutter
// reference alike, and not a signal alone.
//
// The emission and lag terms are what the detector exchanges by radiation with its surroundings
// besides the scene: its own emission at the focal plane's temperature (on the board, no lag; the
// emission gain is negative), and the housing, which fills most of the detector's view but follows
// the board with a delay and rises by a share of the board's own rise, so while the camera warms up
// its radiation changes faster (or slower) than the board's temperature says. Tlag is the housing's
// estimate of BoardLag (lagTimeConstant, lagShare), now and when the shutter closed. When the
// surroundings change with the camera settled, every part follows them alike: without a lag filter
// (no uptime; the settled factory views) Tlag is the board temperature itself.
//
// A simulated detector delivers raw = pedestal + gain * (Sdet + D); the shutter frame it gives while
// closed is pedestal + gain * S(Tshutter). Their difference is C, what the offset element passes on.

#include "nordalib/vision/radiometry/ObjectParameters.h"

#include <cstdint>
#include <vector>

namespace norda::vision {

// Per-measurement-range constants of the Planck camera equation. T0 (kelvin, default 0) shifts the
// temperature in the exponent: a broad band's integral of Planck's law follows exp(B / (T + T0))
// more closely than exp(B / T) over a wide range (the band's effective wavelength moves with T).
struct PlanckConstants {
    double R1 = 0.0;
    double R2 = 1.0;
    double B = 1428.0;
    double F = 1.0;
    double O = 0.0;
    double T0 = 0.0;

    // As frames carry them: R1, R2, B, F, O and T0 when it is not 0. A vector of five reads T0 = 0;
    // another length throws.
    std::vector<double> toVector() const;
    static PlanckConstants fromVector(const std::vector<double>& v);
};

// Everything the model needs for one measurement range.
struct RangeCalibration {
    PlanckConstants planck;
    double boardDriftGain = 0.0; // counts per kelvin of board warming since the shutter closed
    double boardSlopeGain = 0.0; // counts per (kelvin per minute) of board temperature slope
    double slowFrameGain = 1.0;  // responsivity in slow-frame mode relative to the normal mode
    double boardLagGain = 0.0;   // share of the lagged board's Planck signal change in D; 0: no lag term
    double boardLagTimeConstantS = 100.0;   // time constant of the lag (seconds)
    double boardLagShare = 1.0;             // the housing's share of the board's rise since switching on
    double boardEmissionGain = 0.0;         // share of the board's own Planck signal change in D
    double responsivityExponent = 0.0;      // n of g = (Tref / Tboard)^n; 0: no board dependence
    double responsivityReferenceK = 303.15; // Tref, the board temperature the Planck constants hold at
    double bandBottomK = 233.15;            // calibrated object temperature band
    double bandTopK = 423.15;
};

// Measurement conditions of one frame: the object side (emissivity, reflected temperature, air,
// protective glass) and the camera's own.
struct RadiometricConditions : ObjectParameters {
    double shutterK = 298.15;
    double boardCurrentK = 303.15;
    double boardShutteringK = 303.15;
    double boardSlope = 0.0; // kelvin per minute
    // The board temperature through the range's lag filter now and when the shutter closed (BoardLag);
    // 0: not known, the board temperatures stand in (a settled camera).
    double boardLagK = 0.0;
    double boardLagShutteringK = 0.0;
    double lensTransmission = 1.0;
    double lensK = 298.15;
    double gain = 1.0;

    bool operator==(const RadiometricConditions&) const = default;
};

class RadiometricTools {
public:
    static constexpr float kKelvinOffset = 273.15f;
    static constexpr float kCountsPerKelvin = 100.0f;

    // Pixel value to temperature in °C.
    static float getFloat(unsigned short pixel) {
        return static_cast<float>(pixel) / kCountsPerKelvin - kKelvinOffset;
    }
    // Temperature in °C to pixel value, rounded to the nearest count and saturated; NaN gives 0.
    static unsigned short getUint16(float celsius);

    // Planck curve S(T) for T in kelvin; NaN when exp(B/T) <= F (outside the curve's domain).
    static double planckSignal(const PlanckConstants& c, double kelvin);
    // Inverse of the Planck curve: the temperature in kelvin of signal s. NaN when the inversion is
    // undefined: s + O <= 0 (below absolute zero) or the logarithm's argument <= 1 (above infinity).
    static double planckTemperature(const PlanckConstants& c, double signal);
    // Slope dS/dT at T (counts per kelvin).
    static double planckSlope(const PlanckConstants& c, double kelvin);

    // Board drift D of the conditions (counts).
    static double driftSignal(const RangeCalibration& cal, const RadiometricConditions& cond);
    // The detector's gain on the corrected signal, gain * g (exactly cond.gain when n = 0).
    static double detectorGain(const RangeCalibration& cal, const RadiometricConditions& cond);
    // The offset-corrected signal C that an object at objectK produces under the conditions.
    static double correctedSignal(const RangeCalibration& cal, const RadiometricConditions& cond,
                                  double objectK);
    // Inverse of correctedSignal: the object temperature (kelvin) of a corrected signal; NaN where
    // the signal has no physical temperature.
    static double objectTemperature(const RangeCalibration& cal, const RadiometricConditions& cond,
                                    double corrected);
    // Raw counts of a simulated detector: the shutter frame (pedestal + gain * S(Tshutter)) plus the
    // corrected signal. Offset-correcting them against shutterCounts() gives correctedSignal().
    static double rawCounts(const RangeCalibration& cal, const RadiometricConditions& cond, double objectK,
                            double pedestal);
    static double shutterCounts(const RangeCalibration& cal, const RadiometricConditions& cond,
                                double pedestal);
    // Object temperature change per count of corrected signal at objectK (kelvin per count).
    static double temperatureStep(const RangeCalibration& cal, const RadiometricConditions& cond,
                                  double objectK);
};

} // namespace norda::vision
