#pragma once
// LaserSpotDetector: finds a red laser pointer's spot in a visual frame (UYVY, CV_8UC2).
//
// A laser spot saturates the camera: a white core whose red channel clips, in a strongly red halo.
// Every pixel whose red channel clips (R >= 250 after BT.601 conversion) is foreground, valued by
// its redness R - G (at least 1), in one pass over the frame; ConnectedComponent labels them.
// A component is a spot when it is
//   - red somewhere (peak redness >= 18): white print and lamps clip all channels alike;
//   - small and round: at most 0.15 % of the frame, bounding box aspect within 1:2, fill >= 0.45;
//     a red object large enough to clip is no spot;
//   - clear of the frame's border (a cut spot's centre is wrong);
//   - on the laser's line: the registration's triangulation puts it within kMaxOffLine pixels
//     (scaled to the frame) of the laser ray, at 0.3 ... 100 m.
// Exactly one spot gives a result; none or several give none, with the reason.

#include "nordalib/vision/imgproc/ConnectedComponent.h"
#include "nordalib/vision/registration/Registration.h"

#include <opencv2/core.hpp>

#include <string>

namespace norda::vision {

class LaserSpotDetector {
public:
    static constexpr int kMinRedness = 18;
    static constexpr double kMaxAreaShare = 0.0015;
    static constexpr double kMaxOffLine = 2.5; // pixels of a 640-wide frame

    enum class Result { Found, NotFound, Ambiguous };
    struct Spot {
        cv::Point2d visual;         // centroid in the frame
        Registration::LaserFix fix; // distance and infrared position from the parallax
        int area = 0;
    };

    // Searches `uyvy` (CV_8UC2, even width, a scaled readout of the registration's visual camera;
    // throws norda::Exception otherwise). The spot's infrared position is a pixel of a temperature
    // frame of `infraredSize`.
    Result detect(const cv::Mat& uyvy, const Registration& registration, cv::Size infraredSize, Spot& spot);
    // The foreground mask of the first step (exposed for tests): redness of clipping pixels.
    static void mask(const cv::Mat& uyvy, cv::Mat& out);
    int candidates() const { return m_candidates; } // components that passed colour and shape

private:
    cv::Mat m_mask;
    ConnectedComponent<uint8_t> m_components{8};
    int m_candidates = 0;
};

} // namespace norda::vision
