#include "apps/nordacam/sim/physics/SpectralBand.h"

#include "nordalib/core/exception/Exception.h"

#include <cmath>

namespace nordacam::sim::physics {

SpectralBand::SpectralBand(const BandParameters& p) : m_p(p) {
    if (!(p.gridStepUm > 0.0) || !(p.gridHiUm > p.gridLoUm) || !(p.gridLoUm > 0.0) ||
        !(p.edgeWidthUm > 0.0) || !(p.cutOffUm > p.cutOnUm))
        NORDA_THROW("invalid spectral band: the grid and the edges must be positive and ordered",
                    "nordacam::sim::physics::SpectralBand::SpectralBand");
    const size_t n = static_cast<size_t>(std::floor((p.gridHiUm - p.gridLoUm) / p.gridStepUm + 1e-9)) + 1;
    if (n > 1000000)
        NORDA_THROW("invalid spectral band: more than a million grid points",
                    "nordacam::sim::physics::SpectralBand::SpectralBand");
    m_grid.resize(n);
    m_response.resize(n);
    for (size_t i = 0; i < n; ++i) {
        m_grid[i] = p.gridLoUm + static_cast<double>(i) * p.gridStepUm;
        m_response[i] = responseAt(m_grid[i]);
    }
}

double SpectralBand::responseAt(double um) const {
    const double on = 1.0 / (1.0 + std::exp(-(um - m_p.cutOnUm) / m_p.edgeWidthUm));
    const double off = 1.0 / (1.0 + std::exp((um - m_p.cutOffUm) / m_p.edgeWidthUm));
    return on * off;
}

} // namespace nordacam::sim::physics
