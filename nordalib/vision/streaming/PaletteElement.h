#pragma once
// PaletteElement: colours the radiometric frame behind the measurement stage into the display
// image. Every setting comes from the incoming frame's metadata (palette, scaling, humidity mode,
// alarm and isotherm bands); the element picks the pixel-value limits (with a hysteresis in
// automatic scaling), keeps the converter's three colour regions up to date and tells the
// converter when anything changed, so unchanged frames reuse its lookup table.
//
// Slots: input STREAMING_DATATYPE_RAD_CONST (CV_16UC1), output STREAMING_DATATYPE_RGB (CV_8UC3),
// carrying the input frame's metadata. Logger "PALETTE".
//
// Metadata read (types as in Keys.h): Id::Palette::ActivePalette, Id::Palette::Colors,
// Id::Scaling::Mode, Id::Scaling::Min, Id::Scaling::Max, Id::Environment::HumidityModeActive
// (and in humidity mode Id::Environment::Temperature, Id::Environment::Humidity), the
// Id::Alarm keys, Id::ActiveMeasRange::Top and ::Bottom, the Id::Isotherme keys.
//
// A cycle whose frame is missing, is not CV_16UC1 or lacks a key (or holds it with another type)
// returns false and emits no frame; the failure is logged once when it starts and once when
// frames are good again, not on every frame.

#include "nordalib/core/logging/Logger.h"
#include "nordalib/vision/imgproc/ColorPaletteConverter.h"
#include "nordalib/vision/streaming/StreamingElement.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace norda::exp::streaming {

class PaletteElement : public StreamingElement {
public:
    // `bgr`: the display image in B, G, R order instead of R, G, B (see ColorPaletteConverter).
    explicit PaletteElement(bool bgr);
    ~PaletteElement() override;

    bool process(FrameMap& inputs, FrameMap& outputs) override;

    // The metadata keys the element reads from each frame: a host copies them from its store into
    // every frame that is to be coloured.
    static std::vector<std::string> metadataKeys();

protected:
    // The converter, for hosts or tests that look at or add to the colour regions.
    vision::ColorPaletteConverter& converter() { return m_converter; }
    uint16_t lowerLimit() const { return m_u16Lower; }
    uint16_t upperLimit() const { return m_u16Upper; }

private:
    void runCycle(FrameMap& inputs, FrameMap& outputs);
    void checkAlarmConfigurations(FrameMap& inputs, bool& changed);
    void checkIsothermConfigurations(FrameMap& inputs, bool& changed);
    bool updateScaling(uint16_t min, uint16_t max);
    void setColorRegions();
    void deleteColorRegions();

    vision::ColorPaletteConverter m_converter;
    bool m_bManual = false;
    bool m_bHumid = false;
    std::string m_strActivePalette;
    uint16_t m_u16Lower = 65535;
    uint16_t m_u16Upper = 0;
    bool m_bAlarmBottomActive = false;
    bool m_bAlarmTopActive = false;
    uint32_t m_u32AlarmTopColor = 0;
    uint32_t m_u32AlarmBottomColor = 0;
    uint16_t m_u16AlarmBottomValue = 0;
    uint16_t m_u16AlarmTopValue = 0;
    uint16_t m_u16MeasRangeTop = 0;
    uint16_t m_u16MeasRangeBottom = 0;
    bool m_bIsothermActive = false;
    uint16_t m_u16IsothermTopValue = 0;
    uint16_t m_u16IsothermBottomValue = 0;
    uint32_t m_u32IsothermColor = 0;

    // Log once per episode: set while cycles succeed; the last region failure text.
    bool m_bHealthy = true;
    std::string m_strRegionFailure;
    std::shared_ptr<logging::Logger> m_log;
};

} // namespace norda::exp::streaming
