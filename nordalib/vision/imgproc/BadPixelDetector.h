#pragma once
// Finds defective pixels in a dark (offset) frame of the detector.
//
// A pixel is bad when it reads 0 (dead), when it reads at or above the detector's full scale
// (stuck), or when it deviates from the median of its 5 x 5 neighbourhood by more than `sigmas`
// robust standard deviations (outlier). The robust standard deviation is 1.4826 times the median
// absolute deviation of all pixels from their local medians, so scene gradients and the normal
// fixed-pattern spread of the detector do not count; it is floored at `minSigma` counts so that a
// very uniform frame does not turn quantisation into defects.

#include "nordalib/vision/imgproc/BadPixel.h"

#include <opencv2/core.hpp>

namespace norda::vision {

struct BadPixelDetectorSettings {
    double sigmas = 8.0;
    double minSigma = 2.0;
    unsigned fullScale = 65535;
};

class BadPixelDetector {
public:
    explicit BadPixelDetector(BadPixelDetectorSettings settings = {}) : m_settings(settings) {}

    // Bad pixels of a CV_16UC1 frame that are not in `known` yet, in row-major order.
    BadPixelList detect(const cv::Mat& frame, const BadPixelList& known = {}) const;
    // Robust standard deviation of the last detect() (counts), for diagnostics.
    double lastSigma() const { return m_lastSigma; }

private:
    BadPixelDetectorSettings m_settings;
    mutable double m_lastSigma = 0.0;
};

} // namespace norda::vision
