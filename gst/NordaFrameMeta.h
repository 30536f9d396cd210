#pragma once
// NordaFrameMeta: the library frame's metadata and slot, carried by a GstBuffer from one of the
// plugin's elements to the next, as a Frame carries them from one library element to the next
// (shutter state, conditions, radiometric settings, measurement results).
//
// A buffer without it comes from outside the plugin (a detector through v4l2src): a raw frame
// whose conditions the receiving element takes from its own settings.

#include "nordalib/core/datatypes/DataStorage.h"
#include "nordalib/vision/streaming/StreamingDatatype.h"

#include <gst/gst.h>

struct NordaFrameMeta {
    GstMeta meta;
    norda::exp::streaming::STREAMING_DATATYPE slot;
    norda::exp::DataStorage<std::string>* metadata;
};

GType norda_frame_meta_api_get_type();
#define NORDA_FRAME_META_API_TYPE (norda_frame_meta_api_get_type())

// The buffer's frame metadata, nullptr when it has none.
NordaFrameMeta* norda_frame_meta_get(GstBuffer* buffer);
// Attaches (or replaces) the frame metadata of a writable buffer.
void norda_frame_meta_set(GstBuffer* buffer, norda::exp::streaming::STREAMING_DATATYPE slot,
                          norda::exp::DataStorage<std::string> metadata);
