#pragma once
// Spectral transmission of the air along a horizontal path: water-vapour continuum (Beer-Lambert)
// times line absorption at the window's edges by water vapour and carbon dioxide (Goody's random
// band model). Humidity enters through the saturation vapour pressure (Buck's formula). The air's
// own emission along a uniform path is (1 - tau) times a black body at the air temperature.

#include "apps/nordacam/sim/physics/Parameters.h"

#include <vector>

namespace nordacam::sim::physics {

class Atmosphere {
public:
    explicit Atmosphere(const AirParameters& p = {});

    // Saturation vapour pressure over water (Buck 1996), kPa.
    static double saturationVapourPressureKPa(double celsius);
    double vapourPressureKPa() const { return m_e; }
    double waterDensityGM3() const { return m_rhoW * 1e3; }

    // Transmission at `um` over `metres` (1 at zero distance).
    double transmission(double um, double metres) const;
    std::vector<double> transmission(const std::vector<double>& gridUm, double metres) const;
    const AirParameters& parameters() const { return m_p; }

private:
    AirParameters m_p;
    double m_e = 0.0;              // water vapour partial pressure, kPa
    double m_rhoW = 0.0;           // water vapour density, kg/m^3
    double m_rhoCo2 = 0.0;         // carbon dioxide density, kg/m^3
    double m_continuumScale = 0.0; // N_w (e + gamma (P - e)) exp(T0 (1/T - 1/296)), per m
};

} // namespace nordacam::sim::physics
