#include "nordalib/vision/streaming/OffsetElement.h"

#include "nordalib/core/keys/Keys.h"
#include "nordalib/core/utils/FileUtils.h"
#include "nordalib/vision/imgproc/BadPixelMap.h"

namespace norda::exp::streaming {

using logging::LogLevel;

namespace {
constexpr const char* kSource = "nordalib/vision/streaming/OffsetElement";
constexpr unsigned kBadPixelFile = 0; // curator of the sensor's bad-pixel file
} // namespace

OffsetElement::OffsetElement(DataProxy<std::string>* dataProxy, const std::string& calibrationPath,
                             BufferPool* bufferPool)
    : StreamingElement({STREAMING_DATATYPE_RAW}, {STREAMING_DATATYPE_CORRECTED}, "OffsetElement", nullptr,
                       true, 0),
      m_dataProxy(dataProxy), m_bufferPool(bufferPool), m_calibrationPath(calibrationPath),
      m_log(logging::Logger::createSharedLogger("OFFSET", true)) {
    m_badPixelFiles.addCurator(kBadPixelFile, makeVariant(vision::BadPixelList{}));
    m_badPixelFiles.setSourceFile(kBadPixelFile, m_calibrationPath + "badpixel.pxm");
    if (!dataProxy)
        throw norda::Exception(
            "Pointer to DataProxy is mandatory for this element!",
            norda::formatLocation(kSource, 54, "norda::exp::streaming::OffsetElement::OffsetElement"));
    loadBadBixel(true);
    dataProxy->setValue(Id::Streaming::DisableOffset, false, true);
    m_disableObserver = dataProxy->subscribeValue<bool>(
        Id::Streaming::DisableOffset, [this](const bool& disable) { setDisableOffset(disable); });
    m_updateObserver = dataProxy->subscribe(
        Id::Streaming::UpdateValues, FunctorFactory::createTransmitter([this](std::shared_ptr<Variant> v) {
            loadBadBixel(v && v->convert<bool>());
        }));
}

OffsetElement::~OffsetElement() {
    m_updateObserver.reset();
    m_disableObserver.reset();
}

bool OffsetElement::process(FrameMap& inputs, FrameMap& outputs) {
    std::lock_guard<std::mutex> lock(m_mutex);
    auto& input = inputs[STREAMING_DATATYPE_RAW];
    const cv::Mat& raw = input->getFrameData();
    if ((raw.depth() != CV_16U && raw.depth() != CV_16S) || raw.channels() != 1)
        NORDA_THROW("raw frame must be 16-bit single-channel, not type " + std::to_string(raw.type()),
                    "norda::exp::streaming::OffsetElement::process");
    const std::string state = input->getMetaData().get<std::string>(Id::Shutter::State);

    if (state == Id::Shutter::StateIdle) {
        m_captureCounter = 0;
        if (m_disableOffset)
            return false;
        if (m_offset.rows != raw.rows || m_offset.cols != raw.cols)
            return false;
        if (m_bufferPool)
            throw norda::Exception(
                "BufferPool not available with this configuration!",
                norda::formatLocation(kSource, 145, "norda::exp::streaming::OffsetElement::process"));
        cv::Mat corrected(raw.rows, raw.cols, CV_16S);
        for (int y = 0; y < raw.rows; ++y) {
            const auto* in = raw.ptr<uint16_t>(y);
            const auto* off = m_offset.ptr<uint16_t>(y);
            auto* out = corrected.ptr<int16_t>(y);
            for (int x = 0; x < raw.cols; ++x) // wraps by design: no saturation
                out[x] = static_cast<int16_t>(static_cast<uint16_t>(in[x] - off[x]));
        }
        emit(outputs, STREAMING_DATATYPE_CORRECTED,
             std::make_unique<Frame>(corrected, input->releaseMetaData()));
        return true;
    }

    if (state == Id::Shutter::StateCaptureOffsetFrame) {
        if (!captureOffset(input))
            return false;
        m_dataProxy->set(Id::Shutter::OffsetFrame, makeVariant(m_offset), true);
        m_dataProxy->setValue(Id::Shutter::State, Id::Shutter::StateOpening, true);
        return false;
    }

    m_captureCounter = 0;
    return false;
}

bool OffsetElement::captureOffset(const std::unique_ptr<Frame>& frame) {
    cv::Mat raw(frame->getFrameData().rows, frame->getFrameData().cols, CV_16U, frame->getFrameData().data,
                frame->getFrameData().step);
    ++m_captureCounter;
    // A frame of another size than the running capture (sensor mode change) starts it again.
    if (m_captureCounter > 1 && m_captureCounter <= m_u32OffsetCaptureCount &&
        raw.size() != m_accumulator.size())
        m_captureCounter = 1;
    if (m_captureCounter == 1) {
        raw.convertTo(m_accumulator, CV_32S, 1.0, 0.0);
        return false;
    }
    if (m_captureCounter > m_u32OffsetCaptureCount)
        return false;
    cv::Mat temp;
    raw.convertTo(temp, CV_32S, 1.0, 0.0);
    cv::add(m_accumulator, temp, m_accumulator);
    if (m_captureCounter < m_u32OffsetCaptureCount)
        return false;
    detectBadPixel(frame);
    calcualteMeanOffset();
    return true;
}

void OffsetElement::calcualteMeanOffset() {
    m_offset = cv::Mat(m_accumulator.rows, m_accumulator.cols, CV_16U);
    for (int y = 0; y < m_accumulator.rows; ++y) {
        const auto* sum = m_accumulator.ptr<uint32_t>(y);
        auto* out = m_offset.ptr<uint16_t>(y);
        for (int x = 0; x < m_accumulator.cols; ++x) // mean of four, rounded half up
            out[x] = static_cast<uint16_t>((sum[x] + 2u) >> m_u32OffsetCaptureShift);
    }
}

void OffsetElement::setDisableOffset(bool disable) {
    m_disableOffset = disable;
}

void OffsetElement::detectBadPixel(const std::unique_ptr<Frame>& frame) {
    const cv::Mat& f = frame->getFrameData();
    cv::Mat raw(f.rows, f.cols, CV_16U, f.data, f.step);
    const auto found = m_detector.detect(raw, badPixelsLocked());
    m_log->log(LogLevel::info, "OffsetElement: Detect {} extra bad Pixel", found.size());
    if (found.empty())
        return;
    m_detectedPixels.insert(m_detectedPixels.end(), found.begin(), found.end());
    publishBadPixels();
}

void OffsetElement::loadBadBixel(bool load) {
    if (!load)
        return;
    std::lock_guard<std::mutex> lock(m_mutex);
    const std::string file = m_badPixelFiles.getSourceFile(kBadPixelFile);
    vision::BadPixelList list;
    if (utils::existsFile(file)) {
        m_log->log(LogLevel::info, "Load BadPixel from file.");
        try {
            list = vision::BadPixelMap::read(file);
        } catch (const std::exception& e) {
            // A damaged file must not take the camera down: the detected pixels still get replaced.
            m_log->log(LogLevel::error, "BadPixel File: {} could not be read: {}", file, e.what());
        }
    } else {
        m_log->log(LogLevel::warning, "BadPixel File: {} is missing!", file);
    }
    m_badPixelFiles.set(kBadPixelFile, makeVariant(list));
    m_factoryPixels = std::move(list);
    publishBadPixels();
}

vision::BadPixelList OffsetElement::badPixels() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return badPixelsLocked();
}

vision::BadPixelList OffsetElement::badPixelsLocked() const {
    vision::BadPixelList all = m_factoryPixels;
    all.insert(all.end(), m_detectedPixels.begin(), m_detectedPixels.end());
    return all;
}

void OffsetElement::publishBadPixels() {
    m_dataProxy->setValue(Id::IrSensor::BadPixelList, badPixelsLocked(), true);
}

} // namespace norda::exp::streaming
