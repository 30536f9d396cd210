#pragma once
// FrameStack: the statistics of a calibration view taken as several frames of a steady target
// (a blackbody or a flat field): the per-pixel mean, the temporal noise, and the checks that make a
// view usable: no saturated pixel, no drift of the target during the view.
//
// The temporal noise is estimated from differences of consecutive frames (var = E[(f[i+1]-f[i])^2] / 2),
// so a slow drift of the target does not inflate it. Drift: the mean of the first half of the frames
// against the mean of the second half, over the region; it must stay within `driftSigmas` standard
// deviations of that difference as the noise predicts it (or `minDriftCounts`, whichever is larger).
// A single frame has no temporal noise to compare with: its noise is taken from the spatial spread.
//
// Frames are CV_16UC1 raw detector frames (saturated at 0 and `fullScale`) or CV_16SC1
// offset-corrected frames (saturated at -32768 and 32767).

#include <opencv2/core.hpp>

#include <string>
#include <vector>

namespace norda::vision {

struct FrameStackSettings {
    unsigned fullScale = 65535; // raw level at which the detector saturates
    double driftSigmas = 6.0;
    double minDriftCounts = 0.05;
};

class FrameStack {
public:
    // Throws a norda::Exception naming `name` for no frames, frames of different size or type,
    // a saturated pixel in `region` (an empty region means the whole frame; `maxSaturated` pixels
    // are tolerated, for flat fields with dead or stuck pixels) or a target that drifted.
    FrameStack(const std::vector<cv::Mat>& frames, const std::string& name, cv::Rect region = {},
               const FrameStackSettings& settings = {}, size_t maxSaturated = 0);

    const cv::Mat& mean() const { return m_mean; }                 // CV_64FC1, whole frame
    const cv::Mat& temporalVariance() const { return m_variance; } // CV_64FC1, empty for one frame
    double regionMean() const { return m_regionMean; }
    // Standard deviation of regionMean() from the noise (counts).
    double regionNoise() const { return m_regionNoise; }
    // Pixels of the region that read at a saturation level in any frame.
    size_t saturated() const { return m_saturated; }

private:
    cv::Mat m_mean;
    cv::Mat m_variance;
    double m_regionMean = 0;
    double m_regionNoise = 0;
    size_t m_saturated = 0;
};

} // namespace norda::vision
