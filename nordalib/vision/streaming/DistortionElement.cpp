#include "nordalib/vision/streaming/DistortionElement.h"

#include "nordalib/core/keys/Keys.h"
#include "nordalib/core/utils/FileUtils.h"

namespace norda::exp::streaming {

using logging::LogLevel;

DistortionElement::DistortionElement(DataProxy<std::string>* dataProxy, const std::string& calibrationPath,
                                     vision::RadiometricCamType camType)
    : StreamingElement({STREAMING_DATATYPE_RAD}, {STREAMING_DATATYPE_RAD}, kName, dataProxy, false, 0),
      m_dataProxy(dataProxy), m_camType(camType), m_calibrationPath(calibrationPath),
      m_log(logging::Logger::createSharedLogger("DISTORTION", true)) {
    if (!dataProxy)
        NORDA_THROW("Pointer to DataProxy is mandatory for this element!",
                    "norda::exp::streaming::DistortionElement::DistortionElement");
    const std::string file = calibrationPath + "distort.pxm";
    if (utils::existsFile(file))
        load(file, dataProxy->getValue<unsigned short>(Id::IrImage::Rows),
             dataProxy->getValue<unsigned short>(Id::IrImage::Cols));
}

DistortionElement::~DistortionElement() = default;

void DistortionElement::load(const std::string& file, uint16_t rows, uint16_t cols) {
    try {
        m_correction = vision::DistortionCorrection<unsigned short>(file, rows, cols);
    } catch (const std::exception& e) {
        // A damaged table must not stop the stream: frames go on uncorrected.
        m_correction = {};
        m_log->log(LogLevel::error, "Distortion data not usable: {}", e.what());
    }
}

bool DistortionElement::process(FrameMap& inputs, FrameMap& outputs) {
    auto& input = inputs[STREAMING_DATATYPE_RAD];
    if (m_camType == vision::RadiometricCamTypeB) {
        const auto index = input->getMetaData().get<unsigned char>(Id::ActiveLens::Index);
        if (index != m_lensIndex) {
            m_lensIndex = index;
            const std::string path = m_calibrationPath + "lens" + std::to_string(index) + "/distort.pxm";
            if (utils::existsFile(path)) {
                const cv::Mat& frame = input->getFrameData();
                load(path, static_cast<uint16_t>(frame.rows), static_cast<uint16_t>(frame.cols));
                if (m_correction.ready()) {
                    m_log->log(LogLevel::info,
                               "Load distortion data: " + path + " for lens " + std::to_string(index));
                    m_dataProxy->setValue(activityKey(kTypeName), true, true);
                    m_announcedActive = true;
                }
            } else {
                m_correction = {};
                m_log->log(LogLevel::info, "No distortion data available for lens " + std::to_string(index));
            }
        }
    }
    if (m_correction.ready()) {
        cv::Mat result;
        m_correction.processImpl(input->getFrameData(), result);
        emit(outputs, STREAMING_DATATYPE_RAD, std::make_unique<Frame>(result, input->releaseMetaData()));
        return true;
    }
    m_dataProxy->setValue(activityKey(kTypeName), false, m_announcedActive); // observers hear of changes only
    m_announcedActive = false;
    passThrough(inputs, STREAMING_DATATYPE_RAD, outputs, STREAMING_DATATYPE_RAD);
    return true;
}

} // namespace norda::exp::streaming
