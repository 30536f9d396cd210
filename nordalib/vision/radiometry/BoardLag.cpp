#include "nordalib/vision/radiometry/BoardLag.h"

#include "nordalib/core/exception/Exception.h"

#include <cmath>
#include <limits>
#include <string>

namespace norda::vision {

BoardLag::BoardLag(double timeConstantS, double share) : m_tau(timeConstantS), m_share(share) {
    if (!(timeConstantS > 0.0) || !std::isfinite(timeConstantS) || !std::isfinite(share))
        NORDA_THROW("board lag: time constant " + std::to_string(timeConstantS) +
                        " s must be positive, the share " + std::to_string(share) + " finite",
                    "norda::vision::BoardLag::BoardLag");
}

double BoardLag::update(double uptimeS, double boardK, double slopeKPerS) {
    const double dt = uptimeS - m_time;
    if (!m_started || dt < 0.0 || dt > 10.0 * m_tau) {
        m_started = true;
        m_value = m_start = boardK;
        if (uptimeS > 0.05 * m_tau && std::isfinite(slopeKPerS))
            m_value -= m_share * slopeKPerS * m_tau;
    } else if (dt > 0.0) {
        // Exact for a linear ramp from m_board to boardK over dt: the step response decays by a,
        // the ramp leaves the output behind by slope * tau (1 - a) / (dt / tau) of its rise.
        const double a = std::exp(-dt / m_tau);
        const double from = m_start + m_share * (m_board - m_start),
                     to = m_start + m_share * (boardK - m_start);
        const double ramp = (to - from) * m_tau / dt * (1.0 - a);
        m_value = to - ramp + (m_value - from) * a;
    }
    m_time = uptimeS;
    m_board = boardK;
    return m_value;
}

double BoardLag::at(const std::vector<std::pair<double, double>>& log, double timeConstantS, double share,
                    double uptimeS) {
    if (log.empty())
        return std::numeric_limits<double>::quiet_NaN();
    BoardLag lag(timeConstantS, share);
    for (size_t i = 0; i < log.size(); ++i) {
        const auto& [t, k] = log[i];
        if (t >= uptimeS) {
            if (i == 0)
                return lag.update(t, k);
            const auto& [t0, k0] = log[i - 1];
            return lag.update(uptimeS, t > t0 ? k0 + (k - k0) * (uptimeS - t0) / (t - t0) : k);
        }
        lag.update(t, k);
    }
    return lag.update(uptimeS, log.back().second); // the last reading held
}

} // namespace norda::vision
