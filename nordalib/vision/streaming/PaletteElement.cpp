#include "nordalib/vision/streaming/PaletteElement.h"

#include "nordalib/core/exception/Exception.h"
#include "nordalib/core/keys/Keys.h"
#include "nordalib/vision/radiometry/RadiometricTools.h"

#include <algorithm>

namespace norda::exp::streaming {

using logging::LogLevel;
using vision::RadiometricTools;
using Temp = quantity::Temperature<MarkedFloat>;
using Rel = quantity::Relation<MarkedFloat>;

namespace {
const DataStorage<std::string>& metaOf(FrameMap& inputs) {
    return inputs[STREAMING_DATATYPE_RAD_CONST]->getMetaData();
}

// A temperature setting as a pixel value (degrees Celsius into the radiometric encoding).
uint16_t pixelOf(const DataStorage<std::string>& meta, const std::string& key) {
    return RadiometricTools::getUint16(meta.get<Temp>(key).celsius());
}
} // namespace

PaletteElement::PaletteElement(bool bgr)
    : StreamingElement({STREAMING_DATATYPE_RAD_CONST}, {STREAMING_DATATYPE_RGB}, "PaletteElement", nullptr,
                       false, 0),
      m_converter(bgr), m_log(logging::Logger::createSharedLogger("PALETTE", true)) {}

PaletteElement::~PaletteElement() = default;

std::vector<std::string> PaletteElement::metadataKeys() {
    return {Id::Palette::ActivePalette,
            Id::Palette::Colors,
            Id::Scaling::Mode,
            Id::Scaling::Min,
            Id::Scaling::Max,
            Id::Environment::HumidityModeActive,
            Id::Environment::Temperature,
            Id::Environment::Humidity,
            Id::Alarm::AlarmBottomActive,
            Id::Alarm::AlarmTopActive,
            Id::Alarm::AlarmTopColor,
            Id::Alarm::AlarmBottomColor,
            Id::Alarm::AlarmBottomValue,
            Id::Alarm::AlarmTopValue,
            Id::ActiveMeasRange::Top,
            Id::ActiveMeasRange::Bottom,
            Id::Isotherme::IsothermeActive,
            Id::Isotherme::IsothermeColor,
            Id::Isotherme::IsothermeTopValue,
            Id::Isotherme::IsothermeBottomValue};
}

bool PaletteElement::process(FrameMap& inputs, FrameMap& outputs) {
    try {
        runCycle(inputs, outputs);
    } catch (const std::exception& e) {
        if (m_bHealthy)
            m_log->log(LogLevel::error, "no display image: {}", e.what());
        m_bHealthy = false;
        return false;
    }
    if (!m_bHealthy)
        m_log->log(LogLevel::info, "display images are produced again");
    m_bHealthy = true;
    return true;
}

void PaletteElement::runCycle(FrameMap& inputs, FrameMap& outputs) {
    auto& input = inputs[STREAMING_DATATYPE_RAD_CONST];
    if (!input)
        NORDA_THROW("no frame in slot " + toString(STREAMING_DATATYPE_RAD_CONST),
                    "norda::exp::streaming::PaletteElement::process");
    const cv::Mat& data = input->getFrameData();
    if (data.type() != CV_16UC1)
        NORDA_THROW("expects a CV_16UC1 frame, got " + cv::typeToString(data.type()),
                    "norda::exp::streaming::PaletteElement::process");
    const cv::Mat_<uint16_t> raw = data;
    cv::Mat_<cv::Vec3b> rgb;
    const DataStorage<std::string>& meta = input->getMetaData();

    const std::string palette = meta.get<std::string>(Id::Palette::ActivePalette);
    const auto colours = meta.get<std::vector<unsigned char>>(Id::Palette::Colors);

    const bool manual = meta.get<std::string>(Id::Scaling::Mode) != Id::Scaling::Auto;
    const uint16_t requestedLower = meta.get<unsigned short>(Id::Scaling::Min);
    const uint16_t requestedUpper = meta.get<unsigned short>(Id::Scaling::Max);
    const bool humid = meta.get<bool>(Id::Environment::HumidityModeActive);

    bool changed = false;
    checkAlarmConfigurations(inputs, changed);
    checkIsothermConfigurations(inputs, changed);

    if (palette != m_strActivePalette || humid != m_bHumid) {
        m_strActivePalette = palette;
        m_bHumid = humid;
        changed = true;
    }

    if (humid) {
        const Temp air = meta.get<Temp>(Id::Environment::Temperature);
        const Rel humidity = meta.get<Rel>(Id::Environment::Humidity);
        m_converter.palletizeHumid(raw, rgb, air, humidity, changed, colours);
    } else {
        if (manual != m_bManual) {
            m_bManual = manual;
            changed = true;
        }
        bool scaleChanged;
        if (manual) {
            // Taken as they are; lower above upper shows the palette inverted (see the converter).
            scaleChanged = requestedLower != m_u16Lower || requestedUpper != m_u16Upper;
            m_u16Lower = requestedLower;
            m_u16Upper = requestedUpper;
        } else {
            scaleChanged = updateScaling(requestedLower, requestedUpper);
        }
        if (!m_bAlarmBottomActive && !m_bAlarmTopActive && !m_bIsothermActive)
            deleteColorRegions();
        else
            setColorRegions();
        m_converter.palletize(raw, rgb, m_u16Lower, m_u16Upper, changed || scaleChanged, colours);
    }

    emit(outputs, STREAMING_DATATYPE_RGB, std::make_unique<Frame>(rgb, input->releaseMetaData()));
}

void PaletteElement::checkAlarmConfigurations(FrameMap& inputs, bool& changed) {
    const auto& meta = metaOf(inputs);
    const bool bottomActive = meta.get<bool>(Id::Alarm::AlarmBottomActive);
    const bool topActive = meta.get<bool>(Id::Alarm::AlarmTopActive);
    if (bottomActive != m_bAlarmBottomActive || topActive != m_bAlarmTopActive) {
        m_bAlarmBottomActive = bottomActive;
        m_bAlarmTopActive = topActive;
        changed = true;
    }
    const uint32_t topColor = meta.get<unsigned int>(Id::Alarm::AlarmTopColor);
    const uint32_t bottomColor = meta.get<unsigned int>(Id::Alarm::AlarmBottomColor);
    if (topColor != m_u32AlarmTopColor || bottomColor != m_u32AlarmBottomColor) {
        m_u32AlarmTopColor = topColor;
        m_u32AlarmBottomColor = bottomColor;
        changed = true;
    }
    const uint16_t bottomValue = pixelOf(meta, Id::Alarm::AlarmBottomValue);
    const uint16_t topValue = pixelOf(meta, Id::Alarm::AlarmTopValue);
    if (bottomValue != m_u16AlarmBottomValue || topValue != m_u16AlarmTopValue) {
        m_u16AlarmBottomValue = bottomValue;
        m_u16AlarmTopValue = topValue;
        changed = true;
    }
    const uint16_t rangeTop = pixelOf(meta, Id::ActiveMeasRange::Top);
    const uint16_t rangeBottom = pixelOf(meta, Id::ActiveMeasRange::Bottom);
    if (rangeTop != m_u16MeasRangeTop || rangeBottom != m_u16MeasRangeBottom) {
        m_u16MeasRangeTop = rangeTop;
        m_u16MeasRangeBottom = rangeBottom;
        changed = true;
    }
}

void PaletteElement::checkIsothermConfigurations(FrameMap& inputs, bool& changed) {
    const auto& meta = metaOf(inputs);
    auto update = [&changed](auto& stored, auto value) {
        if (stored != value) {
            stored = value;
            changed = true;
        }
    };
    update(m_bIsothermActive, meta.get<bool>(Id::Isotherme::IsothermeActive));
    update(m_u32IsothermColor, static_cast<uint32_t>(meta.get<unsigned int>(Id::Isotherme::IsothermeColor)));
    update(m_u16IsothermTopValue, pixelOf(meta, Id::Isotherme::IsothermeTopValue));
    update(m_u16IsothermBottomValue, pixelOf(meta, Id::Isotherme::IsothermeBottomValue));
}

// Automatic scaling with hysteresis, in pixel values: a limit moves only when the request leaves
// its band, and then lands one step beyond the request; between the lower edge and the upper band
// at least 4 values remain.
bool PaletteElement::updateScaling(uint16_t min, uint16_t max) {
    // An inverted request has no span; it gets the smallest step instead of a wrapped one.
    const int span = std::max(0, int(max) - int(min));
    int step = static_cast<uint16_t>(span * 0.01);
    if (step < 2)
        step = 2;
    const int band = 2 * step;
    const int storedLower = m_u16Lower;
    const int storedUpper = m_u16Upper;

    int lowerEdge = storedLower + band;
    bool lowerChanged = false;
    if (min < storedLower) {
        m_u16Lower = static_cast<uint16_t>(std::max(int(min) - step, 0));
        lowerEdge = m_u16Lower + band;
        lowerChanged = true;
    } else if (min > lowerEdge) {
        lowerEdge = std::min(int(min) + step, storedUpper - band - 4);
        m_u16Lower = static_cast<uint16_t>(std::max(lowerEdge - band, 0));
        lowerChanged = true;
    }

    if (max > storedUpper) {
        m_u16Upper = static_cast<uint16_t>(std::min(int(max) + step, 65535));
        return true;
    }
    if (max < storedUpper - band) {
        m_u16Upper = static_cast<uint16_t>(std::min(std::max(int(max) - step, lowerEdge + 4) + band, 65535));
        return true;
    }
    return lowerChanged;
}

// Regions in painting order. A converter failure (an inverted band) is swallowed: the regions not
// yet set keep their previous state for this cycle.
void PaletteElement::setColorRegions() {
    using vision::ColorPaletteConverter;
    try {
        if (m_bIsothermActive)
            m_converter.createColorRegion(ColorPaletteConverter::kIsotherm, m_u16IsothermTopValue,
                                          m_u16IsothermBottomValue, m_u32IsothermColor);
        else
            m_converter.deleteColorRegion(ColorPaletteConverter::kIsotherm);
        if (m_bAlarmTopActive)
            m_converter.createColorRegion(ColorPaletteConverter::kUpperAlarm, m_u16MeasRangeTop,
                                          m_u16AlarmTopValue, m_u32AlarmTopColor);
        else
            m_converter.deleteColorRegion(ColorPaletteConverter::kUpperAlarm);
        if (m_bAlarmBottomActive)
            m_converter.createColorRegion(ColorPaletteConverter::kLowerAlarm, m_u16AlarmBottomValue,
                                          m_u16MeasRangeBottom, m_u32AlarmBottomColor);
        else
            m_converter.deleteColorRegion(ColorPaletteConverter::kLowerAlarm);
        m_strRegionFailure.clear();
    } catch (const std::exception& e) {
        if (m_strRegionFailure != e.what())
            m_log->log(LogLevel::debug, "colour region not set: {}", e.what());
        m_strRegionFailure = e.what();
    }
}

void PaletteElement::deleteColorRegions() {
    using vision::ColorPaletteConverter;
    try {
        if (!m_bIsothermActive)
            m_converter.deleteColorRegion(ColorPaletteConverter::kIsotherm);
        if (!m_bAlarmTopActive)
            m_converter.deleteColorRegion(ColorPaletteConverter::kUpperAlarm);
        if (!m_bAlarmBottomActive)
            m_converter.deleteColorRegion(ColorPaletteConverter::kLowerAlarm);
    } catch (const std::exception&) {
        // as in setColorRegions: the remaining regions stay as they are
    }
}

} // namespace norda::exp::streaming
