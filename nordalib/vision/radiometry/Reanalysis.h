#pragma once
// Reanalysis: the temperatures of a measured (or saved) image under other object parameters.
//
// A temperature frame holds object temperatures that the camera model of RadiometricTools derived
// with one set of object parameters (ObjectParameters: emissivity, reflected temperature, air,
// protective glass). Going back through the object side of that model (ObjectSignal) with those
// parameters gives the signal Swin that reached the camera's front, with S the Planck curve of the
// measurement range the image was taken in. Swin is what the camera really saw; solving the same
// equation for T with other parameters gives the temperature the camera would have shown with them.
// Everything behind the window (lens, board drift, shutter, gain) is the same for both and cancels.
// The only loss is the 0.01 K quantisation of the stored image: re-analysing with the stored
// parameters returns every pixel unchanged.
//
// The same inversion gives the emissivity of a surface whose true temperature is known (the
// emission marker's measurement): eps = (Sscene - S(Trefl)) / (S(Ttrue) - S(Trefl)), Sscene what
// leaves the surface.
//
// Pixel values use the 16-bit encoding of RadiometricTools. Encoded 0 and 65535 mean "below" and
// "beyond" the scale and stay so; a result without a physical temperature saturates the same way.

#include "nordalib/vision/radiometry/ObjectSignal.h"

#include <opencv2/core.hpp>

#include <string>

namespace norda::vision {

class Reanalysis {
public:
    explicit Reanalysis(const PlanckConstants& planck);

    // Signal through the window of an object at objectK under `p` (NaN outside the curve).
    double windowSignal(const ObjectParameters& p, double objectK) const;
    // Object temperature (kelvin) of a window signal under `p`; NaN where it has none.
    double objectTemperature(const ObjectParameters& p, double windowSignal) const;
    // objectK measured with `from` -> the temperature `to` gives.
    double convert(double objectK, const ObjectParameters& from, const ObjectParameters& to) const;
    // Emissivity of a surface of true temperature trueK seen as measuredK under `p` (p.emissivity
    // is the emissivity measuredK was computed with). NaN when the surface and the reflected
    // temperature are too close for the ratio to mean anything (|S(Ttrue) - S(Trefl)| ~ 0).
    double emissivity(double measuredK, double trueK, const ObjectParameters& p) const;

    // Encoded image -> encoded image re-analysed from `from` to `to`. One table of 65536 entries
    // per call, so the cost is one lookup a pixel.
    cv::Mat_<uint16_t> apply(const cv::Mat_<uint16_t>& image, const ObjectParameters& from,
                             const ObjectParameters& to) const;
    // The same with an emissivity per pixel (CV_32FC1 of the image's size, each in (0, 1]):
    // `to.emissivity` is ignored. Computed pixel by pixel.
    cv::Mat_<uint16_t> apply(const cv::Mat_<uint16_t>& image, const ObjectParameters& from,
                             const ObjectParameters& to, const cv::Mat& emissivity) const;
    // One encoded pixel (the plain reference of both apply()s).
    uint16_t convertPixel(uint16_t pixel, const ObjectParameters& from, const ObjectParameters& to) const;

    const PlanckConstants& planck() const { return m_planck; }

private:
    uint16_t convert(uint16_t pixel, const ObjectSignal& from, const ObjectSignal& to) const;

    PlanckConstants m_planck;
};

} // namespace norda::vision
