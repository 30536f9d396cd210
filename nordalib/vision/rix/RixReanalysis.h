#pragma once
// RixReanalysis: re-evaluates a saved image with other object parameters.
//
// A saved image carries what the re-analysis needs: the emissivity and reflected temperature it was
// taken with (EMIS, REFT), the protective glass settings and the Planck constants of its range
// (generic entries ProtectiveGlass.*, Environment.* read by ObjectParameterKeys, and
// Radiometry.Planck, saved by the image writer when the
// host lists them). Reanalysis.h explains the model.

#include "nordalib/vision/measurement/MeasurementResults.h"
#include "nordalib/vision/radiometry/Reanalysis.h"
#include "nordalib/vision/rix/Rix.h"

#include <optional>

namespace norda::vision {

class RixReanalysis {
public:
    // The parameters the stored temperatures were computed with. Without glass entries the image
    // was taken without glass.
    static ObjectParameters storedParameters(const Rix& rix);

    // What a re-analysis changes; unset: as the image was taken. A distance turns the air
    // correction on.
    struct Changes {
        std::optional<double> emissivity, reflectedK, distanceM, airK, humidityPercent, tauPg, emisPg;
    };
    // The stored parameters with `changes`, checked: norda::Exception naming the first parameter
    // out of its range (a distance of 0 among them: it would mean "no air", not a path). The one
    // place every re-analysis (CLI, gallery, image reader, Python) gets its parameters from.
    static ObjectParameters parametersFor(const Rix& rix, const Changes& changes);
    // The Planck constants saved with the image; throws norda::Exception when the image has none
    // (re-analysis without them would be a guess).
    static PlanckConstants planckConstants(const Rix& rix);
    // The radiometric image under `to`; `emissivity`, when not empty, is a CV_32FC1 map of one
    // emissivity per pixel that replaces `to.emissivity`.
    static cv::Mat_<uint16_t> temperatures(const Rix& rix, const ObjectParameters& to,
                                           const cv::Mat& emissivity = cv::Mat());

    // Generic entry of an image re-analysed with one emissivity per pixel: the map (CV_32FC1).
    static constexpr const char* kEmissivityMap = "Radiometry.EmissivityMap";

    // A copy of `rix` re-analysed: its temperatures under `to` (per pixel with `emissivity`, as in
    // temperatures()), its stored object parameters and, when given, the air it was taken in
    // replaced, its measurement results computed anew (RixMeasurements) and its preview coloured
    // anew with the same palette on the same scale, so that it shows the new temperatures. Only a
    // change of the object parameters needs the Planck constants. With a per-pixel emissivity the
    // copy keeps the map (kEmissivityMap), stores its mean as the emissivity and drops the Planck
    // constants: one emissivity can not describe its temperatures, so it is not re-analysed again.
    static Rix reanalysed(const Rix& rix, const ObjectParameters& to, const cv::Mat& emissivity = cv::Mat(),
                          const std::optional<MeasurementResults::Humidity>& air = std::nullopt);
};

} // namespace norda::vision
