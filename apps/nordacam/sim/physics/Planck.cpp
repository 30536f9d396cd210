#include "apps/nordacam/sim/physics/Planck.h"

#include <cmath>

namespace nordacam::sim::physics {

double Planck::spectralRadiance(double um, double kelvin) {
    const double l = um * 1e-6;
    const double x = kC2 / (l * kelvin);
    // Per metre of wavelength, then per micrometre.
    return kC1L / (l * l * l * l * l) / std::expm1(x) * 1e-6;
}

double Planck::bandRadiance(const std::vector<double>& gridUm, const std::vector<double>& weight,
                            double kelvin) {
    double sum = 0.0;
    double prev = weight.empty() ? 0.0 : weight[0] * spectralRadiance(gridUm[0], kelvin);
    for (size_t i = 1; i < gridUm.size(); ++i) {
        const double v = weight[i] * spectralRadiance(gridUm[i], kelvin);
        sum += 0.5 * (prev + v) * (gridUm[i] - gridUm[i - 1]);
        prev = v;
    }
    return sum;
}

} // namespace nordacam::sim::physics
