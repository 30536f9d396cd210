#pragma once
// The shutter: a flat, near-black plate that swings in between lens and detector. It has no
// heating of its own; it exchanges heat with the housing it hangs in and follows the housing's
// temperature with a first-order lag, dT/dt = (T_housing - dT_below - T) / tau, settling a little
// below it (its front faces the cooler lens).

#include "apps/nordacam/sim/physics/Parameters.h"

namespace nordacam::sim::physics {

class Shutter {
public:
    explicit Shutter(const ShutterParameters& p = {});

    // Advance by dtS seconds with the housing at housingC (exact solution of the lag over the step).
    void follow(double housingC, double dtS);
    // The steady temperature next to a housing at housingC.
    void settle(double housingC);
    double temperatureC() const { return m_c; }
    double emissivity() const { return m_p.emissivity; }

private:
    ShutterParameters m_p;
    double m_c = 20.0;
};

} // namespace nordacam::sim::physics
