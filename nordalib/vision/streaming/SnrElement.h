#pragma once
// SnrElement: edge-preserving spatial smoothing of the offset-corrected frame (slot 2).
//
// Keys: Id::SnrElement::Active (written false); the filter's gain follows Id::SprElement::FrameLimit
// (short, observed): one store value drives both the pattern remover's frame limit and this gain.
// The filter starts with gain 0 (off) and takes a value only when the key is written: a host whose
// store already holds it writes it again, with notification, after constructing the element, as
// for SprElement.

#include "nordalib/vision/imgproc/SpatialNoiseRemover.h"
#include "nordalib/vision/streaming/NoiseFilterElement.h"

namespace norda::exp::streaming {

class SnrElement : public NoiseFilterElement<vision::SpatialNoiseRemover> {
public:
    explicit SnrElement(DataProxy<std::string>* dataProxy);
    ~SnrElement() override;

    bool process(FrameMap& inputs, FrameMap& outputs) override;

private:
    void setGain(int16_t gain);
};

} // namespace norda::exp::streaming
