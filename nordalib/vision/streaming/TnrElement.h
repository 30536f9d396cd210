#pragma once
// TnrElement: temporal noise reduction of the offset-corrected frame (slot 2, in place).
//
// Keys: "TnrElement.Active" (written true), Id::ActiveMeasRange::TnrGain (unsigned char, control
// gain) and Id::ActiveMeasRange::TnrAlpha (unsigned short, Q11 feedback), read at construction and
// observed, so every measurement range brings its own tuning.

#include "nordalib/vision/imgproc/TemporalNoiseReduction.h"
#include "nordalib/vision/streaming/NoiseFilterElement.h"

#include <string>

namespace norda::exp::streaming {

class TnrElement : public NoiseFilterElement<vision::TemporalNoiseReduction<short>> {
public:
    explicit TnrElement(DataProxy<std::string>* dataProxy);
    ~TnrElement() override;

    bool process(FrameMap& inputs, FrameMap& outputs) override;

private:
    void setControlGain(uint8_t gain);
    void setFeedbackFactor(uint16_t factor);

    std::string m_typeName;
};

} // namespace norda::exp::streaming
