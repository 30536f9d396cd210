#include "nordalib/vision/streaming/MinMaxExtractionElement.h"

#include "nordalib/core/exception/Exception.h"
#include "nordalib/core/keys/KeySchema.h"
#include "nordalib/core/keys/Keys.h"
#include "nordalib/vision/measurement/MeasurementResults.h"
#include "nordalib/vision/radiometry/RadiometricTools.h"

#include <algorithm>
#include <cmath>

namespace norda::exp::streaming {

using logging::LogLevel;
using vision::MeasurementResults;
using vision::MeasurementStatistics;
using vision::RadiometricTools;

namespace {

constexpr const char* kSource = "nordalib/vision/streaming/MinMaxExtractionElement";
constexpr unsigned long long kWarmUpMilliseconds = 120000;

MarkedFloat celsiusOf(const quantity::Temperature<MarkedFloat>& t) {
    return t.convertTo(quantity::TemperatureUnit::Celsius).getValue();
}

} // namespace

// ---- construction ------------------------------------------------------------------------------

MinMaxExtractionElement::MinMaxExtractionElement(DataProxy<std::string>* proxy, STREAMING_DATATYPE input,
                                                 bool measPointsEnabled)
    : StreamingElement({input}, {STREAMING_DATATYPE_RAD_CONST}, "MinMaxExtractionElement", proxy, false, 0),
      m_pDataProxy(proxy), m_log(logging::Logger::createSharedLogger("MINMAX", true)), m_eInput(input),
      m_bMeasPointsEnabled(measPointsEnabled), m_rangeAutomatics(proxy, m_log), m_scaling(proxy, m_log) {
    const std::string function = "norda::exp::streaming::MinMaxExtractionElement::MinMaxExtractionElement";
    if (proxy == nullptr)
        throw Exception("Pointer to DataProxy is mandatory for this element!",
                        formatLocation(kSource, __LINE__, function));
    if (input != STREAMING_DATATYPE_RAD && input != STREAMING_DATATYPE_RAD_CONST)
        throw Exception("Input must be of Type STREAMING_DATATYPE_RAD or STREAMING_DATATYPE_RAD_CONST",
                        formatLocation(kSource, __LINE__, function));

    m_u8EvalPeriod = proxy->getValue<bool>(Id::DeviceFeatures::FastFrameAvailable) ? 20 : 6;
    m_autoRangeSubscription =
        proxy->subscribeValue<bool>(Id::MeasRangeSettings::EnableAutoRange,
                                    [this](const bool& enable) { m_rangeAutomatics.setAutoRange(enable); });
    m_rangeAutomatics.setAutoRange(proxy->getValue<bool>(Id::MeasRangeSettings::EnableAutoRange));
}

MinMaxExtractionElement::~MinMaxExtractionElement() {
    m_autoRangeSubscription = Subscription();
}

// ---- one cycle ---------------------------------------------------------------------------------

bool MinMaxExtractionElement::process(FrameMap& inputs, FrameMap& outputs) {
    std::unique_ptr<Frame>& frame = inputs[m_eInput];

    m_borders = readBorders();
    updateWarmUp(frame.get());

    const auto humidity = m_pDataProxy->getValue<Relation>(Id::Environment::Humidity);
    const bool humidityMode = m_pDataProxy->getValue<bool>(Id::Environment::HumidityModeActive);
    const auto airTemperature = m_pDataProxy->getValue<Temperature>(Id::Environment::Temperature);

    const bool forceUpdate = m_pDataProxy->getValue<bool>(Id::Gallery::ForceUpdate);
    if (forceUpdate)
        m_u8Cycle = 0;

    if (frame && frame->getFrameData().rows > 0 && frame->getFrameData().cols > 0) {
        const cv::Mat img = frame->getFrameData();
        if (img.type() != CV_16UC1)
            throw Exception(
                "Input image must be of type CV_16UC1 (type " + std::to_string(img.type()) + ")",
                formatLocation(kSource, __LINE__, "norda::exp::streaming::MinMaxExtractionElement::process"));

        // The mean leaves out what lies beyond the tolerance band (saturated or cut-off pixels).
        const auto extremes =
            m_statistics.scanImage(img, RadiometricTools::getUint16(m_borders.toleranceBottom.toFloat()),
                                   RadiometricTools::getUint16(m_borders.toleranceTop.toFloat()));
        const auto cold = extremes.cold, hot = extremes.hot;
        const unsigned short minRaw = extremes.minRaw, maxRaw = extremes.maxRaw, med = extremes.mean;
        const bool evaluationCycle = m_u8Cycle % m_u8EvalPeriod == 0;

        if (m_rangeAutomatics.enabled() && !frame->isMetaDateAvailable(Id::Gallery::ActiveFilename) &&
            !forceUpdate) {
            const std::string scalingMode = m_pDataProxy->getValue<std::string>(Id::Scaling::Mode);
            if (evaluationCycle) {
                // The radiometry stamps each frame with the range it was computed in; frames that
                // come without (test sources) are taken to be in the store's active range.
                const unsigned char activeRange =
                    frame->isMetaDateAvailable(Id::ActiveMeasRange::Name)
                        ? frame->getMetaData().get<unsigned char>(Id::ActiveMeasRange::Name)
                        : m_pDataProxy->getValue<unsigned char>(Id::ActiveMeasRange::Name);
                if (activeRange != 0)
                    m_rangeAutomatics.checkRangeSwitch(img, m_statistics.rowMaxima(), activeRange,
                                                       scalingMode, humidityMode);
            }
        }

        if (evaluationCycle || forceUpdate) {
            if (m_pDataProxy->getValue<bool>(Id::MeasAreas::CenterArea::Visible))
                calculateArea(img, m_borders, humidityMode, humidity, airTemperature, true);

            m_hotSpot =
                calculateMeaspoint(hot.x, hot.y, maxRaw, m_borders, humidityMode, humidity, airTemperature);
            if (m_pDataProxy->getValue<bool>(Id::MeasPoints::HotSpot::Visible)) {
                m_pDataProxy->setValue(Id::MeasPoints::HotSpot::MeasPoint, m_hotSpot, true);
                m_pDataProxy->setValue(Id::MeasPoints::HotSpot::Position, m_hotSpot.getPos(), true);
            }
            m_coldSpot =
                calculateMeaspoint(cold.x, cold.y, minRaw, m_borders, humidityMode, humidity, airTemperature);
            if (m_pDataProxy->getValue<bool>(Id::MeasPoints::ColdSpot::Visible)) {
                m_pDataProxy->setValue(Id::MeasPoints::ColdSpot::MeasPoint, m_coldSpot, true);
                m_pDataProxy->setValue(Id::MeasPoints::ColdSpot::Position, m_coldSpot.getPos(), true);
            }

            namespace MP = Id::MeasPoints;
            handleMeasPoint(MP::CenterSpot::Visible, MP::CenterSpot::MeasPoint, MP::CenterSpot::Position,
                            frame, m_borders, humidityMode, humidity, airTemperature);
            handleMeasPoint(MP::LaserSpot::Visible, MP::LaserSpot::MeasPoint, MP::LaserSpot::Position, frame,
                            m_borders, humidityMode, humidity, airTemperature);

            const bool deltaT = m_pDataProxy->getValue<bool>(Id::DeltaT::Active);
            handleMeasPointBool(MP::DeltaT1::MeasPoint, MP::DeltaT1::Position, deltaT, frame, m_borders,
                                humidityMode, humidity, airTemperature);
            const bool pointPoint =
                deltaT && m_pDataProxy->getValue<std::string>(Id::DeltaT::Mode) == Id::DeltaT::PointPoint;
            handleMeasPointBool(MP::DeltaT2::MeasPoint, MP::DeltaT2::Position, pointPoint, frame, m_borders,
                                humidityMode, humidity, airTemperature);

            if (m_bMeasPointsEnabled) {
                for (const auto& p : userMarks())
                    if (!p.area)
                        handleMeasPoint(p.visible, p.result, p.position, frame, m_borders, humidityMode,
                                        humidity, airTemperature);
            }

            // Image statistics are temperatures in every mode, refreshed with the spots.
            m_imageMin = MeasurementStatistics::markValidity(minRaw, m_borders);
            m_imageMax = MeasurementStatistics::markValidity(maxRaw, m_borders);
            m_imageMed = MeasurementStatistics::markValidity(med, m_borders);
        }

        publishMetaData(*frame);
        m_pDataProxy->setValue(Id::IrImage::Min, m_imageMin, true);
        m_pDataProxy->setValue(Id::IrImage::Max, m_imageMax, true);
        m_pDataProxy->setValue(Id::IrImage::Med, m_imageMed, true);

        m_scaling.update(*frame, minRaw, maxRaw, med, m_borders, humidityMode, humidity, airTemperature);
        ++m_u8Cycle; // wraps from 255 to 0
    }

    passThrough(inputs, m_eInput, outputs, STREAMING_DATATYPE_RAD_CONST);
    return true;
}

MeasRangeBorders MinMaxExtractionElement::readBorders() const {
    MeasRangeBorders b;
    b.toleranceTop = celsiusOf(m_pDataProxy->getValue<Temperature>(Id::ActiveMeasRange::ToleranceTop));
    b.toleranceBottom = celsiusOf(m_pDataProxy->getValue<Temperature>(Id::ActiveMeasRange::ToleranceBottom));
    b.displayTop = celsiusOf(m_pDataProxy->getValue<Temperature>(Id::ActiveMeasRange::DisplayTop));
    b.displayBottom = celsiusOf(m_pDataProxy->getValue<Temperature>(Id::ActiveMeasRange::DisplayBottom));
    return b;
}

// Hot and cold spot, positions and centre area replace whatever the frame carried; the image
// statistics likewise.
void MinMaxExtractionElement::publishMetaData(Frame& frame) {
    auto put = [&frame](const std::string& key, std::shared_ptr<Variant> value) {
        if (frame.isMetaDateAvailable(key))
            frame.removeMetaDate(key);
        frame.addMetaDate(key, std::move(value));
    };
    put(Id::MeasAreas::CenterArea::MeasArea, makeVariant(m_centerArea));
    put(Id::MeasPoints::HotSpot::MeasPoint, makeVariant(m_hotSpot));
    put(Id::MeasPoints::HotSpot::Position, makeVariant(m_hotSpot.getPos()));
    put(Id::MeasPoints::ColdSpot::MeasPoint, makeVariant(m_coldSpot));
    put(Id::MeasPoints::ColdSpot::Position, makeVariant(m_coldSpot.getPos()));
    put(Id::IrImage::Min, makeVariant(m_imageMin));
    put(Id::IrImage::Max, makeVariant(m_imageMax));
    put(Id::IrImage::Med, makeVariant(m_imageMed));
}

MeasPoint MinMaxExtractionElement::calculateMeaspoint(unsigned short x, unsigned short y, unsigned short raw,
                                                      MeasRangeBorders borders, bool humidityMode,
                                                      Relation humidity, Temperature airTemperature) const {
    const MeasurementResults::Humidity climate{humidity, airTemperature};
    return MeasurementResults::point(x, y, raw, borders, humidityMode ? &climate : nullptr);
}

void MinMaxExtractionElement::calculateArea(const cv::Mat& img, MeasRangeBorders borders, bool humidityMode,
                                            Relation humidity, Temperature airTemperature, bool publish) {
    const MeasurementResults::Humidity climate{humidity, airTemperature};
    const MeasArea area = MeasurementResults::area(img, MeasurementResults::centreArea(img.size()), borders,
                                                   humidityMode ? &climate : nullptr);
    m_centerArea = area;

    if (publish) {
        m_pDataProxy->setValue(Id::MeasAreas::CenterArea::MeasArea, m_centerArea, true);
        m_pDataProxy->setValue(Id::MeasAreas::CenterArea::Rect, m_centerArea.getAreaRect(), true);
    }
}

void MinMaxExtractionElement::handleMeasPoint(const std::string& visibleKey, const std::string& measPointKey,
                                              const std::string& positionKey, std::unique_ptr<Frame>& frame,
                                              MeasRangeBorders borders, bool humidityMode, Relation humidity,
                                              Temperature airTemperature) {
    if (!m_pDataProxy->getValue<bool>(visibleKey))
        return;
    handleMeasPoint(measPointKey, positionKey, frame, borders, humidityMode, humidity, airTemperature);
}

void MinMaxExtractionElement::handleMeasPointBool(const std::string& measPointKey,
                                                  const std::string& positionKey, bool active,
                                                  std::unique_ptr<Frame>& frame, MeasRangeBorders borders,
                                                  bool humidityMode, Relation humidity,
                                                  Temperature airTemperature) {
    if (!active)
        return;
    handleMeasPoint(measPointKey, positionKey, frame, borders, humidityMode, humidity, airTemperature);
}

void MinMaxExtractionElement::handleMeasPoint(const std::string& measPointKey, const std::string& positionKey,
                                              std::unique_ptr<Frame>& frame, MeasRangeBorders borders,
                                              bool humidityMode, Relation humidity,
                                              Temperature airTemperature) {
    const cv::Mat& img = frame->getFrameData();
    const auto position = m_pDataProxy->getValue<cv::Point_<int>>(positionKey);
    // Corrected for this cycle only; the stored position stays as the user set it.
    int x = position.x, y = position.y;
    if (x >= img.cols || x < 0) {
        x = x < 0 ? 0 : img.cols - 1;
        m_log->log(LogLevel::debug, "MP {}, X out of range: {} (corrected to {})", measPointKey, position.x,
                   x);
    }
    if (y >= img.rows || y < 0) {
        y = y < 0 ? 0 : img.rows - 1;
        m_log->log(LogLevel::debug, "MP {}, Y out of range: {} (corrected to {})", measPointKey, position.y,
                   y);
    }
    const MeasPoint point =
        calculateMeaspoint(static_cast<unsigned short>(x), static_cast<unsigned short>(y),
                           img.at<unsigned short>(y, x), borders, humidityMode, humidity, airTemperature);
    m_pDataProxy->setValue(measPointKey, point, true);
    // A value the frame already carries is kept (Frame::addMetaDate reports it).
    frame->addMetaDate(measPointKey, makeVariant(point));
}

// ---- warm-up -----------------------------------------------------------------------------------

void MinMaxExtractionElement::updateWarmUp(const Frame* frame) {
    if (frame && frame->isMetaDateAvailable(Id::DeviceInfo::Uptime)) {
        const auto uptime = frame->getMetaData().get<unsigned long long>(Id::DeviceInfo::Uptime);
        if (uptime > kWarmUpMilliseconds) {
            if (m_bWarmUp) {
                m_bWarmUp = false;
                m_log->log(LogLevel::debug, "WARMUP PHASE END");
                m_pDataProxy->setValue(Id::Streaming::WarmUp, false, true);
            }
        } else {
            if (!m_bWarmUp)
                m_pDataProxy->setValue(Id::Streaming::WarmUp, true, true);
            m_bWarmUp = true;
        }
    } else if (m_bWarmUp) {
        m_bWarmUp = false;
        m_pDataProxy->setValue(Id::Streaming::WarmUp, false, true);
    }
}

} // namespace norda::exp::streaming
