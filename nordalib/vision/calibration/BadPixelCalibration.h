#pragma once
// BadPixelCalibration: the factory bad-pixel table from flat fields, views of a uniform target
// (a blackbody filling the field) at two or more temperatures, each a few frames.
//
// Per pixel, the mean of each view against the view's median level gives a line whose slope is the
// pixel's response (1 for a typical pixel); its level is its mean in the coldest view. A pixel is
//   dead     when its response is below `deadResponse` (it does not see the scene),
//   stuck    likewise, but reading at the detector's full scale,
//   outlier  when its response or its level deviates from the median of its 5 x 5 neighbourhood by
//            more than `sigmas` robust standard deviations (1.4826 x the median absolute deviation
//            over the sensor, so vignetting and the normal fixed-pattern spread do not count), or
//            when its temporal noise exceeds `noiseFactor` times the sensor's median (a blinker).
// The result is refused (norda::Exception naming the view) when views are unusable (FrameStack:
// saturated beyond the bad pixels it may hold, drifting), of different sizes, too close in level to
// tell responses apart, or when more than `maxBadFraction` of the pixels come out bad (the fields
// are not flat).
// The responses are also the pixels' gains (see GainTable): normalised to a mean of 1 over the
// good pixels, the bad ones set to 1 (their value comes from their neighbours).

#include "nordalib/vision/calibration/FrameStack.h"
#include "nordalib/vision/imgproc/BadPixel.h"

#include <opencv2/core.hpp>

#include <string>
#include <vector>

namespace norda::vision {

struct FlatFieldView {
    std::string name;
    std::vector<cv::Mat> frames; // CV_16UC1 raw or CV_16SC1 corrected
};

struct BadPixelCalibrationSettings {
    double deadResponse = 0.1;
    double sigmas = 8.0;
    double noiseFactor = 5.0;
    double minResponseSigma = 0.002; // floors of the robust deviations, so that a very uniform
    double minLevelSigma = 1.0;      // detector does not turn rounding into defects (counts)
    double minContrastCounts = 100.0;
    double maxBadFraction = 0.01;
    FrameStackSettings frames;
};

struct BadPixelCalibrationResult {
    BadPixelList pixels; // row-major order
    cv::Size size;
    double responseSigma = 0; // robust spread of the responses
    double levelSigma = 0;    // robust spread of the levels (counts)
    cv::Mat gain;             // CV_32FC1 relative responses, mean 1, bad pixels 1
};

class BadPixelCalibration {
public:
    explicit BadPixelCalibration(BadPixelCalibrationSettings settings = {}) : m_settings(settings) {}

    BadPixelCalibrationResult find(const std::vector<FlatFieldView>& views) const;
    // Writes the table as badpixel.pxm (see BadPixelMap) to `file`: all or nothing.
    static void write(const BadPixelCalibrationResult& result, const std::string& file);
    // Writes the gains as gain.pxm (see GainTable) to `file`: all or nothing.
    static void writeGain(const BadPixelCalibrationResult& result, const std::string& file);

private:
    BadPixelCalibrationSettings m_settings;
};

} // namespace norda::vision
