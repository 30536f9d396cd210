#pragma once
// Reading an element's input slot.
//
// The contract lets elements dereference their inputs unchecked, because the host fills every
// declared slot. A host that breaks it gets a clear exception here instead of a null dereference.

#include "nordalib/core/exception/Exception.h"
#include "nordalib/vision/streaming/StreamingDatatype.h"

namespace norda::exp::streaming {

// The frame of `slot` (the entry is inserted, empty, when missing, as the map's subscript does).
// Throws "no frame in slot <name>" at `function` when the entry holds no frame.
inline Frame& requireFrame(FrameMap& frames, STREAMING_DATATYPE slot, const char* function) {
    auto& entry = frames[slot];
    if (!entry)
        throw Exception("no frame in slot " + toString(slot),
                        formatLocation("nordalib/vision/streaming/SlotAccess", __LINE__, function));
    return *entry;
}

} // namespace norda::exp::streaming
