#pragma once
// RixReanalysis: re-evaluates a saved image with other object parameters.
//
// A saved image carries what the re-analysis needs: the emissivity and reflected temperature it was
// taken with (EMIS, REFT), the protective glass settings and the Planck constants of its range
// (generic entries ProtectiveGlass.* and Radiometry.Planck, saved by the image writer when the
// host lists them). Reanalysis.h explains the model.

#include "nordalib/vision/radiometry/Reanalysis.h"
#include "nordalib/vision/rix/Rix.h"

namespace norda::vision {

class RixReanalysis {
public:
    // The parameters the stored temperatures were computed with. Without glass entries the image
    // was taken without glass.
    static ObjectParameters storedParameters(const Rix& rix);
    // The Planck constants saved with the image; throws norda::Exception when the image has none
    // (re-analysis without them would be a guess).
    static PlanckConstants planckConstants(const Rix& rix);
    // The radiometric image under `to`; `emissivity`, when not empty, is a CV_32FC1 map of one
    // emissivity per pixel that replaces `to.emissivity`.
    static cv::Mat_<uint16_t> temperatures(const Rix& rix, const ObjectParameters& to,
                                           const cv::Mat& emissivity = cv::Mat());
};

} // namespace norda::vision
