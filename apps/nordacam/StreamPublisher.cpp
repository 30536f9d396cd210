#include "apps/nordacam/StreamPublisher.h"

#include "nordalib/core/logging/Logger.h"
#include "nordalib/vision/imageio/PxmEncoder.h"

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

namespace nordacam {

using namespace norda::exp;

void StreamPublisher::startOnDemand() {
    auto demand = [this](const std::string& callable) {
        return [this, callable](bool on) {
            try {
                if (on)
                    m_commands.call(callable, "Start", cmd::ParameterPack{makeVariant(0u)});
                else
                    m_commands.call(callable, "Stop", cmd::ParameterPack{});
            } catch (const std::exception& e) {
                norda::logging::Logger::createSharedLogger("NORDACAM", true)
                    ->log(norda::logging::LogLevel::error, "stream {}: {}", callable, e.what());
            }
        };
    };
    m_display.setDemandCallback(demand(kMjpegStreamName));
    m_radiometric.setDemandCallback(demand(kPxmStreamName));
}

std::string StreamPublisher::encodeJpeg(const cv::Mat& rgb, int quality) {
    cv::Mat bgr;
    cv::cvtColor(rgb, bgr, cv::COLOR_RGB2BGR);
    std::vector<uchar> jpeg;
    cv::imencode(".jpg", bgr, jpeg, {cv::IMWRITE_JPEG_QUALITY, quality});
    return std::string(jpeg.begin(), jpeg.end());
}

void StreamPublisher::publishDisplay(const Frame& frame) {
    const cv::Mat& rgb = frame.getFrameData();
    if (rgb.empty())
        return;
    m_display.publish(std::make_shared<const std::string>(encodeJpeg(rgb)));
}

void StreamPublisher::publishRadiometric(const Frame& frame) {
    norda::vision::PxmEncoder encoder;
    auto encoded = encoder.encode(frame.getFrameData(), &frame.getMetaData());
    auto data = std::make_shared<std::string>(*encoded.header);
    data->append(reinterpret_cast<const char*>(encoded.payload), encoded.payloadSize);
    m_radiometric.publish(std::move(data));
}

void StreamPublisher::close() {
    m_display.close();
    m_radiometric.close();
}

} // namespace nordacam
