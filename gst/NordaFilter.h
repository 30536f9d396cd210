#pragma once
// GstNordaFilter: the base of the plugin's filters, a GstBaseTransform that runs a chain of the
// library's elements (a Pipeline with a parameter store of its own) on every buffer.
//
// The subclass names the format it takes and gives, the frame slots it takes (the stage of the
// element before it, from the buffer's NordaFrameMeta) and builds its chain for the negotiated
// size. The base refuses what the chain cannot take with one element error naming the element and
// the fault, and then fails every later buffer without posting again: another format, another
// size mid-stream, a frame of the wrong stage, a chain that fails. Settings given as properties go
// into the store, where the chain reads them.

#include "nordalib/core/dataproxy/DataProxy.h"
#include "nordalib/core/datatypes/Frame.h"
#include "nordalib/vision/streaming/Pipeline.h"

#include <gst/base/gstbasetransform.h>

#include <opencv2/core.hpp>

#include <string>
#include <vector>

G_BEGIN_DECLS

#define GST_TYPE_NORDA_FILTER (gst_norda_filter_get_type())
G_DECLARE_DERIVABLE_TYPE(GstNordaFilter, gst_norda_filter, GST, NORDA_FILTER, GstBaseTransform)

struct _GstNordaFilterClass {
    GstBaseTransformClass parent_class;
    const char* inputFormat; // GStreamer video format names
    const char* outputFormat;
    // Slots of the frames the element takes (RAW also takes buffers without frame metadata),
    // described for messages ("offset-corrected frames (nordacorrect)"), and the chain's slots.
    std::vector<norda::exp::streaming::STREAMING_DATATYPE>* acceptedSlots;
    const char* acceptedDescription;
    norda::exp::streaming::STREAMING_DATATYPE chainInput;
    norda::exp::streaming::STREAMING_DATATYPE chainOutput;
    // Adds the chain's elements after the source; returns what is wrong (a missing calibration),
    // or an empty string.
    std::string (*build)(GstNordaFilter* filter, norda::exp::streaming::Pipeline& chain,
                         norda::exp::DataProxy<std::string>& store);
    // Optional: sees the chain's output frame and the outgoing buffer.
    void (*finish)(GstNordaFilter* filter, const norda::exp::Frame& frame, GstBuffer* buffer);
};

// What a subclass is: its metadata for gst-inspect, the formats (pad templates and negotiation),
// the stages it takes and its chain.
struct GstNordaFilterDescription {
    const char* longName;
    const char* classification;
    const char* description;
    const char* inputFormat;
    const char* outputFormat;
    std::vector<norda::exp::streaming::STREAMING_DATATYPE> acceptedSlots;
    const char* acceptedDescription;
    norda::exp::streaming::STREAMING_DATATYPE chainInput;
    norda::exp::streaming::STREAMING_DATATYPE chainOutput;
    std::string (*build)(GstNordaFilter*, norda::exp::streaming::Pipeline&,
                         norda::exp::DataProxy<std::string>&);
    void (*finish)(GstNordaFilter*, const norda::exp::Frame&, GstBuffer*) = nullptr;
};
// Sets up a subclass from its class_init: metadata, pad templates and the fields above.
void gst_norda_filter_class_describe(GstNordaFilterClass* klass, const GstNordaFilterDescription& d);

// The element's parameter store (factory defaults; IrImage.Cols/Rows set to the negotiated size).
norda::exp::DataProxy<std::string>& gst_norda_filter_store(GstNordaFilter* filter);
// The calibration directory ending with '/'.
std::string gst_norda_filter_calibration_dir(GstNordaFilter* filter);
// Whether the chain was built (properties that only apply when building are fixed then).
gboolean gst_norda_filter_is_built(GstNordaFilter* filter);
// Installs the "calibration-dir" property on a subclass.
void gst_norda_filter_install_calibration_dir(GObjectClass* klass, guint propertyId);
void gst_norda_filter_set_calibration_dir(GstNordaFilter* filter, const GValue* value);
void gst_norda_filter_get_calibration_dir(GstNordaFilter* filter, GValue* value);
// Refuses a setting (a property out of the range the library takes): the element's error, posted
// at once while streaming, else when the stream starts. The setting keeps its last good value.
void gst_norda_filter_refuse(GstNordaFilter* filter, const std::string& message);
// Posts the element's one error (later calls do nothing).
void gst_norda_filter_fail(GstNordaFilter* filter, GQuark domain, gint code, const std::string& message);

G_END_DECLS

// Template caps of the plugin's frames in a video format ("GRAY16_LE", "RGB").
GstCaps* norda_gst_video_caps(const char* format);

// The calibration directory of an installation (the default of "calibration-dir").
std::string norda_gst_default_calibration_dir();
