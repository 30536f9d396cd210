#include "nordalib/vision/streaming/MinMaxExtractionElement.h"

#include "nordalib/core/exception/Exception.h"
#include "nordalib/core/keys/Keys.h"
#include "nordalib/vision/climate/AutoSpanHint.h"
#include "nordalib/vision/climate/DewPoint.h"
#include "nordalib/vision/imgproc/RowStatistics.h"
#include "nordalib/vision/radiometry/RadiometricTools.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace norda::exp::streaming {

using logging::LogLevel;
using vision::RadiometricTools;
using vision::RowStatistics;

namespace {

constexpr const char* kSource = "nordalib/vision/streaming/MinMaxExtractionElement";
constexpr unsigned long long kWarmUpMilliseconds = 120000;
constexpr float kSpanThreshold = 0.5f;     // degrees a scaling limit must move before it is republished
constexpr float kHumidityScaleTop = 55.0f; // °C, upper scaling limit in humidity mode

// Per-row minimum, maximum and the sum and count of the pixels strictly inside (lower, upper)
// (Band) or of all pixels. A row that lies wholly inside the band, the usual case, needs no
// second look; only rows reaching the band's limits are summed again with the test.
template <bool Band>
void scanRow(const unsigned short* p, int width, unsigned short lower, unsigned short upper,
             unsigned short& rowMin, unsigned short& rowMax, uint64_t& rowSum, uint32_t& rowCount) {
    RowStatistics::minMaxSum(p, width, rowMin, rowMax, rowSum);
    rowCount = static_cast<uint32_t>(width);
    if (Band && (rowMin <= lower || rowMax >= upper))
        RowStatistics::bandSum(p, width, lower, upper, rowSum, rowCount);
}

// Per-row results for the rows of `rect`. One thread: the row kernels run at memory speed, well
// ahead of cv::minMaxLoc plus cv::mean, and a pipeline thread waiting for woken workers on a busy
// camera costs more than it saves. Callers merge the rows in row order.
template <bool Band>
void scanRows(const cv::Mat& img, const cv::Rect& rect, unsigned short lower, unsigned short upper,
              std::vector<unsigned short>& rowMin, std::vector<unsigned short>& rowMax,
              std::vector<uint64_t>& rowSum, std::vector<uint32_t>& rowCount) {
    rowMin.resize(rect.height);
    rowMax.resize(rect.height);
    rowSum.resize(rect.height);
    rowCount.resize(rect.height);
    for (int r = 0; r < rect.height; ++r)
        scanRow<Band>(img.ptr<unsigned short>(rect.y + r) + rect.x, rect.width, lower, upper, rowMin[r],
                      rowMax[r], rowSum[r], rowCount[r]);
}

// First occurrence of `value` in row order inside `rect`, given its per-row extremes.
cv::Point_<unsigned short> firstOccurrence(const cv::Mat& img, const cv::Rect& rect,
                                           const std::vector<unsigned short>& rowExtreme,
                                           unsigned short value) {
    for (int r = 0; r < rect.height; ++r) {
        if (rowExtreme[r] != value)
            continue;
        const unsigned short* p = img.ptr<unsigned short>(rect.y + r) + rect.x;
        for (int c = 0; c < rect.width; ++c)
            if (p[c] == value)
                return {cv::saturate_cast<unsigned short>(rect.x + c),
                        cv::saturate_cast<unsigned short>(rect.y + r)};
    }
    return {0, 0};
}

MarkedFloat celsiusOf(const quantity::Temperature<MarkedFloat>& t) {
    return t.convertTo(quantity::TemperatureUnit::Celsius).getValue();
}

quantity::Temperature<MarkedFloat> validCelsius(float celsius) {
    return quantity::Temperature<MarkedFloat>(MarkedFloat(celsius, MarkedFloat::Valid));
}

} // namespace

// ---- construction ------------------------------------------------------------------------------

MinMaxExtractionElement::MinMaxExtractionElement(DataProxy<std::string>* proxy, STREAMING_DATATYPE input,
                                                 bool measPointsEnabled)
    : StreamingElement({input}, {STREAMING_DATATYPE_RAD_CONST}, "MinMaxExtractionElement", proxy, false, 0),
      m_pDataProxy(proxy), m_log(logging::Logger::createSharedLogger("MINMAX", true)), m_eInput(input),
      m_bMeasPointsEnabled(measPointsEnabled),
      m_u16MinSpan(static_cast<unsigned short>(RadiometricTools::getUint16(5.0f) -
                                               RadiometricTools::getUint16(0.0f))) {
    const std::string function = "norda::exp::streaming::MinMaxExtractionElement::MinMaxExtractionElement";
    if (proxy == nullptr)
        throw Exception("Pointer to DataProxy is mandatory for this element!",
                        formatLocation(kSource, __LINE__, function));
    if (input != STREAMING_DATATYPE_RAD && input != STREAMING_DATATYPE_RAD_CONST)
        throw Exception("Input must be of Type STREAMING_DATATYPE_RAD or STREAMING_DATATYPE_RAD_CONST",
                        formatLocation(kSource, __LINE__, function));

    m_u8EvalPeriod = proxy->getValue<bool>(Id::DeviceFeatures::FastFrameAvailable) ? 20 : 6;
    m_autoRangeSubscription = proxy->subscribeValue<bool>(
        Id::MeasRangeSettings::EnableAutoRange, [this](const bool& enable) { setAutoRange(enable); });
    setAutoRange(proxy->getValue<bool>(Id::MeasRangeSettings::EnableAutoRange));
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

        cv::Point_<unsigned short> cold, hot;
        unsigned short med = 0;
        extractMeasPoints(img, cold, hot, med, m_borders);
        const unsigned short minRaw = img.at<unsigned short>(cold.y, cold.x);
        const unsigned short maxRaw = img.at<unsigned short>(hot.y, hot.x);
        const bool evaluationCycle = m_u8Cycle % m_u8EvalPeriod == 0;

        if (m_bAutoRange && !frame->isMetaDateAvailable(Id::Gallery::ActiveFilename) && !forceUpdate) {
            const std::string scalingMode = m_pDataProxy->getValue<std::string>(Id::Scaling::Mode);
            if (evaluationCycle) {
                // The radiometry stamps each frame with the range it was computed in; frames that
                // come without (test sources) are taken to be in the store's active range.
                const unsigned char activeRange =
                    frame->isMetaDateAvailable(Id::ActiveMeasRange::Name)
                        ? frame->getMetaData().get<unsigned char>(Id::ActiveMeasRange::Name)
                        : m_pDataProxy->getValue<unsigned char>(Id::ActiveMeasRange::Name);
                if (activeRange != 0)
                    checkRangeSwitch(img, activeRange, scalingMode, humidityMode);
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
                struct UserPoint {
                    const std::string &visible, &measPoint, &position;
                };
                static const UserPoint userPoints[] = {
                    {MP::MeasPoint1::Visible, MP::MeasPoint1::MeasPoint, MP::MeasPoint1::Position},
                    {MP::MeasPoint2::Visible, MP::MeasPoint2::MeasPoint, MP::MeasPoint2::Position},
                    {MP::MeasPoint3::Visible, MP::MeasPoint3::MeasPoint, MP::MeasPoint3::Position},
                    {MP::MeasPoint4::Visible, MP::MeasPoint4::MeasPoint, MP::MeasPoint4::Position},
                    {MP::MeasPoint5::Visible, MP::MeasPoint5::MeasPoint, MP::MeasPoint5::Position}};
                for (const auto& p : userPoints)
                    handleMeasPoint(p.visible, p.measPoint, p.position, frame, m_borders, humidityMode,
                                    humidity, airTemperature);
            }

            // Image statistics are temperatures in every mode, refreshed with the spots.
            m_imageMin = setValidity(minRaw, m_borders);
            m_imageMax = setValidity(maxRaw, m_borders);
            m_imageMed = setValidity(med, m_borders);
        }

        publishMetaData(*frame);
        m_pDataProxy->setValue(Id::IrImage::Min, m_imageMin, true);
        m_pDataProxy->setValue(Id::IrImage::Max, m_imageMax, true);
        m_pDataProxy->setValue(Id::IrImage::Med, m_imageMed, true);

        updateScaling(*frame, minRaw, maxRaw, med, m_borders, humidityMode, humidity, airTemperature);
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

// ---- measurement results -----------------------------------------------------------------------

void MinMaxExtractionElement::extractMeasPoints(const cv::Mat& img, cv::Point_<unsigned short>& cold,
                                                cv::Point_<unsigned short>& hot, unsigned short& med,
                                                const MeasRangeBorders& borders) {
    cold = hot = {0, 0};
    if (img.rows == 0 || img.cols == 0) {
        med = 32767;
        return;
    }
    const unsigned short upper = RadiometricTools::getUint16(borders.toleranceTop.toFloat());
    const unsigned short lower = RadiometricTools::getUint16(borders.toleranceBottom.toFloat());
    const cv::Rect whole(0, 0, img.cols, img.rows);
    scanRows<true>(img, whole, lower, upper, m_rowMin, m_rowMax, m_rowSum, m_rowCount);

    unsigned short mn = 0xFFFF, mx = 0;
    uint64_t sum = 0, count = 0;
    for (int r = 0; r < img.rows; ++r) {
        mn = std::min(mn, m_rowMin[r]);
        mx = std::max(mx, m_rowMax[r]);
        sum += m_rowSum[r];
        count += m_rowCount[r];
    }
    med = count > 0 ? static_cast<unsigned short>(sum / count) : static_cast<unsigned short>((mx + mn) / 2);
    cold = firstOccurrence(img, whole, m_rowMin, mn);
    hot = firstOccurrence(img, whole, m_rowMax, mx);
}

void MinMaxExtractionElement::extractMeasArea(const cv::Mat& img, cv::Rect_<int>& rect,
                                              cv::Point_<unsigned short>& cold,
                                              cv::Point_<unsigned short>& hot, unsigned short& mean) {
    const int w = static_cast<int>(std::lround(img.cols * 0.5));
    const int h = static_cast<int>(std::lround(img.rows * 0.5));
    rect = cv::Rect_<int>((img.cols - w) / 2, (img.rows - h) / 2, w, h);

    std::vector<unsigned short> rowMin, rowMax;
    std::vector<uint64_t> rowSum;
    std::vector<uint32_t> rowCount;
    scanRows<false>(img, rect, 0, 0, rowMin, rowMax, rowSum, rowCount);
    unsigned short mn = 0xFFFF, mx = 0;
    uint64_t sum = 0;
    for (int r = 0; r < h; ++r) {
        mn = std::min(mn, rowMin[r]);
        mx = std::max(mx, rowMax[r]);
        sum += rowSum[r];
    }
    cold = firstOccurrence(img, rect, rowMin, mn);
    hot = firstOccurrence(img, rect, rowMax, mx);
    const float area = static_cast<float>(static_cast<uint64_t>(w) * static_cast<uint64_t>(h));
    mean = area > 0 ? static_cast<unsigned short>(static_cast<float>(sum) / area + 0.5f) : 0;
}

MinMaxExtractionElement::Temperature MinMaxExtractionElement::setValidity(unsigned short raw,
                                                                          MeasRangeBorders borders) const {
    MarkedFloat t(RadiometricTools::getFloat(raw));
    if (!borders.allValid())
        return Temperature(t, quantity::TemperatureUnit::Celsius);
    // Compared as stored (MarkedFloat drops three mantissa bits), so a value equal to a border
    // counts as inside.
    const float v = t.toFloat();
    if (v > borders.displayTop.toFloat())
        t.setMark(MarkedFloat::OverRange);
    else if (v < borders.displayBottom.toFloat())
        t.setMark(MarkedFloat::UnderRange);
    else if (v > borders.toleranceTop.toFloat())
        t.setMark(MarkedFloat::OutOfTolerance);
    else if (v < borders.toleranceBottom.toFloat())
        t.setMark(MarkedFloat::OutOfTolerance);
    else
        t.setValid();
    return Temperature(t, quantity::TemperatureUnit::Celsius);
}

MeasPoint MinMaxExtractionElement::calculateMeaspoint(unsigned short x, unsigned short y, unsigned short raw,
                                                      MeasRangeBorders borders, bool humidityMode,
                                                      Relation humidity, Temperature airTemperature) const {
    const Temperature temperature = setValidity(raw, borders);
    if (!humidityMode)
        return MeasPoint(x, y, temperature);
    return MeasPoint(x, y, vision::DewPoint::calcSurfaceMoisture(temperature, airTemperature, humidity));
}

void MinMaxExtractionElement::calculateArea(const cv::Mat& img, MeasRangeBorders borders, bool humidityMode,
                                            Relation humidity, Temperature airTemperature, bool publish) {
    cv::Rect_<int> rect;
    cv::Point_<unsigned short> cold, hot;
    unsigned short mean = 0;
    extractMeasArea(img, rect, cold, hot, mean);

    MeasArea area(static_cast<unsigned short>(rect.x), static_cast<unsigned short>(rect.y),
                  static_cast<unsigned short>(rect.width), static_cast<unsigned short>(rect.height));
    area.setColdSpot(calculateMeaspoint(cold.x, cold.y, img.at<unsigned short>(cold.y, cold.x), borders,
                                        humidityMode, humidity, airTemperature));
    area.setHotSpot(calculateMeaspoint(hot.x, hot.y, img.at<unsigned short>(hot.y, hot.x), borders,
                                       humidityMode, humidity, airTemperature));
    const MeasPoint meanPoint =
        calculateMeaspoint(0, 0, mean, borders, humidityMode, humidity, airTemperature);
    if (humidityMode)
        area.setMeanValue(meanPoint.getValue()->value<Relation>());
    else
        area.setMeanValue(meanPoint.getValue()->value<Temperature>());
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

// ---- measurement-range automatics --------------------------------------------------------------

void MinMaxExtractionElement::setAutoRange(bool enable) {
    if (!enable) {
        m_log->log(LogLevel::info, "AutoRange disabled");
        m_bAutoRange = false;
        return;
    }
    const auto pool = m_pDataProxy->getValue<DataStorage<std::string>>(Id::MeasRangePool);
    std::vector<unsigned char> ranges;
    for (const auto& entry : pool)
        ranges.push_back(static_cast<unsigned char>(std::atoi(entry.first.c_str())));
    std::sort(ranges.begin(), ranges.end());
    if (ranges.size() < 2) {
        m_log->log(LogLevel::info, "AutoRange disabled there are not enough ranges defined");
        m_bAutoRange = false;
        return;
    }
    m_u8HighRange = ranges[1];
    m_log->log(LogLevel::info, "AutoRange activated! HR {}", static_cast<unsigned>(ranges[1]));
    m_bAutoRange = true;
}

void MinMaxExtractionElement::checkRangeSwitch(const cv::Mat& img, unsigned char activeRange,
                                               std::string scalingMode, bool humidityMode) {
    const bool low = activeRange <= 1;
    const unsigned short hi = RadiometricTools::getUint16(low ? 100.0f : 80.0f);
    const unsigned short lo = RadiometricTools::getUint16(low ? 98.0f : 75.0f);

    // A pixel counts only with both upper diagonal neighbours warm too, so single hot (or
    // defective) pixels never switch the range. Rows whose maximum is not above `hi` are skipped.
    bool hot = false;
    unsigned short spot = 0;
    for (int y = 1; y < img.rows - 1 && !hot; ++y) {
        if (static_cast<size_t>(y) < m_rowMax.size() && m_rowMax[y] <= hi)
            continue;
        const unsigned short* above = img.ptr<unsigned short>(y - 1);
        const unsigned short* row = img.ptr<unsigned short>(y);
        for (int x = 1; x < img.cols - 1; ++x) {
            if (row[x] > hi && above[x - 1] > lo && above[x + 1] > lo) {
                hot = true;
                spot = row[x];
                break;
            }
        }
    }

    const bool manual = scalingMode == Id::Scaling::Manual;
    float manualTop = 0.0f;
    if (manual)
        manualTop = m_pDataProxy->getValue<Temperature>(Id::Scaling::TempMax).celsius();
    if (humidityMode)
        hot = false;

    if (!hot && activeRange != m_u8LowTempRange) {
        m_u64SwitchCount += 4;
        m_u8TargetRange = m_u8LowTempRange;
        m_log->log(LogLevel::debug, "Detect range switch condition down! count: {}", m_u64SwitchCount);
    } else if (!hot) {
        m_u64SwitchCount = 0;
    } else if (activeRange == m_u8LowTempRange) {
        // A manual scale that ends at or below 100 °C says the user looks at the low range on purpose.
        if (!manual || manualTop > 100.0f) {
            m_u64SwitchCount += 2;
            m_u8TargetRange = m_u8HighRange;
            m_log->log(LogLevel::debug, "Detect range switch condition up! Tspot = {} count: {}",
                       RadiometricTools::getFloat(spot), m_u64SwitchCount);
        }
    } else {
        m_u64SwitchCount = 0;
    }

    if (m_u64SwitchThreshold > 4)
        --m_u64SwitchThreshold;
    if (m_u64SwitchCount >= m_u64SwitchThreshold) {
        m_log->log(LogLevel::info, "AutoSwitch measurement range to {}",
                   static_cast<unsigned>(m_u8TargetRange));
        m_pDataProxy->setValue<unsigned char>(Id::ActiveMeasRange::Name, m_u8TargetRange, true);
        m_u64SwitchCount = 0;
        m_u64SwitchThreshold = 12;
    }
}

bool MinMaxExtractionElement::getSpanDiffMore(float reference, Temperature newValue, Temperature& stored,
                                              float threshold) {
    const float now = newValue.celsius();
    const float before = stored.celsius();
    stored = newValue;
    return std::fabs(now - before) > threshold || std::fabs(now - reference) > threshold;
}

// ---- display scaling ---------------------------------------------------------------------------

void MinMaxExtractionElement::updateScaling(const Frame& frame, unsigned short imageMin,
                                            unsigned short imageMax, unsigned short med,
                                            const MeasRangeBorders& borders, bool humidityMode,
                                            const Relation& humidity, const Temperature& airTemperature) {
    namespace S = Id::Scaling;
    if (humidityMode) {
        Temperature dewPoint = vision::DewPoint::calcDewPoint(airTemperature, humidity);
        MarkedFloat bottom = dewPoint.getValue();
        bottom.setValid();
        m_pDataProxy->setValue(S::TempMin, Temperature(bottom), true);
        m_pDataProxy->setValue(S::TempMax, validCelsius(kHumidityScaleTop), true);
        m_pDataProxy->setValue<unsigned short>(S::Min, RadiometricTools::getUint16(bottom.toFloat()), true);
        m_pDataProxy->setValue<unsigned short>(S::Max, RadiometricTools::getUint16(kHumidityScaleTop), true);
        return;
    }

    const std::string mode = m_pDataProxy->getValue<std::string>(S::Mode);
    if (mode == S::Auto) {
        int lo = imageMin, hi = imageMax;
        if (hi - lo < m_u16MinSpan) {
            const int mid = (lo + hi) / 2;
            lo = std::max(0, mid - m_u16MinSpan / 2);
            hi = std::min(65535, mid + m_u16MinSpan / 2);
        }
        const Temperature newMin = setValidity(static_cast<unsigned short>(lo), borders);
        const Temperature newMax = setValidity(static_cast<unsigned short>(hi), borders);
        auto reference = [&frame](const std::string& key) {
            std::shared_ptr<Variant> v;
            return frame.getMetaDate(key, v) ? v->value<Temperature>().celsius() : 0.0f;
        };
        if (getSpanDiffMore(reference(S::TempMin), newMin, m_lastScaleMin, kSpanThreshold))
            m_pDataProxy->setValue(S::TempMin, newMin, true);
        if (getSpanDiffMore(reference(S::TempMax), newMax, m_lastScaleMax, kSpanThreshold))
            m_pDataProxy->setValue(S::TempMax, newMax, true);
        m_pDataProxy->setValue<unsigned short>(S::Min, static_cast<unsigned short>(lo), true);
        m_pDataProxy->setValue<unsigned short>(S::Max, static_cast<unsigned short>(hi), true);
    } else if (mode == S::Manual) {
        const auto tempMin = m_pDataProxy->getValue<Temperature>(S::TempMin);
        const auto tempMax = m_pDataProxy->getValue<Temperature>(S::TempMax);
        m_pDataProxy->setValue<unsigned short>(S::Min, RadiometricTools::getUint16(tempMin.celsius()), true);
        m_pDataProxy->setValue<unsigned short>(S::Max, RadiometricTools::getUint16(tempMax.celsius()), true);
        m_pDataProxy->setValue(S::TempMin, validCelsius(tempMin.celsius()), true);
        m_pDataProxy->setValue(S::TempMax, validCelsius(tempMax.celsius()), true);
    } else if (mode == S::AutoSpanHint) {
        const auto tempIn = m_pDataProxy->getValue<Temperature>(S::TempIn);
        const auto tempOut = m_pDataProxy->getValue<Temperature>(S::TempOut);
        const Temperature imageTemperature = validCelsius(RadiometricTools::getFloat(med));
        unsigned short lo = imageMin, hi = imageMax;
        vision::AutoSpanHint::calculateAutoSpanHint(lo, hi, tempIn, tempOut, imageTemperature, 0.7f, 0.3f,
                                                    0.7f);
        m_pDataProxy->setValue<unsigned short>(S::Min, lo, true);
        m_pDataProxy->setValue<unsigned short>(S::Max, hi, true);
        MarkedFloat bottom = setValidity(lo, borders).getValue();
        MarkedFloat top = setValidity(hi, borders).getValue();
        bottom.setValid();
        top.setValid();
        m_pDataProxy->setValue(S::TempMin, Temperature(bottom), true);
        m_pDataProxy->setValue(S::TempMax, Temperature(top), true);
    } else {
        m_log->log(LogLevel::warning, "ScalingMode {} not supported! (Use {}, {} or {})", mode, S::Auto,
                   S::Manual, S::AutoSpanHint);
    }
}

} // namespace norda::exp::streaming
