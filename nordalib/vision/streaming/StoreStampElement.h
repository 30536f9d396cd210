#pragma once
// StoreStampElement: copies the current values of some parameter-store keys into the metadata
// of the frame in one slot (replacing older values), so that elements which take their settings
// from the frame (the palette, the image writer) see what the user set. The frame stays where it
// is; frames without data pass untouched.

#include "nordalib/vision/streaming/StreamingElement.h"

#include <string>
#include <vector>

namespace norda::exp::streaming {

class StoreStampElement : public StreamingElement {
public:
    StoreStampElement(DataProxy<std::string>& store, STREAMING_DATATYPE slot, std::vector<std::string> keys,
                      const std::string& name);
    bool process(FrameMap& inputs, FrameMap& outputs) override;

private:
    DataProxy<std::string>& m_store;
    STREAMING_DATATYPE m_slot;
    std::vector<std::string> m_keys;
    std::vector<bool> m_missing; // the store lacked the key at the last frame
};

} // namespace norda::exp::streaming
