#include "apps/nordacam/sim/physics/Atmosphere.h"

#include "apps/nordacam/sim/physics/Planck.h"

#include "nordalib/core/exception/Exception.h"

#include <cmath>

namespace nordacam::sim::physics {

namespace {
constexpr double kR = 8.314462618;   // molar gas constant, J mol^-1 K^-1 (CODATA 2018)
constexpr double kMWater = 0.018015; // kg/mol
constexpr double kMCo2 = 0.044009;   // kg/mol
constexpr double kAtmKPa = 101.325;
} // namespace

double Atmosphere::saturationVapourPressureKPa(double t) {
    return 0.61121 * std::exp((18.678 - t / 234.5) * (t / (257.14 + t)));
}

Atmosphere::Atmosphere(const AirParameters& p) : m_p(p) {
    if (!(p.relativeHumidity >= 0.0 && p.relativeHumidity <= 1.0))
        NORDA_THROW("air: relative humidity must lie in 0..1",
                    "nordacam::sim::physics::Atmosphere::Atmosphere");
    if (!(p.temperatureC > -80.0 && p.temperatureC < 80.0) ||
        !(p.pressureKPa > 1.0 && p.pressureKPa < 200.0) || !(p.co2Ppm >= 0.0 && p.co2Ppm < 1e5))
        NORDA_THROW("air: temperature must lie in -80..80 C, pressure in 1..200 kPa, CO2 in 0..1e5 ppm",
                    "nordacam::sim::physics::Atmosphere::Atmosphere");
    const double t = p.temperatureC + Planck::kKelvin;
    m_e = p.relativeHumidity * saturationVapourPressureKPa(p.temperatureC);
    m_rhoW = m_e * 1e3 * kMWater / (kR * t);
    m_rhoCo2 = p.co2Ppm * 1e-6 * p.pressureKPa * 1e3 * kMCo2 / (kR * t);
    const double numberDensityCm3 = m_e * 1e3 / (Planck::kKB * t) * 1e-6;
    const double broadeningAtm = (m_e + p.continuumGamma * (p.pressureKPa - m_e)) / kAtmKPa;
    // Coefficient in cm^-1 per unit C(nu), times 100 for per metre.
    m_continuumScale =
        numberDensityCm3 * broadeningAtm * std::exp(p.continuumT0 * (1.0 / t - 1.0 / 296.0)) * 100.0;
}

double Atmosphere::transmission(double um, double metres) const {
    if (metres <= 0.0)
        return 1.0;
    const double nu = 1e4 / um; // wavenumber, cm^-1
    const double c = m_p.continuumA + m_p.continuumB * std::exp(-m_p.continuumBetaCm * nu);
    const double continuumDepth = c * m_continuumScale * metres;
    const double y = m_p.lineY * m_p.pressureKPa / kAtmKPa;
    auto goody = [y](double k, double u) {
        const double ku = k * u;
        return ku / std::sqrt(1.0 + ku / y);
    };
    const double kw = m_p.waterLineK * std::exp(-std::abs(nu - m_p.waterLineCentreCm) / m_p.waterLineWidthCm);
    const double kc = m_p.co2LineK * std::exp(-std::abs(nu - m_p.co2LineCentreCm) / m_p.co2LineWidthCm);
    return std::exp(-continuumDepth - goody(kw, m_rhoW * metres) - goody(kc, m_rhoCo2 * metres));
}

std::vector<double> Atmosphere::transmission(const std::vector<double>& gridUm, double metres) const {
    std::vector<double> t(gridUm.size());
    for (size_t i = 0; i < t.size(); ++i)
        t[i] = transmission(gridUm[i], metres);
    return t;
}

} // namespace nordacam::sim::physics
