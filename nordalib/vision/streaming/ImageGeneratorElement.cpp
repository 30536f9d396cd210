#include "nordalib/vision/streaming/ImageGeneratorElement.h"

#include "nordalib/vision/streaming/FramePacing.h"

#include <opencv2/imgproc.hpp>

namespace norda::exp::streaming {

ImageGeneratorElement::ImageGeneratorElement(STREAMING_DATATYPE slot, cv::Size size)
    : StreamingElement({}, {slot}, "ImageGeneratorElement", nullptr, true, 0), m_slot(slot),
      m_width(size.width), m_height(size.height) {
    if (m_width <= 6 || m_height <= 6)
        NORDA_THROW("ImageGeneratorElement needs a size above 6 x 6, got " + std::to_string(m_width) + " x " +
                        std::to_string(m_height),
                    "norda::exp::streaming::ImageGeneratorElement::ImageGeneratorElement");
}

bool ImageGeneratorElement::process(FrameMap& /*inputs*/, FrameMap& outputs) {
    cv::Mat image(m_height, m_width, CV_16SC1, cv::Scalar(0));
    const int x = int(m_lineCounter % uint64_t(m_width - 6));
    const int y = int(m_lineCounter % uint64_t(m_height - 6));
    cv::line(image, cv::Point(x, 0), cv::Point(x, m_height - 1), cv::Scalar(1), 5, cv::LINE_8, 0);
    cv::line(image, cv::Point(0, y), cv::Point(m_width - 1, y), cv::Scalar(1), 5, cv::LINE_8, 0);
    cv::line(image, cv::Point(10, 0), cv::Point(10, m_height - 1), cv::Scalar(10), 5, cv::LINE_8, 0);
    cv::line(image, cv::Point(50, 0), cv::Point(50, m_height - 1), cv::Scalar(20), 5, cv::LINE_8, 0);
    ++m_lineCounter;
    cv::putText(image, "Testimage", cv::Point(10, m_height / 2), cv::FONT_HERSHEY_SIMPLEX, 1.5, cv::Scalar(1),
                3, 5, false);
    double minValue = 0, maxValue = 0;
    cv::minMaxIdx(image, &minValue, &maxValue);

    DataStorage<std::string> store;
    store.setValue("FrameCnt", static_cast<unsigned long long>(m_frameCounter));
    ++m_frameCounter;

    sleepForPeriod(kFramePeriod);
    emit(outputs, m_slot, std::make_unique<Frame>(image, std::move(store)));
    return true;
}

} // namespace norda::exp::streaming
