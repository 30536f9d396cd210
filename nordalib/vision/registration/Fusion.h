#pragma once
// Fusion: the visual image registered onto the infrared display image.
//
// Modes: Off (the infrared image as it is), PictureInPicture (the visual image fills the display
// and the infrared image sits inside it where it sees the scene: the visual lens sees wider),
// AlphaBlend (the visual image brought onto the infrared image's pixels and mixed, `alpha` of the
// infrared), Edges (the visual image's edges drawn over the infrared image: print and outlines the
// infrared cannot see). Registration at one distance: where the scene is at that distance, the two
// images agree exactly; nearer or farther, by the parallax of the lenses' baseline.
//
// The remap tables depend only on the distance and the sizes and are kept until one changes
// (distances within 0.5 % count as equal).

#include "nordalib/vision/registration/Registration.h"

#include <opencv2/core.hpp>

#include <string>
#include <vector>

namespace norda::vision {

enum class FusionMode { Off, PictureInPicture, AlphaBlend, Edges };

class Fusion {
public:
    // "Off", "PictureInPicture", "AlphaBlend", "Edges"; throws norda::Exception for another name.
    static FusionMode modeOf(const std::string& name);

    // `infrared`: the display image (CV_8UC3 RGB); `uyvy`: the visual frame (CV_8UC2, a readout of
    // the registration's visual camera). Returns a new CV_8UC3 RGB image of the infrared's size.
    cv::Mat compose(FusionMode mode, const cv::Mat& infrared, const cv::Mat& uyvy,
                    const Registration& registration, double distance, float alpha);

    // After a picture-in-picture compose: the display positions of the infrared image's first and
    // last pixel centres, {left, top, right, bottom}, taken along its middle row and column (the
    // lenses' remaining distortion moves the corners by a pixel or two).
    std::vector<double> infraredPlacement() const;

private:
    void prepare(const Registration& r, double distance, cv::Size ir, cv::Size visual);

    double m_distance = 0;
    cv::Size m_ir, m_visual;
    const Registration* m_registration = nullptr;
    cv::Mat m_toVisualX, m_toVisualY;     // infrared pixel -> visual pixel
    cv::Mat m_toInfraredX, m_toInfraredY; // display (visual geometry at the infrared's size) -> infrared
    cv::Mat m_rgb, m_gray, m_edges, m_warped;
};

} // namespace norda::vision
