#include "nordalib/vision/radiometry/ObjectSignal.h"

#include <cmath>

namespace norda::vision {

namespace {

// Water-vapour self-continuum, Roberts, Selby and Biberman (1976):
//   Cs(nu, 296 K) = a + b * exp(-beta * nu)     [cm^2 molecule^-1 atm^-1], nu in cm^-1
//   Cs(nu, T) = Cs(nu, 296 K) * exp(T0 * (1 / T - 1 / 296 K))
//   k = Cs(nu, T) * (e + gamma * (P - e)) * Nw  [cm^-1], e and P in atm, Nw molecules per cm^3
// gamma is the efficiency of foreign (N2, O2) broadening relative to self broadening.
constexpr double kContinuumA = 1.25e-22;
constexpr double kContinuumB = 1.67e-19;
constexpr double kContinuumBeta = 7.87e-3;
constexpr double kContinuumT0 = 1800.0;
constexpr double kContinuumRefK = 296.0;
constexpr double kForeignBroadening = 0.002;
constexpr double kPressurePa = 101325.0; // the path is taken at standard sea-level pressure
constexpr double kBoltzmann = 1.380649e-23;

// The camera band and the Simpson integration over it (even number of intervals).
constexpr double kBandLowUm = 7.5;
constexpr double kBandHighUm = 14.0;
constexpr int kBandIntervals = 64;

} // namespace

double ObjectSignal::saturationVapourPressure(double kelvin) {
    const double t = kelvin - 273.15;
    return 611.21 * std::exp((18.678 - t / 234.5) * (t / (257.14 + t)));
}

double ObjectSignal::airTransmission(const ObjectParameters& p) {
    p.validate();
    if (p.airTauSet)
        return *p.airTauSet;
    if (p.distanceM == 0.0 || p.humidityPercent == 0.0)
        return 1.0;
    const double ePa = p.humidityPercent / 100.0 * saturationVapourPressure(p.airK);
    const double eAtm = ePa / kPressurePa;
    const double perCm3 = ePa / (kBoltzmann * p.airK) * 1e-6;
    const double scale = std::exp(kContinuumT0 * (1.0 / p.airK - 1.0 / kContinuumRefK)) *
                         (eAtm + kForeignBroadening * (1.0 - eAtm)) * perCm3 * (p.distanceM * 100.0);
    const double h = (kBandHighUm - kBandLowUm) / kBandIntervals;
    double sum = 0.0;
    for (int i = 0; i <= kBandIntervals; ++i) {
        const double nu = 1e4 / (kBandLowUm + i * h);
        const double tau = std::exp(-(kContinuumA + kContinuumB * std::exp(-kContinuumBeta * nu)) * scale);
        sum += tau * (i == 0 || i == kBandIntervals ? 1.0 : i % 2 ? 4.0 : 2.0);
    }
    return sum * h / 3.0 / (kBandHighUm - kBandLowUm);
}

ObjectSignal::ObjectSignal(const PlanckConstants& planck, const ObjectParameters& p)
    : m_planck(planck), m_p(p), m_tauAir(airTransmission(p)) {
    m_sRefl = RadiometricTools::planckSignal(m_planck, p.reflectedK);
    if (m_tauAir < 1.0)
        m_sAir = RadiometricTools::planckSignal(m_planck, p.airK);
    m_sWin = p.pgK ? RadiometricTools::planckSignal(m_planck, *p.pgK) : m_sRefl;
    if (p.pgReflectance > 0.0)
        m_sWinRefl = p.pgReflectedK ? RadiometricTools::planckSignal(m_planck, *p.pgReflectedK) : m_sRefl;
}

ObjectSignal ObjectSignal::withEmissivity(double emissivity) const {
    ObjectSignal s = *this;
    s.m_p.emissivity = emissivity;
    if (!(emissivity > 0.0 && emissivity <= 1.0))
        s.m_p.validate(); // throws naming the emissivity
    return s;
}

// Terms with a zero coefficient are left out rather than multiplied by 0, so that the defaults
// give bit for bit the results of the equation without air and window reflection.
double ObjectSignal::signal(double objectK) const {
    const double eps = m_p.emissivity;
    const double scene = eps * RadiometricTools::planckSignal(m_planck, objectK) + (1.0 - eps) * m_sRefl;
    const double path = m_tauAir < 1.0 ? m_tauAir * scene + (1.0 - m_tauAir) * m_sAir : scene;
    double front = m_p.tauPg * path + m_p.emisPg * m_sWin;
    if (m_p.pgReflectance > 0.0)
        front += m_p.pgReflectance * m_sWinRefl;
    return front;
}

double ObjectSignal::sceneSignal(double front) const {
    double w = front - m_p.emisPg * m_sWin;
    if (m_p.pgReflectance > 0.0)
        w -= m_p.pgReflectance * m_sWinRefl;
    const double path = w / m_p.tauPg;
    return m_tauAir < 1.0 ? (path - (1.0 - m_tauAir) * m_sAir) / m_tauAir : path;
}

double ObjectSignal::objectSignal(double front) const {
    return (sceneSignal(front) - (1.0 - m_p.emissivity) * m_sRefl) / m_p.emissivity;
}

double ObjectSignal::objectTemperature(double front) const {
    return RadiometricTools::planckTemperature(m_planck, objectSignal(front));
}

double ObjectSignal::gain() const {
    return m_p.tauPg * m_tauAir * m_p.emissivity;
}

double ObjectSignal::offset() const {
    const double scene = (1.0 - m_p.emissivity) * m_sRefl;
    const double path = m_tauAir < 1.0 ? m_tauAir * scene + (1.0 - m_tauAir) * m_sAir : scene;
    double front = m_p.tauPg * path + m_p.emisPg * m_sWin;
    if (m_p.pgReflectance > 0.0)
        front += m_p.pgReflectance * m_sWinRefl;
    return front;
}

} // namespace norda::vision
