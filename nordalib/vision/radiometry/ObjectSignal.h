#pragma once
// ObjectSignal: the object-signal equation, the one place where the signal that reaches the
// camera's front from an object is computed and inverted.
//
//   Swin = tauW * [ tauA * (eps * S(Tobj) + (1 - eps) * S(Trefl)) + (1 - tauA) * S(Tair) ]
//          + emisW * S(Twin) + rhoW * S(TwinRefl)
//
// S is the Planck curve of the measurement range (RadiometricTools::planckSignal). The object emits
// eps * S(Tobj) and reflects (1 - eps) of its surroundings at Trefl. The air between object and
// window transmits tauA of that and, absorbing the rest, emits (1 - tauA) * S(Tair) (Kirchhoff).
// The external window transmits tauW, emits emisW * S(Twin) and reflects rhoW of the radiation on
// the camera's side, at TwinRefl. Without air (distance 0) and with a window at the reflected
// temperature that does not reflect, this is the equation the library has always used.
//
// Air transmission (band 7.5-14 um): the water-vapour continuum of Roberts, Selby and Biberman
// (Appl. Opt. 15, 2085, 1976), with the vapour pressure from relative humidity and Buck's (1996)
// saturation vapour pressure over water, averaged over the band with equal weight per wavelength.
// It leaves out absorption lines (water at the band's edges, CO2 above 13 um), so it overestimates
// the transmission of short paths; docs/radiometry.md has the constants and their limits. A known
// transmission (ObjectParameters::airTauSet) replaces the model.
//
// Swin is linear in S(Tobj): Swin = gain() * S(Tobj) + offset(), which the radiometric table uses.

#include "nordalib/vision/radiometry/ObjectParameters.h"
#include "nordalib/vision/radiometry/RadiometricTools.h"

namespace norda::vision {

class ObjectSignal {
public:
    // Throws norda::Exception naming the first parameter out of range (ObjectParameters::validate).
    ObjectSignal(const PlanckConstants& planck, const ObjectParameters& p);

    // The signal at the camera's front of an object at objectK; NaN outside the Planck curve.
    double signal(double objectK) const;
    // What leaves the surface, eps * S(Tobj) + (1 - eps) * S(Trefl), of a front signal.
    double sceneSignal(double frontSignal) const;
    // The object's own Planck signal S(Tobj) of a front signal.
    double objectSignal(double frontSignal) const;
    // The object temperature (kelvin) of a front signal; NaN where it has none.
    double objectTemperature(double frontSignal) const;

    double gain() const;   // dSwin / dS(Tobj)
    double offset() const; // Swin at S(Tobj) = 0
    double reflectedSignal() const { return m_sRefl; }
    double airTransmission() const { return m_tauAir; }
    const ObjectParameters& parameters() const { return m_p; }
    // The same path with another emissivity (no second air model evaluation).
    ObjectSignal withEmissivity(double emissivity) const;

    // Band transmission of the air path of `p` (its airTauSet when given). Validates `p`.
    static double airTransmission(const ObjectParameters& p);
    // Saturation vapour pressure over water (Pa) at kelvin, Buck (1996).
    static double saturationVapourPressure(double kelvin);

private:
    PlanckConstants m_planck;
    ObjectParameters m_p;
    double m_tauAir = 1.0;
    double m_sRefl = 0.0;
    double m_sAir = 0.0;     // only when m_tauAir < 1
    double m_sWin = 0.0;     // window emission signal
    double m_sWinRefl = 0.0; // only when the window reflects
};

} // namespace norda::vision
