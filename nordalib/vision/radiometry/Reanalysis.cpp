#include "nordalib/vision/radiometry/Reanalysis.h"

#include "nordalib/core/exception/Exception.h"

#include <cmath>
#include <limits>
#include <vector>

namespace norda::vision {

namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kCountsPerKelvin = RadiometricTools::kCountsPerKelvin;

// Kelvin -> encoded pixel; 0 stays reserved for "below the scale".
uint16_t encode(double kelvin) {
    const double counts = std::round(kelvin * kCountsPerKelvin);
    if (counts < 1.0)
        return 1;
    if (counts >= 65535.0)
        return 65535;
    return static_cast<uint16_t>(counts);
}

} // namespace

void ObjectParameters::validate() const {
    auto check = [](bool ok, const std::string& what, double value) {
        if (!ok)
            NORDA_THROW(what + " " + std::to_string(value) + " is out of range",
                        "norda::vision::ObjectParameters::validate");
    };
    check(emissivity > 0.0 && emissivity <= 1.0, "emissivity (0, 1]", emissivity);
    check(reflectedK > 0.0 && std::isfinite(reflectedK), "reflected temperature (K, > 0)", reflectedK);
    check(tauPg > 0.0 && tauPg <= 1.0, "protective glass transmission (0, 1]", tauPg);
    check(emisPg >= 0.0 && emisPg < 1.0, "protective glass emissivity [0, 1)", emisPg);
}

Reanalysis::Reanalysis(const PlanckConstants& planck) : m_planck(planck) {
    if (!(planck.R1 > 0.0 && planck.R2 > 0.0 && planck.B > 0.0) || !std::isfinite(planck.O) ||
        !std::isfinite(planck.F))
        NORDA_THROW("Planck constants R1, R2 and B must be positive and all finite",
                    "norda::vision::Reanalysis::Reanalysis");
}

double Reanalysis::windowSignal(const ObjectParameters& p, double objectK) const {
    const double sRefl = RadiometricTools::planckSignal(m_planck, p.reflectedK);
    const double scene =
        p.emissivity * RadiometricTools::planckSignal(m_planck, objectK) + (1.0 - p.emissivity) * sRefl;
    return p.tauPg * scene + p.emisPg * sRefl;
}

double Reanalysis::objectTemperature(const ObjectParameters& p, double window) const {
    const double sRefl = RadiometricTools::planckSignal(m_planck, p.reflectedK);
    const double scene = (window - p.emisPg * sRefl) / p.tauPg;
    return RadiometricTools::planckTemperature(m_planck,
                                               (scene - (1.0 - p.emissivity) * sRefl) / p.emissivity);
}

double Reanalysis::convert(double objectK, const ObjectParameters& from, const ObjectParameters& to) const {
    return objectTemperature(to, windowSignal(from, objectK));
}

double Reanalysis::emissivity(double measuredK, double trueK, const ObjectParameters& p) const {
    const double sRefl = RadiometricTools::planckSignal(m_planck, p.reflectedK);
    const double scene = (windowSignal(p, measuredK) - p.emisPg * sRefl) / p.tauPg;
    const double contrast = RadiometricTools::planckSignal(m_planck, trueK) - sRefl;
    if (!(std::abs(contrast) > 1e-9 * std::abs(sRefl) + 1e-12))
        return kNaN;
    return (scene - sRefl) / contrast;
}

uint16_t Reanalysis::convertPixel(uint16_t pixel, const ObjectParameters& from,
                                  const ObjectParameters& to) const {
    // The same parameters give the same image, also far below any camera's range, where the curve's
    // offset swallows the signal's last digits.
    if (pixel == 0 || pixel == 65535 || from == to)
        return pixel;
    const double window = windowSignal(from, pixel / kCountsPerKelvin);
    const double kelvin = objectTemperature(to, window);
    if (std::isnan(kelvin)) {
        // Which end of the curve: an object signal at or below the curve's zero is colder than
        // anything, the rest hotter.
        const double sRefl = RadiometricTools::planckSignal(m_planck, to.reflectedK);
        const double object =
            ((window - to.emisPg * sRefl) / to.tauPg - (1.0 - to.emissivity) * sRefl) / to.emissivity;
        return object + m_planck.O <= 0.0 ? 0 : 65535;
    }
    return encode(kelvin);
}

cv::Mat_<uint16_t> Reanalysis::apply(const cv::Mat_<uint16_t>& image, const ObjectParameters& from,
                                     const ObjectParameters& to) const {
    from.validate();
    to.validate();
    std::vector<uint16_t> table(65536);
    for (unsigned v = 0; v < table.size(); ++v)
        table[v] = convertPixel(static_cast<uint16_t>(v), from, to);
    cv::Mat_<uint16_t> out(image.size());
    for (int y = 0; y < image.rows; ++y) {
        const uint16_t* in = image[y];
        uint16_t* o = out[y];
        for (int x = 0; x < image.cols; ++x)
            o[x] = table[in[x]];
    }
    return out;
}

cv::Mat_<uint16_t> Reanalysis::apply(const cv::Mat_<uint16_t>& image, const ObjectParameters& from,
                                     const ObjectParameters& to, const cv::Mat& emissivity) const {
    from.validate();
    ObjectParameters target = to;
    target.emissivity = 1.0;
    target.validate();
    if (emissivity.type() != CV_32FC1 || emissivity.size() != image.size())
        NORDA_THROW("emissivity map must be CV_32FC1 of the image's size " + std::to_string(image.cols) +
                        " x " + std::to_string(image.rows),
                    "norda::vision::Reanalysis::apply");
    cv::Mat_<uint16_t> out(image.size());
    for (int y = 0; y < image.rows; ++y) {
        const float* e = emissivity.ptr<float>(y);
        for (int x = 0; x < image.cols; ++x) {
            if (!(e[x] > 0.0f && e[x] <= 1.0f))
                NORDA_THROW("emissivity " + std::to_string(e[x]) + " at (" + std::to_string(x) + ", " +
                                std::to_string(y) + ") is out of range (0, 1]",
                            "norda::vision::Reanalysis::apply");
            target.emissivity = e[x];
            out(y, x) = convertPixel(image(y, x), from, target);
        }
    }
    return out;
}

} // namespace norda::vision
