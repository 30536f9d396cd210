#pragma once
// SprElement: removes the static column/row pattern from the offset-corrected frame (slot 2).
//
// Keys: Id::SprElement::Active (written false), Id::SprElement::Threshold, ::LineLimit and
// ::FrameLimit (short, observed). The filter starts with all three at 0, i.e. off, and takes a
// value only when its key is written: a host whose store already holds the settings writes them
// again, with notification, after constructing the element (and flushes the store before the
// first frame), e.g. `store.set(Id::SprElement::Threshold, store.get(Id::SprElement::Threshold),
// true)` for each of the three keys. Otherwise the store shows settings the filter does not use.

#include "nordalib/vision/imgproc/StaticPatternRemover.h"
#include "nordalib/vision/streaming/NoiseFilterElement.h"

namespace norda::exp::streaming {

class SprElement : public NoiseFilterElement<vision::StaticPatternRemover> {
public:
    explicit SprElement(DataProxy<std::string>* dataProxy);
    ~SprElement() override;

    bool process(FrameMap& inputs, FrameMap& outputs) override;

private:
    void setThreshold(int16_t threshold);
    void setLineLimit(int16_t limit);
    void setFrameLimit(int16_t limit);
};

} // namespace norda::exp::streaming
