#include "apps/nordacam/sim/physics/Shutter.h"

#include "nordalib/core/exception/Exception.h"

#include <cmath>

namespace nordacam::sim::physics {

Shutter::Shutter(const ShutterParameters& p) : m_p(p) {
    if (!(p.emissivity > 0.0 && p.emissivity <= 1.0) || !(p.timeConstantS > 0.0))
        NORDA_THROW("shutter: emissivity must lie in (0, 1], the time constant be positive",
                    "nordacam::sim::physics::Shutter::Shutter");
}

void Shutter::follow(double housingC, double dtS) {
    const double target = housingC - m_p.belowHousingK;
    m_c = target + (m_c - target) * std::exp(-std::max(0.0, dtS) / m_p.timeConstantS);
}

void Shutter::settle(double housingC) {
    m_c = housingC - m_p.belowHousingK;
}

} // namespace nordacam::sim::physics
