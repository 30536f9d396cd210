#pragma once
// JpegImageCreator: the JPEG picture of a saved image for the image write element.
//
// createJpegImage: with Miscellaneous.SaveJpeg and a preview, it waits kOverlayWait for the user
// interface's overlay (Images.GuiJpeg, 320 x 240 ARGB), scales preview and overlay to 640 x 480,
// blends them (blendArgb) and writes the picture, then writes the overlay back to Images.GuiJpeg.
// With Fusion.InJpeg and a visual image, the preview first gets the display's fusion
// (Fusion.Mode, vision::Fusion, registered as the fusion element registers).
// blendArgb: the overlay laid over the picture by its alpha (vision::ArgbBlend).

#include "nordalib/core/dataproxy/DataProxy.h"
#include "nordalib/core/logging/Logger.h"
#include "nordalib/vision/registration/Fusion.h"
#include "nordalib/vision/registration/RegistrationCache.h"

#include <opencv2/core.hpp>

#include <chrono>
#include <memory>
#include <string>

namespace norda::exp::streaming {

class JpegImageCreator {
public:
    JpegImageCreator(DataProxy<std::string>* proxy, std::shared_ptr<logging::Logger> logger);

    // Throws what the store or OpenCV throws (the caller reports a write failure).
    void createJpegImage(cv::Mat_<cv::Vec3b> preview, const std::string& fileName,
                         const cv::Mat& visual = {});
    // The 640 x 480 picture without the wait: empty when the overlay is not 320 x 240.
    static cv::Mat_<cv::Vec4b> composeJpegImage(const cv::Mat_<cv::Vec3b>& preview,
                                                const cv::Mat_<cv::Vec4b>& overlay);
    static cv::Mat_<cv::Vec4b> blendArgb(const cv::Mat_<cv::Vec4b>& over, const cv::Mat_<cv::Vec4b>& under);

    static constexpr std::chrono::nanoseconds kOverlayWait{500'000'000};

private:
    cv::Mat_<cv::Vec3b> fused(const cv::Mat_<cv::Vec3b>& preview, const cv::Mat& visual);

    DataProxy<std::string>* m_pDataProxy;
    std::shared_ptr<logging::Logger> m_logger;
    vision::Fusion m_fusion;
    vision::RegistrationCache m_registration;
};

} // namespace norda::exp::streaming
