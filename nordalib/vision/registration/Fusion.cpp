#include "nordalib/vision/registration/Fusion.h"

#include "nordalib/core/exception/Exception.h"
#include "nordalib/vision/imgproc/ColorConvert.h"
#include "nordalib/vision/imgproc/GradientEdges.h"

#include <opencv2/imgproc.hpp>

#include <cmath>

namespace norda::vision {

FusionMode Fusion::modeOf(const std::string& name) {
    if (name == "Off")
        return FusionMode::Off;
    if (name == "PictureInPicture")
        return FusionMode::PictureInPicture;
    if (name == "AlphaBlend")
        return FusionMode::AlphaBlend;
    if (name == "Edges")
        return FusionMode::Edges;
    NORDA_THROW("unknown fusion mode \"" + name + "\" (Off, PictureInPicture, AlphaBlend, Edges)",
                "norda::vision::Fusion::modeOf");
}

namespace {
bool sameCamera(const CameraModel& a, const CameraModel& b) {
    return a.size == b.size && a.fx == b.fx && a.fy == b.fy && a.cx == b.cx && a.cy == b.cy && a.k1 == b.k1 &&
           a.k2 == b.k2 && a.p1 == b.p1 && a.p2 == b.p2 && a.k3 == b.k3;
}
// What the maps depend on (the laser does not move them).
bool sameGeometry(const Registration& a, const Registration& b) {
    return sameCamera(a.infrared, b.infrared) && sameCamera(a.visual, b.visual) && a.rotation == b.rotation &&
           a.translation == b.translation;
}
} // namespace

void Fusion::prepare(const Registration& r, double distance, cv::Size ir, cv::Size visual) {
    if (m_prepared && sameGeometry(r, m_registration) && ir == m_ir && visual == m_visual &&
        std::abs(distance / m_distance - 1.0) < 0.005)
        return;
    m_prepared = false; // until the maps are complete
    m_registration = r;
    m_distance = distance;
    m_ir = ir;
    m_visual = visual;
    r.infraredToVisualMaps(distance, ir, visual, m_toVisualX, m_toVisualY);
    m_blend = {};
    m_inside = {};
    m_outline.clear();
    m_luma = {};
    m_prepared = true;
}

void Fusion::preparePictureInPicture() {
    // The picture-in-picture display shows the visual camera's view at the infrared image's size.
    const Registration& r = m_registration;
    const double s = double(m_visual.width) / m_ir.width;
    cv::Mat toInfraredX(m_ir, CV_32FC1), toInfraredY(m_ir, CV_32FC1);
    const CameraModel irCam = r.infrared.scaled(m_ir);
    for (int y = 0; y < m_ir.height; ++y)
        for (int x = 0; x < m_ir.width; ++x) {
            const cv::Point2d v((x + 0.5) * s - 0.5, (y + 0.5) * s - 0.5);
            const cv::Point2d p = irCam.project(r.visualPoint(v, m_distance, m_visual));
            toInfraredX.at<float>(y, x) = float(p.x);
            toInfraredY.at<float>(y, x) = float(p.y);
        }
    m_inside = RemapBlend(toInfraredX, toInfraredY, m_ir, true);
    cv::Mat inside = (toInfraredX >= 0) & (toInfraredX <= m_ir.width - 1) & (toInfraredY >= 0) &
                     (toInfraredY <= m_ir.height - 1);
    cv::findContours(inside, m_outline, cv::RETR_EXTERNAL, cv::CHAIN_APPROX_SIMPLE);
}

std::vector<double> Fusion::infraredPlacement() const {
    if (m_toVisualX.empty())
        return {};
    // The display shows the visual view scaled to the infrared image's size.
    const double s = double(m_visual.width) / m_ir.width;
    auto display = [s](float v) { return (v + 0.5) / s - 0.5; };
    const int cx = m_ir.width / 2, cy = m_ir.height / 2;
    return {display(m_toVisualX.at<float>(cy, 0)), display(m_toVisualY.at<float>(0, cx)),
            display(m_toVisualX.at<float>(cy, m_ir.width - 1)),
            display(m_toVisualY.at<float>(m_ir.height - 1, cx))};
}

cv::Mat Fusion::compose(FusionMode mode, const cv::Mat& infrared, const cv::Mat& uyvy, const Registration& r,
                        double distance, float alpha) {
    if (infrared.type() != CV_8UC3)
        NORDA_THROW("the display image must be CV_8UC3, not " + cv::typeToString(infrared.type()),
                    "norda::vision::Fusion::compose");
    if (mode == FusionMode::Off)
        return infrared.clone();
    (void)r.visualAt(uyvy.size()); // throws for a frame of another aspect
    prepare(r, distance, infrared.size(), uyvy.size());
    cv::Mat out;
    if (mode == FusionMode::Edges) {
        if (m_luma.empty())
            m_luma = RemapBlend(m_toVisualX, m_toVisualY, m_visual, false, RemapBlend::Source::UyvyLuma);
        m_luma.warpLuma(uyvy, m_warped);
        GradientEdges::detect(m_warped, m_edges, kEdgeThreshold);
        // Edge pixels are 255, the rest 0: the brighter of the two is white on edges, the
        // infrared elsewhere (two vector passes, where a masked set goes pixel by pixel).
        cv::cvtColor(m_edges, m_edges, cv::COLOR_GRAY2RGB);
        cv::max(infrared, m_edges, out);
        return out;
    }
    if (mode == FusionMode::AlphaBlend) {
        if (m_blend.empty())
            m_blend = RemapBlend(m_toVisualX, m_toVisualY, m_visual);
        cv::Mat_<cv::Vec3b> rgb = m_blend.source(); // converted in place: no copy
        ColorConvert::convertUY1VY0ToRGB(uyvy, rgb);
        m_blend.apply(rgb, infrared, alpha, out);
        return out;
    }
    return pictureInPicture(infrared, uyvy);
}

// The visual view, the infrared image where it sees, framed.
cv::Mat Fusion::pictureInPicture(const cv::Mat& infrared, const cv::Mat& uyvy) {
    if (m_inside.empty())
        preparePictureInPicture();
    cv::Mat out;
    if (uyvy.size() == infrared.size()) {
        cv::Mat_<cv::Vec3b> view(infrared.size());
        ColorConvert::convertUY1VY0ToRGB(uyvy, view);
        out = view;
    } else {
        ColorConvert::convertUY1VY0ToRGB(uyvy, m_rgb);
        cv::resize(m_rgb, out, infrared.size(), 0, 0, cv::INTER_AREA);
    }
    m_inside.apply(infrared, out, 0.0f, out);
    cv::drawContours(out, m_outline, -1, cv::Scalar(255, 255, 255), 1);
    return out;
}

} // namespace norda::vision
