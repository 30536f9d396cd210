#include "apps/nordacam/sim/physics/CameraThermal.h"

#include "nordalib/core/exception/Exception.h"

#include <cmath>

namespace nordacam::sim::physics {

CameraThermal::CameraThermal(const ThermalParameters& t, const ShutterParameters& s) : m_p(t), m_shutter(s) {
    if (!(t.boardTimeConstantS > 0.0) || !(t.housingTimeConstantS > 0.0) || !(t.lensTimeConstantS > 0.0) ||
        !(t.windowTimeConstantS > 0.0))
        NORDA_THROW("camera thermal model: time constants must be positive",
                    "nordacam::sim::physics::CameraThermal::CameraThermal");
    switchOn(0.0);
}

double CameraThermal::boardAt(double timeS) const {
    return m_t.ambientC + m_p.boardRiseK * (1.0 - std::exp(-timeS / m_p.boardTimeConstantS));
}

void CameraThermal::switchOn(double uptimeS) {
    m_time = 0.0;
    const double a = m_p.ambientC;
    m_t = {a, a, 0.0, a + m_p.fpaAboveBoardK, a, a, a, a};
    m_shutter.settle(a);
    m_t.shutterC = m_shutter.temperatureC();
    runTo(uptimeS);
}

void CameraThermal::runTo(double uptimeS) {
    if (!(uptimeS < 1e7))
        NORDA_THROW("camera thermal model: uptime must stay below 10^7 s",
                    "nordacam::sim::physics::CameraThermal::runTo");
    while (m_time < uptimeS)
        advance(std::min(1.0, uptimeS - m_time));
}

void CameraThermal::advance(double dtS) {
    if (!(dtS >= 0.0))
        NORDA_THROW("camera thermal model: time step must not be negative",
                    "nordacam::sim::physics::CameraThermal::advance");
    m_time += dtS;
    const double a = m_t.ambientC;
    m_t.boardC = boardAt(m_time);
    m_t.boardSlopeKPerMin =
        m_p.boardRiseK / m_p.boardTimeConstantS * std::exp(-m_time / m_p.boardTimeConstantS) * 60.0;
    m_t.fpaC = m_t.boardC + m_p.fpaAboveBoardK;
    const double rise = m_t.boardC - a;
    auto lag = [&](double& part, double share, double tau) {
        const double target = a + share * rise;
        part = target + (part - target) * std::exp(-dtS / tau);
    };
    lag(m_t.housingC, m_p.housingShare, m_p.housingTimeConstantS);
    lag(m_t.lensC, m_p.lensShare, m_p.lensTimeConstantS);
    lag(m_t.windowC, m_p.windowShare, m_p.windowTimeConstantS);
    m_shutter.follow(m_t.housingC, dtS);
    m_t.shutterC = m_shutter.temperatureC();
}

void CameraThermal::settle(double boardC) {
    const double a = boardC - m_p.boardRiseK, rise = m_p.boardRiseK;
    m_t.ambientC = a;
    m_t.boardC = boardC;
    m_t.boardSlopeKPerMin = 0.0;
    m_t.fpaC = boardC + m_p.fpaAboveBoardK;
    m_t.housingC = a + m_p.housingShare * rise;
    m_t.lensC = a + m_p.lensShare * rise;
    m_t.windowC = a + m_p.windowShare * rise;
    m_shutter.settle(m_t.housingC);
    m_t.shutterC = m_shutter.temperatureC();
    m_time = 1e9; // long after switching on: advancing keeps it settled
}

} // namespace nordacam::sim::physics
