#include "nordalib/vision/streaming/GainElement.h"

#include "nordalib/core/keys/Keys.h"
#include "nordalib/core/utils/FileUtils.h"

namespace norda::exp::streaming {

using logging::LogLevel;

GainElement::GainElement(DataProxy<std::string>* dataProxy, const std::string& calibrationPath)
    : StreamingElement({STREAMING_DATATYPE_CORRECTED}, {STREAMING_DATATYPE_CORRECTED}, "GainElement", nullptr,
                       false, 0),
      m_file(calibrationPath + "gain.pxm"), m_log(logging::Logger::createSharedLogger("GAIN", true)) {
    if (!dataProxy)
        NORDA_THROW("Pointer to DataProxy is mandatory for this element!",
                    "norda::exp::streaming::GainElement::GainElement");
    load();
    m_updateObserver = dataProxy->subscribe(
        Id::Streaming::UpdateValues, FunctorFactory::createTransmitter([this](std::shared_ptr<Variant> v) {
            if (v && v->convert<bool>())
                load();
        }));
}

GainElement::~GainElement() {
    m_updateObserver.reset();
}

bool GainElement::process(FrameMap& inputs, FrameMap& outputs) {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        cv::Mat& frame = inputs[STREAMING_DATATYPE_CORRECTED]->getFrameData();
        if (m_table.empty()) {
            // no table: the frame passes as the offset left it
        } else if (frame.type() == CV_16SC1 && frame.size() == m_table.size()) {
            m_table.apply(frame);
        } else if (!m_sizeReported) {
            m_sizeReported = true;
            m_log->log(LogLevel::warning,
                       "Gain table {} is {}x{}, the frames {}x{} of type {}: left uncorrected", m_file,
                       m_table.size().width, m_table.size().height, frame.cols, frame.rows,
                       cv::typeToString(frame.type()));
        }
    }
    passThrough(inputs, STREAMING_DATATYPE_CORRECTED, outputs, STREAMING_DATATYPE_CORRECTED);
    return true;
}

bool GainElement::loaded() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return !m_table.empty();
}

void GainElement::load() {
    vision::GainTable table;
    if (!utils::existsFile(m_file)) {
        m_log->log(LogLevel::info, "Gain table {} is missing: frames pass without gain correction", m_file);
    } else {
        try {
            table = vision::GainTable::load(m_file);
            m_log->log(LogLevel::info, "Load gain table {}", m_file);
        } catch (const std::exception& e) {
            // A damaged file must not take the camera down: the frames pass as the offset left them.
            m_log->log(LogLevel::error, "Gain table {} could not be read: {}", m_file, e.what());
        }
    }
    std::lock_guard<std::mutex> lock(m_mutex);
    m_table = std::move(table);
    m_sizeReported = false;
}

} // namespace norda::exp::streaming
