#include "nordalib/vision/streaming/FileReaderElement.h"

#include "nordalib/core/logging/Logger.h"
#include "nordalib/vision/imageio/ImageDecoderPxM.h"
#include "nordalib/vision/streaming/FramePacing.h"

#include <memory>

namespace norda::exp::streaming {

FileReaderElement::FileReaderElement(const std::string& fileName)
    : StreamingElement({}, {STREAMING_DATATYPE_RAW}, "FileReaderElement", nullptr, true, 0) {
    static const char* function = "norda::exp::streaming::FileReaderElement::FileReaderElement";
    std::unique_ptr<vision::ImageDecoderPxM> decoder = std::make_unique<vision::ImageDecoderPxM>();
    if (!decoder->open(fileName))
        throw Exception("File open failed! Filename: " + fileName,
                        formatLocation("nordalib/vision/streaming/FileReaderElement", 35, function));
    try {
        for (cv::Mat frame; decoder->grab(frame, nullptr); frame = cv::Mat())
            m_frames.push_back(frame);
    } catch (const Exception& e) {
        if (m_frames.empty())
            throw;
        logging::Logger::createSharedLogger("FILE_READER", true)
            ->log(logging::LogLevel::warning, "playing the {} frames before a damaged one: {}",
                  m_frames.size(), e.what());
    }
    decoder->close();
    decoder.reset();
    if (m_frames.empty())
        throw Exception("File holds no frame! Filename: " + fileName, NORDA_LOCATION(function));
}

bool FileReaderElement::process(FrameMap& /*inputs*/, FrameMap& outputs) {
    if (m_playIndex < m_frames.size() - 1)
        ++m_playIndex;
    else
        m_playIndex = 0;
    const cv::Mat& selected = m_frames[m_playIndex];
    double minValue = 0, maxValue = 0;
    cv::minMaxIdx(selected, &minValue, &maxValue);

    DataStorage<std::string> store;
    store.setValue("FrameCnt", static_cast<unsigned long long>(m_frameCounter));
    ++m_frameCounter;

    sleepForPeriod(kFramePeriod);
    emit(outputs, STREAMING_DATATYPE_RAW, std::make_unique<Frame>(selected.clone(), std::move(store)));
    return true;
}

} // namespace norda::exp::streaming
