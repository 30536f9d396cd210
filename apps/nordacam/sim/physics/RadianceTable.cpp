#include "apps/nordacam/sim/physics/RadianceTable.h"

#include "apps/nordacam/sim/physics/Planck.h"

#include "nordalib/core/exception/Exception.h"

#include <algorithm>
#include <cmath>

namespace nordacam::sim::physics {

std::shared_ptr<const RadianceTable::Basis> RadianceTable::basis(const std::vector<double>& gridUm,
                                                                 const TableParameters& p) {
    if (gridUm.size() < 2 || gridUm.size() > 1000000 || !std::is_sorted(gridUm.begin(), gridUm.end()) ||
        !(gridUm.front() > 0.0))
        NORDA_THROW("radiance table: the grid must hold 2 to 10^6 ascending positive wavelengths",
                    "nordacam::sim::physics::RadianceTable::basis");
    if (!(p.stepK > 0.0) || !(p.hiC > p.loC) || p.loC <= -Planck::kKelvin ||
        (p.hiC - p.loC) / p.stepK > 1e5 || (p.hiC - p.loC) / p.stepK * double(gridUm.size()) > 5e7)
        NORDA_THROW(
            "radiance table: the span must lie above absolute zero, ordered, with a positive step and "
            "at most 5e7 nodes",
            "nordacam::sim::physics::RadianceTable::basis");
    auto b = std::make_shared<Basis>();
    b->gridUm = gridUm;
    b->span = p;
    b->temperatures = size_t(std::ceil((p.hiC - p.loC) / p.stepK)) + 1;
    const size_t n = gridUm.size();
    std::vector<double> width(n);
    for (size_t i = 0; i < n; ++i)
        width[i] = 0.5 * ((i + 1 < n ? gridUm[i + 1] : gridUm[i]) - (i > 0 ? gridUm[i - 1] : gridUm[i]));
    b->nodes.resize(b->temperatures * n);
    for (size_t t = 0; t < b->temperatures; ++t) {
        const double kelvin = p.loC + double(t) * p.stepK + Planck::kKelvin;
        for (size_t i = 0; i < n; ++i)
            b->nodes[t * n + i] = Planck::spectralRadiance(gridUm[i], kelvin) * width[i];
    }
    return b;
}

RadianceTable::RadianceTable(const Basis& basis, const std::vector<double>& weight)
    : m_loC(basis.span.loC), m_step(basis.span.stepK) {
    const size_t n = basis.gridUm.size();
    if (weight.size() != n)
        NORDA_THROW("radiance table: the weights must match the grid",
                    "nordacam::sim::physics::RadianceTable::RadianceTable");
    m_values.resize(basis.temperatures);
    for (size_t t = 0; t < basis.temperatures; ++t) {
        const double* row = basis.nodes.data() + t * n;
        double sum = 0.0;
        for (size_t i = 0; i < n; ++i)
            sum += row[i] * weight[i];
        m_values[t] = sum;
    }
}

RadianceTable::RadianceTable(const std::vector<double>& gridUm, const std::vector<double>& weight,
                             const TableParameters& p)
    : RadianceTable(*basis(gridUm, p), weight) {}

double RadianceTable::radiance(double celsius) const {
    const double pos = std::clamp((celsius - m_loC) / m_step, 0.0, double(m_values.size() - 1));
    const size_t i = std::min(size_t(pos), m_values.size() - 2);
    const double f = pos - double(i);
    return m_values[i] + f * (m_values[i + 1] - m_values[i]);
}

} // namespace nordacam::sim::physics
