#pragma once
// A host element that copies the current values of some parameter-store keys into the metadata
// of the frame in one slot (replacing older values), so that elements which take their settings
// from the frame (the palette, the image writer) see what the user set. The frame stays where it
// is; frames without data pass untouched.

#include "nordalib/vision/streaming/StreamingElement.h"

#include <string>
#include <vector>

namespace nordacam {

class StoreStampElement : public norda::exp::streaming::StreamingElement {
public:
    StoreStampElement(norda::exp::DataProxy<std::string>& store,
                      norda::exp::streaming::STREAMING_DATATYPE slot, std::vector<std::string> keys,
                      const std::string& name);
    bool process(norda::exp::streaming::FrameMap& inputs, norda::exp::streaming::FrameMap& outputs) override;

private:
    norda::exp::DataProxy<std::string>& m_store;
    norda::exp::streaming::STREAMING_DATATYPE m_slot;
    std::vector<std::string> m_keys;
};

} // namespace nordacam
