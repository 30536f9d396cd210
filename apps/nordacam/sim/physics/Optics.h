#pragma once
// The lens and the protective window in front of it: their spectral transmission, reflectance and
// emissivity (Kirchhoff: what a surface neither transmits nor reflects, it absorbs and so emits),
// the projected solid angle through which the detector sees the scene (set by the f-number), and
// the point-spread function, a Gaussian core plus a faint wide Gaussian of scattered light.

#include "apps/nordacam/sim/physics/Parameters.h"

#include <opencv2/core.hpp>

#include <vector>

namespace nordacam::sim::physics {

class Optics {
public:
    explicit Optics(const OpticsParameters& p = {});

    double lensTransmission(double um) const;
    double lensEmissivity(double um) const { return 1.0 - lensTransmission(um) - m_p.lensReflectance; }
    // Flat across the band; 1, 0, 0 without a window.
    double windowTransmission() const { return m_p.window ? m_p.windowTransmission : 1.0; }
    double windowReflectance() const { return m_p.window ? m_p.windowReflectance : 0.0; }
    double windowEmissivity() const { return 1.0 - windowTransmission() - windowReflectance(); }
    // Share of the detector's hemisphere (projected solid angle / pi) filled by the lens's cone:
    // sin^2 of the marginal ray's angle, 1 / (1 + 4 N^2).
    double apertureShare() const { return 1.0 / (1.0 + 4.0 * m_p.fNumber * m_p.fNumber); }

    // Blur a radiance image (CV_32F) in place with the point-spread function.
    void blur(cv::Mat& radiance) const;
    const OpticsParameters& parameters() const { return m_p; }

private:
    OpticsParameters m_p;
    mutable cv::Mat m_small, m_wing;
};

} // namespace nordacam::sim::physics
