#pragma once
// Planck's law of black-body radiation with the exact SI constants (CODATA 2018 fixes h, c and
// k_B exactly), and integrals of it over a wavelength grid with spectral weights.

#include <vector>

namespace nordacam::sim::physics {

class Planck {
public:
    static constexpr double kH = 6.62607015e-34;       // Planck constant, J s
    static constexpr double kC = 299792458.0;          // speed of light, m/s
    static constexpr double kKB = 1.380649e-23;        // Boltzmann constant, J/K
    static constexpr double kC1L = 2.0 * kH * kC * kC; // first radiation constant for radiance, W m^2 sr^-1
    static constexpr double kC2 = kH * kC / kKB;       // second radiation constant, m K
    static constexpr double kKelvin = 273.15;

    // Spectral radiance of a black body at `kelvin`, W m^-2 sr^-1 um^-1, at `um` micrometres.
    static double spectralRadiance(double um, double kelvin);
    // Trapezoidal integral of weight(l) * L(l, T) over the grid (W m^-2 sr^-1).
    static double bandRadiance(const std::vector<double>& gridUm, const std::vector<double>& weight,
                               double kelvin);
};

} // namespace nordacam::sim::physics
