#pragma once
// In-band radiance of a black body as a function of temperature, tabulated once for a spectral
// weight (detector response times whatever lies in the path: lens, air) and read with linear
// interpolation, so that a frame costs a table look-up per surface instead of a band integral.
//
// Tables share a basis: Planck's spectral radiance at every (temperature, wavelength) node times
// the trapezoid rule's interval width, computed once; a table for a new weight is then one dot
// product per temperature (a new path length through the air costs well under a millisecond).

#include "apps/nordacam/sim/physics/Parameters.h"

#include <memory>
#include <vector>

namespace nordacam::sim::physics {

class RadianceTable {
public:
    struct Basis {
        std::vector<double> gridUm;
        TableParameters span;
        size_t temperatures = 0;
        std::vector<double> nodes; // temperatures x wavelengths
    };
    static std::shared_ptr<const Basis> basis(const std::vector<double>& gridUm,
                                              const TableParameters& p = {});

    RadianceTable() = default;
    RadianceTable(const Basis& basis, const std::vector<double>& weight);
    RadianceTable(const std::vector<double>& gridUm, const std::vector<double>& weight,
                  const TableParameters& p = {});

    // In-band radiance (W m^-2 sr^-1) at `celsius`; clamped to the table's span.
    double radiance(double celsius) const;
    bool empty() const { return m_values.empty(); }

private:
    std::vector<double> m_values;
    double m_loC = 0.0, m_step = 1.0;
};

} // namespace nordacam::sim::physics
