#pragma once
// EmissionMarkerFinder: finds emissivity reference labels in a visual frame (UYVY, CV_8UC2) and
// says which infrared pixels lie on the chosen one and which on the surface around it.
//
// The labels are squares of known size (kDefaultSize, 50 mm) printed in a saturated magenta that
// a scene rarely shows: pixels with U - 128 > 12 and V - 128 > 40 are foreground. Of the
// components (ConnectedComponent) at least kMinArea pixels large, the one nearest to the search
// point is taken. Its distance follows from its apparent size (the camera's focal length times
// the label's size over the square root of its area), which places it in the infrared image.
//
// A label is refused when it touches the frame's border (partly outside), when it is no full
// square (bounding box aspect beyond 1:1.4 or fill under 0.8: something covers part of it), or
// when another piece of label colour lies next to it (covered across).
//
// Infrared pixels on the label: those whose line of sight lands on the label's mask eroded by two
// infrared pixels (edges blur and smear in the infrared chain). The surface: a square ring from 3
// to 3 + max(4, half the label's width) pixels outside the label's box.

#include "nordalib/vision/imgproc/ConnectedComponent.h"
#include "nordalib/vision/registration/Registration.h"

#include <opencv2/core.hpp>

#include <string>
#include <vector>

namespace norda::vision {

class EmissionMarkerFinder {
public:
    static constexpr double kDefaultSize = 0.05; // metres
    static constexpr int kMinArea = 20;          // visual pixels at 640 x 480

    enum class Result { Found, NotFound, OutsideImage, PartlyCovered, OutsideInfrared, TooSmall };
    struct Marker {
        cv::Rect visualBox;
        double distance = 0;            // metres, from the apparent size
        cv::Rect infraredBox;           // the label in the infrared image
        std::vector<cv::Point> label;   // infrared pixels on the label (interior)
        std::vector<cv::Point> surface; // infrared pixels of the surrounding ring
    };

    // `searchPoint` in infrared pixels; `infraredSize` the temperature frame's size. Throws
    // norda::Exception for a frame that is no UYVY readout of the registration's visual camera,
    // or a temperature frame size that is no readout of its infrared camera.
    Result find(const cv::Mat& uyvy, const Registration& registration, cv::Point searchPoint,
                cv::Size infraredSize, double labelSize, Marker& marker);
    static const char* name(Result r);

private:
    cv::Mat m_mask;
    ConnectedComponent<uint8_t> m_components{8};
};

} // namespace norda::vision
