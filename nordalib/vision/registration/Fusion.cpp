#include "nordalib/vision/registration/Fusion.h"

#include "nordalib/core/exception/Exception.h"
#include "nordalib/vision/imgproc/ColorConvert.h"

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

void Fusion::prepare(const Registration& r, double distance, cv::Size ir, cv::Size visual) {
    if (m_registration == &r && ir == m_ir && visual == m_visual &&
        std::abs(distance / m_distance - 1.0) < 0.005)
        return;
    m_registration = &r;
    m_distance = distance;
    m_ir = ir;
    m_visual = visual;
    r.infraredToVisualMaps(distance, ir, visual, m_toVisualX, m_toVisualY);
    // The picture-in-picture display shows the visual camera's view at the infrared image's size.
    const double s = double(visual.width) / ir.width;
    m_toInfraredX.create(ir, CV_32FC1);
    m_toInfraredY.create(ir, CV_32FC1);
    const CameraModel irCam = r.infrared.scaled(ir);
    for (int y = 0; y < ir.height; ++y)
        for (int x = 0; x < ir.width; ++x) {
            const cv::Point2d v((x + 0.5) * s - 0.5, (y + 0.5) * s - 0.5);
            const cv::Point2d p = irCam.project(r.visualPoint(v, distance, visual));
            m_toInfraredX.at<float>(y, x) = float(p.x);
            m_toInfraredY.at<float>(y, x) = float(p.y);
        }
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
        cv::extractChannel(uyvy, m_gray, 1); // the luma of UYVY
        cv::remap(m_gray, m_warped, m_toVisualX, m_toVisualY, cv::INTER_LINEAR, cv::BORDER_CONSTANT);
        cv::Canny(m_warped, m_edges, 60, 150);
        out = infrared.clone();
        out.setTo(cv::Scalar(255, 255, 255), m_edges);
        return out;
    }
    cv::Mat_<cv::Vec3b> rgb;
    ColorConvert::convertUY1VY0ToRGB(uyvy, rgb);
    if (mode == FusionMode::AlphaBlend) {
        cv::remap(rgb, m_warped, m_toVisualX, m_toVisualY, cv::INTER_LINEAR, cv::BORDER_CONSTANT);
        cv::addWeighted(infrared, std::clamp(alpha, 0.0f, 1.0f), m_warped,
                        1.0 - std::clamp(alpha, 0.0f, 1.0f), 0.0, out);
        return out;
    }
    // Picture in picture: the visual view, the infrared image where it sees, framed.
    cv::resize(rgb, out, infrared.size(), 0, 0, cv::INTER_AREA);
    cv::Mat mask;
    cv::remap(infrared, m_warped, m_toInfraredX, m_toInfraredY, cv::INTER_LINEAR, cv::BORDER_CONSTANT);
    cv::Mat inside = (m_toInfraredX >= 0) & (m_toInfraredX <= infrared.cols - 1) & (m_toInfraredY >= 0) &
                     (m_toInfraredY <= infrared.rows - 1);
    m_warped.copyTo(out, inside);
    std::vector<std::vector<cv::Point>> outline;
    cv::findContours(inside, outline, cv::RETR_EXTERNAL, cv::CHAIN_APPROX_SIMPLE);
    cv::drawContours(out, outline, -1, cv::Scalar(255, 255, 255), 1);
    return out;
}

} // namespace norda::vision
