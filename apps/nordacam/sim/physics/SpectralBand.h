#pragma once
// The wavelength grid of every band integral and the detector's relative spectral response on it:
// a band-pass with logistic edges at the cut-on and cut-off wavelengths (half power there).

#include "apps/nordacam/sim/physics/Parameters.h"

#include <vector>

namespace nordacam::sim::physics {

class SpectralBand {
public:
    explicit SpectralBand(const BandParameters& p = {});

    const std::vector<double>& grid() const { return m_grid; }
    // Detector response at each grid wavelength (0..1).
    const std::vector<double>& response() const { return m_response; }
    double responseAt(double um) const;
    const BandParameters& parameters() const { return m_p; }

private:
    BandParameters m_p;
    std::vector<double> m_grid, m_response;
};

} // namespace nordacam::sim::physics
