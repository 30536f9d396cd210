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
// The remap tables depend only on the registration's geometry, the distance and the sizes and are
// kept until one changes (distances within 0.5 % count as equal). They are keyed by the geometry's
// values, not by the registration object: a calibration reloaded in place gets new tables. Alpha
// blend and picture in picture resample and mix in one pass through fixed-point tables
// (RemapBlend), built per mode when the mode is first used.

#include "nordalib/vision/imgproc/RemapBlend.h"
#include "nordalib/vision/registration/Registration.h"

#include <opencv2/core.hpp>

#include <string>
#include <vector>

namespace norda::vision {

enum class FusionMode { Off, PictureInPicture, AlphaBlend, Edges };

class Fusion {
public:
    // The gradient (|gx| + |gy| of a 3 x 3 Sobel on the visual luma) from which the edges mode draws
    // an edge: between the two thresholds cv::Canny(60, 150) drew with.
    static constexpr int kEdgeThreshold = 120;

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
    void preparePictureInPicture();
    cv::Mat pictureInPicture(const cv::Mat& infrared, const cv::Mat& uyvy);

    bool m_prepared = false;
    double m_distance = 0;
    cv::Size m_ir, m_visual;
    Registration m_registration;                   // the geometry the tables were made for
    cv::Mat m_toVisualX, m_toVisualY;              // infrared pixel -> visual pixel
    RemapBlend m_blend;                            // visual -> infrared, mixed (alpha blend)
    RemapBlend m_inside;                           // infrared -> display where it sees (picture in picture)
    std::vector<std::vector<cv::Point>> m_outline; // of the infrared image in the display
    RemapBlend m_luma;                             // visual luma -> infrared (edges)
    cv::Mat_<cv::Vec3b> m_rgb;
    cv::Mat m_edges, m_warped;
};

} // namespace norda::vision
