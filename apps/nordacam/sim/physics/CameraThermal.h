#pragma once
// The camera body's temperatures. After switching on, the board warms towards ambient + rise with
// a time constant; focal plane, housing, lens, window and shutter follow it, each with a
// first-order lag towards its own steady share of the board's rise:
//   board(t)   = ambient + rise (1 - exp(-t / tau_b))
//   dT_part/dt = (ambient + share (board - ambient) - T_part) / tau_part
// The focal plane sits on the board (no lag, a fixed step above it).

#include "apps/nordacam/sim/physics/Parameters.h"
#include "apps/nordacam/sim/physics/Shutter.h"

namespace nordacam::sim::physics {

struct CameraTemperatures {
    double ambientC = 21.0, boardC = 39.0, boardSlopeKPerMin = 0.0, fpaC = 40.5;
    double housingC = 36.3, lensC = 28.2, windowC = 22.8, shutterC = 35.8;
};

class CameraThermal {
public:
    CameraThermal(const ThermalParameters& t = {}, const ShutterParameters& s = {});

    // Switched on at time 0 with every part at ambient; run on to uptimeS.
    void switchOn(double uptimeS);
    void advance(double dtS);
    // Advance in steps of at most a second up to uptimeS (no step when already there).
    void runTo(double uptimeS);
    // Settled with the board at boardC (ambient boardC - rise), as in a long calibration run.
    void settle(double boardC);
    const CameraTemperatures& temperatures() const { return m_t; }
    double uptimeS() const { return m_time; }

private:
    double boardAt(double timeS) const;

    ThermalParameters m_p;
    Shutter m_shutter;
    CameraTemperatures m_t;
    double m_time = 0.0;
};

} // namespace nordacam::sim::physics
