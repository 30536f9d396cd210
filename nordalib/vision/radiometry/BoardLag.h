#pragma once
// BoardLag: the camera's estimate of its housing's temperature from its board sensor: the board's
// rise since switching on, scaled by the housing's share of it, through a first-order lag
// (RadiometricTools, the lag term of the drift).
//
//   dL/dt = (T0 + share (Tboard - T0) - L) / tau,   T0 the first reading (switched on settled)
//
// Integrated exactly for a board temperature that changes linearly between two readings, so the
// estimate does not depend on how often it is fed (every frame, or once a second in a factory log).
// Readings going back in time (a restart) or after a gap of more than ten time constants start it
// afresh at the board's temperature. A start long after switching on (more than a twentieth of the
// time constant), given the board's slope, takes the lag's steady state on that slope instead: the
// estimate trails the board by share * slope * tau.

#include <utility>
#include <vector>

namespace norda::vision {

class BoardLag {
public:
    // Throws a norda::Exception unless timeConstantS is a positive number and share a finite one.
    explicit BoardLag(double timeConstantS, double share = 1.0);

    // Feeds the reading at uptimeS (seconds since switching on); returns the lagged temperature.
    // slopeKPerS, the board's slope, is used only when the filter starts.
    double update(double uptimeS, double boardK, double slopeKPerS = 0.0);
    double value() const { return m_value; }
    bool started() const { return m_started; }
    double timeConstantS() const { return m_tau; }
    double lastUptimeS() const { return m_time; }

    // The lagged temperature at `uptimeS` of a log of readings (uptime s, board K) in time order,
    // fed from its start up to uptimeS (the last step interpolated); NaN for an empty log.
    static double at(const std::vector<std::pair<double, double>>& log, double timeConstantS, double share,
                     double uptimeS);

private:
    double m_tau;
    double m_share;
    double m_start = 0.0; // the first reading
    double m_value = 0.0;
    double m_time = 0.0;
    double m_board = 0.0;
    bool m_started = false;
};

} // namespace norda::vision
