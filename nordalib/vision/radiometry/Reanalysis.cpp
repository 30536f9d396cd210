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

Reanalysis::Reanalysis(const PlanckConstants& planck) : m_planck(planck) {
    if (!(planck.R1 > 0.0 && planck.R2 > 0.0 && planck.B > 0.0) || !std::isfinite(planck.O) ||
        !std::isfinite(planck.F))
        NORDA_THROW("Planck constants R1, R2 and B must be positive and all finite",
                    "norda::vision::Reanalysis::Reanalysis");
}

double Reanalysis::windowSignal(const ObjectParameters& p, double objectK) const {
    return ObjectSignal(m_planck, p).signal(objectK);
}

double Reanalysis::objectTemperature(const ObjectParameters& p, double window) const {
    return ObjectSignal(m_planck, p).objectTemperature(window);
}

double Reanalysis::convert(double objectK, const ObjectParameters& from, const ObjectParameters& to) const {
    return objectTemperature(to, windowSignal(from, objectK));
}

double Reanalysis::emissivity(double measuredK, double trueK, const ObjectParameters& p) const {
    const ObjectSignal path(m_planck, p);
    const double sRefl = path.reflectedSignal();
    const double scene = path.sceneSignal(path.signal(measuredK));
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
    return convert(pixel, ObjectSignal(m_planck, from), ObjectSignal(m_planck, to));
}

uint16_t Reanalysis::convert(uint16_t pixel, const ObjectSignal& from, const ObjectSignal& to) const {
    if (pixel == 0 || pixel == 65535 || from.parameters() == to.parameters())
        return pixel;
    const double window = from.signal(pixel / kCountsPerKelvin);
    const double object = to.objectSignal(window);
    const double kelvin = RadiometricTools::planckTemperature(m_planck, object);
    if (std::isnan(kelvin)) // which end of the curve: at or below its zero is colder than anything
        return object + m_planck.O <= 0.0 ? 0 : 65535;
    return encode(kelvin);
}

cv::Mat_<uint16_t> Reanalysis::apply(const cv::Mat_<uint16_t>& image, const ObjectParameters& from,
                                     const ObjectParameters& to) const {
    const ObjectSignal source(m_planck, from), target(m_planck, to);
    std::vector<uint16_t> table(65536);
    for (unsigned v = 0; v < table.size(); ++v)
        table[v] = convert(static_cast<uint16_t>(v), source, target);
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
    const ObjectSignal source(m_planck, from);
    ObjectParameters unit = to;
    unit.emissivity = 1.0;
    const ObjectSignal target(m_planck, unit);
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
            out(y, x) = convert(image(y, x), source, target.withEmissivity(e[x]));
        }
    }
    return out;
}

} // namespace norda::vision
