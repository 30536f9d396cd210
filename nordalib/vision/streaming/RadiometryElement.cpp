#include "nordalib/vision/streaming/RadiometryElement.h"

#include "nordalib/core/keys/Keys.h"
#include "nordalib/vision/radiometry/ObjectParameterKeys.h"
#include "nordalib/vision/radiometry/RadiometryTypeA.h"
#include "nordalib/vision/radiometry/RadiometryTypeB.h"

namespace norda::exp::streaming {

using logging::LogLevel;
using vision::RadiometryId;

RadiometryElement::RadiometryElement(DataProxy<std::string>* dataProxy, const std::string& calibrationPath,
                                     vision::RadiometricCamType camType)
    : StreamingElement({STREAMING_DATATYPE_CORRECTED}, {STREAMING_DATATYPE_RAD}, "RadiometryElement", nullptr,
                       false, 0),
      m_camType(camType), m_log(logging::Logger::createSharedLogger("RAD_ELEMENT", true)),
      m_calibrationPath(calibrationPath), m_dataProxy(dataProxy) {
    if (!dataProxy)
        NORDA_THROW("Pointer to DataProxy is mandatory for this element!",
                    "norda::exp::streaming::RadiometryElement::RadiometryElement");
    m_updateObserver = dataProxy->subscribe(
        Id::Streaming::UpdateValues, FunctorFactory::createTransmitter([this](std::shared_ptr<Variant> v) {
            if (v)
                m_reload = v->convert<bool>();
        }));
}

RadiometryElement::~RadiometryElement() {
    m_updateObserver.reset();
}

bool RadiometryElement::process(FrameMap& inputs, FrameMap& outputs) {
    auto& input = inputs[STREAMING_DATATYPE_CORRECTED];
    DataStorage<std::string> meta = input->releaseMetaData();
    if (m_reload.exchange(false))
        loadRadiometry();

    if (!meta.get<bool>(Id::ActiveLens::Attached))
        return false;

    if (meta.get<unsigned char>(Id::ActiveLens::Index) == 0) {
        if (m_healthy) {
            m_log->log(LogLevel::warning, "No valid Lens --> Calculate dummy values!");
            m_healthy = false;
        }
        emitDummy(input->getFrameData(), std::move(meta), outputs);
        return true;
    }

    if (m_errorBudget > 0) {
        try {
            setMetaData(meta);
        } catch (const std::exception& e) {
            if (m_healthy) {
                m_log->log(LogLevel::error, "Error setting meta data for frame: {}  - frame(s) are dropped",
                           e.what());
                m_healthy = false;
            }
            if (--m_errorBudget > 0)
                return false;
            emitDummy(input->getFrameData(), std::move(meta), outputs);
            return true;
        }
        cv::Mat_<unsigned short> result;
        try {
            if (!m_model)
                NORDA_THROW("no radiometry model loaded",
                            "norda::exp::streaming::RadiometryElement::process");
            if (input->getFrameData().type() != CV_16SC1) // a view as short would convert, not view
                NORDA_THROW("frame of type " + std::to_string(input->getFrameData().type()) +
                                " is not CV_16SC1",
                            "norda::exp::streaming::RadiometryElement::process");
            cv::Mat_<short> raw = input->getFrameData();
            result = m_model->processFrame(raw);
        } catch (const std::exception& e) {
            if (m_healthy) {
                m_log->log(LogLevel::error, "Error processing frame: {} ...Dummy values will be calculated!",
                           e.what());
                m_healthy = false;
            }
            --m_errorBudget;
            emitDummy(input->getFrameData(), std::move(meta), outputs);
            return true;
        }
        auto frame = std::make_unique<Frame>(result, std::move(meta));
        frame->removeMetaDate(Id::IrImage::Min);
        frame->removeMetaDate(Id::IrImage::Max);
        frame->replaceMetaDate(Id::Temperatures::Validity, makeVariant(true));
        const auto& planck = m_model->activeRange().planck;
        frame->replaceMetaDate(Id::Radiometry::Planck, makeVariant(planck.toVector()));
        emit(outputs, STREAMING_DATATYPE_RAD, std::move(frame));
        m_errorBudget = 100;
        if (!m_healthy)
            m_log->log(LogLevel::info, "Frame processing success (error gone)");
        m_healthy = true;
        return true;
    }

    emitDummy(input->getFrameData(), std::move(meta), outputs);
    return true;
}

void RadiometryElement::emitDummy(const cv::Mat& input, DataStorage<std::string>&& metaData,
                                  FrameMap& outputs) {
    // Signed raw shifted into the unsigned range, wrapping in 16 bits: -32768 -> 0, 32767 -> 65535.
    cv::Mat dummy(input.rows, input.cols, CV_16U, cv::Scalar(0));
    const bool sixteenBit = input.depth() == CV_16S || input.depth() == CV_16U;
    for (int y = 0; sixteenBit && input.channels() == 1 && y < input.rows; ++y) {
        const auto* in = input.ptr<uint16_t>(y);
        auto* out = dummy.ptr<uint16_t>(y);
        for (int x = 0; x < input.cols; ++x)
            out[x] = static_cast<uint16_t>(in[x] + 32768u);
    }
    auto frame = std::make_unique<Frame>(dummy, std::move(metaData));
    emit(outputs, STREAMING_DATATYPE_RAD, std::move(frame));
    outputs[STREAMING_DATATYPE_RAD]->replaceMetaDate(Id::Temperatures::Validity, makeVariant(false));
}

void RadiometryElement::loadRadiometry() {
    m_model.reset();
    try {
        const auto cols = m_dataProxy->getValue<unsigned short>(Id::IrImage::Cols);
        const auto rows = m_dataProxy->getValue<unsigned short>(Id::IrImage::Rows);
        if (m_camType == vision::RadiometricCamTypeB) {
            m_model = std::make_unique<vision::RadiometryTypeB>(cols, rows, 0.01f, m_calibrationPath);
            const bool fast = m_dataProxy->getValue<bool>(Id::DeviceFeatures::FastFrameAvailable);
            m_model->parameters().set(RadiometryId::SlowFrameActive, makeVariant(!fast));
        } else {
            m_model = std::make_unique<vision::RadiometryTypeA>(cols, rows, 0.01f, m_calibrationPath);
        }
        m_log->log(LogLevel::info, "load/reload radiomety data");
    } catch (const std::exception& e) {
        m_model.reset();
        // No model: every frame fails in processFrame and becomes a dummy frame, reported once.
        m_log->log(LogLevel::error, "Radiometric model could not be loaded: {}", e.what());
    }
    m_errorBudget = 100;
}

void RadiometryElement::setMetaData(DataStorage<std::string>& meta) {
    auto hand = [&](const std::string& key, unsigned id) {
        auto v = meta.getVariant(key);
        if (!v)
            NORDA_THROW("Could not find parameter " + key,
                        "norda::exp::streaming::RadiometryElement::setMetaData");
        if (!m_model)
            return;
        m_model->setData(id, v);
    };
    hand(Id::Environment::EmissivityValue, RadiometryId::Emis);
    hand(Id::Environment::ReflectedTemperature, RadiometryId::Treflected);
    hand(Id::Temperatures::Current::TBoardSens50, RadiometryId::TboardCurrent);
    hand(Id::Temperatures::Shuttering::TBoardSens50, RadiometryId::TboardShuttering);
    hand(Id::Temperatures::Shuttering::TShutter, RadiometryId::TShutterShuttering);
    hand(Id::ActiveMeasRange::Name, RadiometryId::MeasRange);
    hand(Id::DeviceInfo::Uptime, RadiometryId::UpTime);
    hand(Id::Temperatures::Current::TBoardSlope, RadiometryId::TBoardSlope);
    hand(Id::ActiveLens::Index, RadiometryId::LensIndex);
    hand(Id::ActiveLens::Serial, RadiometryId::LensSerial);
    hand(Id::Temperatures::Current::TLens, RadiometryId::TlensCurrent);
    if (meta.get<bool>(Id::ProtectiveGlass::Attached)) {
        hand(Id::ProtectiveGlass::Transmission, RadiometryId::TauPg);
        hand(Id::ProtectiveGlass::Emissivity, RadiometryId::EmisPg);
    } else if (m_model) {
        m_model->setData(RadiometryId::TauPg, makeVariant(1.0f));
        m_model->setData(RadiometryId::EmisPg, makeVariant(0.0f));
    }
    useLaserDistance(meta);
    if (m_model) // the table is rebuilt only when these differ from the last frame's
        m_model->setAirPath(vision::ObjectParameterKeys::read(meta));
}

// While the laser's spot is found its measured distance is the object's; the frame keeps the
// distance used, so that a saved image is re-analysed from it.
void RadiometryElement::useLaserDistance(DataStorage<std::string>& meta) const {
    auto flag = [&meta](const std::string& key) {
        auto v = meta.getVariant(key);
        return v && v->holds<bool>() && v->value<bool>();
    };
    if (!flag(Id::Environment::AirCorrection) || !flag(Id::Environment::DistanceFromLaser) ||
        m_dataProxy->getValue<std::string>(Id::Laser::Status) != "Found")
        return;
    const float d = m_dataProxy->getValue<float>(Id::Laser::Distance);
    if (d > 0.0f && d <= 10000.0f)
        meta.setValue(Id::Environment::Distance, d);
}

} // namespace norda::exp::streaming
