#include "nordalib/vision/streaming/JpegImageCreator.h"

#include "nordalib/core/keys/Keys.h"
#include "nordalib/core/utils/FileUtils.h"
#include "nordalib/vision/imgproc/ArgbBlend.h"
#include "nordalib/vision/streaming/FusionElement.h"

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include <thread>

namespace norda::exp::streaming {

using logging::LogLevel;

namespace {
const cv::Size kJpegSize(640, 480);
const cv::Size kOverlaySize(320, 240);
} // namespace

JpegImageCreator::JpegImageCreator(DataProxy<std::string>* proxy, std::shared_ptr<logging::Logger> logger)
    : m_pDataProxy(proxy), m_logger(std::move(logger)) {}

cv::Mat_<cv::Vec3b> JpegImageCreator::fused(const cv::Mat_<cv::Vec3b>& preview, const cv::Mat& visual) {
    // The picture as the display shows it in its fusion mode; without a registration the plain
    // preview (reported once per calibration file).
    try {
        const auto mode = vision::Fusion::modeOf(m_pDataProxy->getValue<std::string>(Id::Fusion::Mode));
        if (mode == vision::FusionMode::Off)
            return preview;
        const vision::Registration* registration =
            m_registration.get(m_pDataProxy->getValue<std::string>(Id::Registration::CalibrationFile));
        if (!registration)
            throw Exception(m_registration.error(), "");
        return m_fusion.compose(mode, preview, visual, *registration, FusionElement::distance(*m_pDataProxy),
                                m_pDataProxy->getValue<float>(Id::Fusion::Alpha));
    } catch (const std::exception& e) {
        m_logger->log(LogLevel::warning, "JPEG without fusion: {}", e.what());
        return preview;
    }
}

void JpegImageCreator::createJpegImage(cv::Mat_<cv::Vec3b> preview, const std::string& fileName,
                                       const cv::Mat& visual) {
    if (!m_pDataProxy->getValue<bool>(Id::Miscellaneous::SaveJpeg) || preview.empty())
        return;
    // Gives the user interface time to publish the overlay of this image.
    const auto until = std::chrono::steady_clock::now() + kOverlayWait;
    while (std::chrono::steady_clock::now() < until)
        std::this_thread::sleep_until(until);

    const cv::Mat_<cv::Vec4b> overlay = m_pDataProxy->get(Id::Images::GuiJpeg)->value<cv::Mat>();
    if (!visual.empty() && m_pDataProxy->getValue<bool>(Id::Fusion::InJpeg))
        preview = fused(preview, visual);
    const cv::Mat_<cv::Vec4b> picture = composeJpegImage(preview, overlay);
    if (!picture.empty()) {
        // Encoded in memory and replaced atomically: a full disk leaves no cut-off picture.
        std::vector<uchar> jpeg;
        if (!cv::imencode(".jpg", picture, jpeg))
            NORDA_THROW("could not encode JPEG file " + fileName,
                        "norda::exp::streaming::ImageWriteElement::createJpegImage");
        utils::writeFileAtomically(fileName, jpeg.data(), jpeg.size());
    }
    // The overlay goes back unchanged: the next image finds a usable overlay even when the user
    // interface publishes none, and observers learn that the picture was taken.
    m_pDataProxy->set(Id::Images::GuiJpeg, std::make_shared<Variant_<cv::Mat>>(cv::Mat(overlay.clone())),
                      true);
}

cv::Mat_<cv::Vec4b> JpegImageCreator::composeJpegImage(const cv::Mat_<cv::Vec3b>& preview,
                                                       const cv::Mat_<cv::Vec4b>& overlay) {
    if (preview.empty() || overlay.rows != kOverlaySize.height || overlay.cols != kOverlaySize.width)
        return {};
    cv::Mat scaled;
    cv::resize(preview, scaled, kJpegSize, 0, 0, cv::INTER_CUBIC);
    cv::Mat_<cv::Vec4b> base;
    // The display image holds R, G, B; the overlay's ARGB words lie in memory as B, G, R, A, which
    // is also the order imwrite expects. The base takes that order, fourth byte 255, so the
    // picture shows the colours the user saw.
    cv::cvtColor(scaled, base, cv::COLOR_RGB2BGRA);
    cv::Mat_<cv::Vec4b> scaledOverlay;
    cv::resize(overlay, scaledOverlay, kJpegSize, 0, 0, cv::INTER_CUBIC);
    return blendArgb(scaledOverlay, base);
}

cv::Mat_<cv::Vec4b> JpegImageCreator::blendArgb(const cv::Mat_<cv::Vec4b>& over,
                                                const cv::Mat_<cv::Vec4b>& under) {
    return vision::ArgbBlend::blend(over, under);
}

} // namespace norda::exp::streaming
