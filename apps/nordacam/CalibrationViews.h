#pragma once
// CalibrationViews: the views of a factory calibration as a camera maker stores them: a folder
// with the frames as PXM files and a views.json describing them (format in docs/calibration.md).
// Temperatures in the JSON are in °C. A missing file, malformed JSON or a missing or mistyped key
// throws a norda::Exception naming views.json and the key ("views[3].blackbody").

#include "nordalib/vision/calibration/BadPixelCalibration.h"
#include "nordalib/vision/calibration/DistortionCalibration.h"
#include "nordalib/vision/calibration/RadiometryFit.h"
#include "nordalib/vision/calibration/RegistrationCalibration.h"

#include <string>
#include <vector>

namespace nordacam {

class CalibrationViews {
public:
    static constexpr const char* kFileName = "views.json";

    // Blackbody views; the calibrated bands given per range go into `settings`.
    static std::vector<norda::vision::BlackbodyView>
    blackbody(const std::string& folder, norda::vision::RadiometryFitSettings& settings);
    static std::vector<norda::vision::FlatFieldView> flatFields(const std::string& folder);
    static std::vector<norda::vision::GridView> grid(const std::string& folder,
                                                     norda::vision::GridTarget& target);
    // Poses seen by both cameras (infrared PXM, visual PXM or any image OpenCV reads) and the
    // laser spots, if any.
    static std::vector<norda::vision::StereoView> stereo(const std::string& folder,
                                                         norda::vision::GridTarget& target,
                                                         std::vector<norda::vision::LaserSpot>& laser);

    // Every frame of a PXM file (a recording or a single image).
    static std::vector<cv::Mat> frames(const std::string& file);
};

} // namespace nordacam
