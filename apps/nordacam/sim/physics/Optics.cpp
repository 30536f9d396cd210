#include "apps/nordacam/sim/physics/Optics.h"

#include "nordalib/core/exception/Exception.h"

#include <opencv2/imgproc.hpp>

#include <cmath>

namespace nordacam::sim::physics {

namespace {
constexpr int kWingScale = 4; // the wide Gaussian is applied at a quarter of the resolution
}

Optics::Optics(const OpticsParameters& p) : m_p(p) {
    const auto bad = [](double v) { return !(v >= 0.0 && v <= 1.0); };
    if (!(p.fNumber >= 0.5 && p.fNumber <= 32.0))
        NORDA_THROW("optics: the f-number must lie in 0.5..32", "nordacam::sim::physics::Optics::Optics");
    if (bad(p.lensPeakTransmission) || bad(p.lensPeakTransmission - p.lensEdgeDrop) ||
        bad(p.lensReflectance) || p.lensPeakTransmission + p.lensReflectance > 1.0 ||
        bad(p.windowTransmission) || bad(p.windowReflectance) ||
        p.windowTransmission + p.windowReflectance > 1.0 || !(p.lensHalfWidthUm > 0.0))
        NORDA_THROW("optics: transmissions and reflectances must lie in 0..1 and add up to at most 1",
                    "nordacam::sim::physics::Optics::Optics");
    if (!(p.psfCoreSigmaPx >= 0.0 && p.psfCoreSigmaPx <= 20.0) || bad(p.psfWingFraction) ||
        !(p.psfWingSigmaPx > 0.0 && p.psfWingSigmaPx <= 200.0))
        NORDA_THROW(
            "optics: PSF widths must lie in 0..20 px (core) and 0..200 px (wing), the wing share in 0..1",
            "nordacam::sim::physics::Optics::Optics");
}

double Optics::lensTransmission(double um) const {
    const double x = (um - m_p.lensCentreUm) / m_p.lensHalfWidthUm;
    return std::max(0.0, m_p.lensPeakTransmission - m_p.lensEdgeDrop * x * x);
}

void Optics::blur(cv::Mat& radiance) const {
    const double eta = m_p.psfWingFraction;
    if (eta > 0.0) {
        const cv::Size small((radiance.cols + kWingScale - 1) / kWingScale,
                             (radiance.rows + kWingScale - 1) / kWingScale);
        cv::resize(radiance, m_small, small, 0, 0, cv::INTER_AREA);
        cv::GaussianBlur(m_small, m_small, cv::Size(), m_p.psfWingSigmaPx / kWingScale, 0,
                         cv::BORDER_REPLICATE);
        cv::resize(m_small, m_wing, radiance.size(), 0, 0, cv::INTER_LINEAR);
    }
    if (m_p.psfCoreSigmaPx > 0.0)
        cv::GaussianBlur(radiance, radiance, cv::Size(), m_p.psfCoreSigmaPx, 0, cv::BORDER_REPLICATE);
    if (eta > 0.0)
        cv::addWeighted(radiance, 1.0 - eta, m_wing, eta, 0.0, radiance);
}

} // namespace nordacam::sim::physics
