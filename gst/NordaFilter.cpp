#include "gst/NordaFilter.h"

#include "gst/NordaFrameMeta.h"

#include "nordalib/core/keys/DefaultParameters.h"
#include "nordalib/core/keys/Keys.h"
#include "nordalib/vision/streaming/CaptureElement.h"

#include <gst/video/video.h>

#include <memory>

using namespace norda::exp;
using namespace norda::exp::streaming;

namespace {

struct State {
    DataProxy<std::string> store;
    std::string calibrationDir = norda_gst_default_calibration_dir();
    std::unique_ptr<Pipeline> chain; // after the store: destroyed first
    std::unique_ptr<Frame> pending;
    cv::Mat result;
    DataStorage<std::string> resultMeta;
    bool haveResult = false;
    std::string cycleError;
    GstVideoInfo in{}, out{};
    cv::Size size;
    bool failed = false;
    std::string refused; // a refused setting, posted when streaming
    // Caps the chain cannot take: refused at the first buffer, not in set_caps, whose failure
    // would only make the element upstream report "not-negotiated" beside it.
    std::string wrongInput;
};

struct GstNordaFilterPrivate {
    State* state;
};

} // namespace

G_DEFINE_ABSTRACT_TYPE_WITH_PRIVATE(GstNordaFilter, gst_norda_filter, GST_TYPE_BASE_TRANSFORM)

namespace {

State& stateOf(GstNordaFilter* filter) {
    return *static_cast<GstNordaFilterPrivate*>(gst_norda_filter_get_instance_private(filter))->state;
}

GstNordaFilterClass* classOf(GstNordaFilter* filter) {
    return GST_NORDA_FILTER_GET_CLASS(filter);
}

const char* slotName(STREAMING_DATATYPE slot) {
    switch (slot) {
    case STREAMING_DATATYPE_RAW:
        return "a raw detector frame";
    case STREAMING_DATATYPE_CORRECTED:
        return "an offset-corrected frame";
    case STREAMING_DATATYPE_RAD:
        return "a temperature frame";
    case STREAMING_DATATYPE_RAD_CONST:
        return "a measured temperature frame";
    default:
        return "a frame of another kind";
    }
}

int cvType(const char* format, STREAMING_DATATYPE slot) {
    if (g_str_equal(format, "RGB"))
        return CV_8UC3;
    return slot == STREAMING_DATATYPE_CORRECTED ? CV_16SC1 : CV_16UC1;
}

GstCaps* transformCaps(GstBaseTransform* trans, GstPadDirection direction, GstCaps* caps, GstCaps* filter) {
    auto* klass = classOf(GST_NORDA_FILTER(trans));
    const char* format = direction == GST_PAD_SINK ? klass->outputFormat : klass->inputFormat;
    GstCaps* result = gst_caps_new_empty();
    for (guint i = 0; i < gst_caps_get_size(caps); ++i) {
        GstStructure* s = gst_structure_copy(gst_caps_get_structure(caps, i));
        gst_structure_set_name(s, "video/x-raw");
        gst_structure_set(s, "format", G_TYPE_STRING, format, nullptr);
        gst_structure_remove_fields(s, "colorimetry", "chroma-site", nullptr);
        result = gst_caps_merge_structure(result, s);
    }
    if (filter) {
        GstCaps* both = gst_caps_intersect_full(filter, result, GST_CAPS_INTERSECT_FIRST);
        gst_caps_unref(result);
        result = both;
    }
    return result;
}

// Any raw video is let in, so that a frame the chain cannot take meets set_caps and is refused
// there with a message, instead of a bare "not negotiated" of the element upstream. The caps
// queries still answer with the formats the element takes.
gboolean acceptCaps(GstBaseTransform* trans, GstPadDirection direction, GstCaps* caps) {
    if (direction == GST_PAD_SINK)
        return gst_caps_get_size(caps) > 0 &&
               gst_structure_has_name(gst_caps_get_structure(caps, 0), "video/x-raw");
    return GST_BASE_TRANSFORM_CLASS(gst_norda_filter_parent_class)->accept_caps(trans, direction, caps);
}

gboolean build(GstNordaFilter* filter) {
    State& s = stateOf(filter);
    auto* klass = classOf(filter);
    s.store.setValue<unsigned short>(Id::IrImage::Cols, static_cast<unsigned short>(s.size.width), false);
    s.store.setValue<unsigned short>(Id::IrImage::Rows, static_cast<unsigned short>(s.size.height), false);
    auto chain = std::make_unique<Pipeline>();
    chain->add(std::make_unique<CaptureElement>(klass->chainInput, [&s] { return std::move(s.pending); }));
    std::string problem;
    try {
        problem = klass->build(filter, *chain, s.store);
    } catch (const std::exception& e) {
        problem = e.what();
    }
    if (!problem.empty()) {
        gst_norda_filter_fail(filter, GST_RESOURCE_ERROR, GST_RESOURCE_ERROR_NOT_FOUND, problem);
        return FALSE;
    }
    chain->setErrorHandler([&s](const std::string& element, const std::string& message) {
        if (s.cycleError.empty())
            s.cycleError = element + ": " + message;
    });
    chain->setCycleObserver([&s, out = klass->chainOutput](const FrameMap& frames, uint64_t) {
        auto it = frames.find(out);
        s.haveResult = it != frames.end() && it->second && !it->second->getFrameData().empty();
        if (s.haveResult) { // the cycle's frames end after this
            s.result = it->second->getFrameData();
            s.resultMeta = std::move(it->second->getMetaData());
        }
    });
    s.store.flush();
    s.chain = std::move(chain);
    return TRUE;
}

gboolean setCaps(GstBaseTransform* trans, GstCaps* incaps, GstCaps* outcaps) {
    auto* filter = GST_NORDA_FILTER(trans);
    auto* klass = classOf(filter);
    State& s = stateOf(filter);
    const gchar* name = GST_ELEMENT_NAME(trans);
    if (!s.refused.empty()) {
        gst_norda_filter_fail(filter, GST_LIBRARY_ERROR, GST_LIBRARY_ERROR_SETTINGS, s.refused);
        return FALSE;
    }
    GstVideoInfo in, out;
    if (!gst_video_info_from_caps(&in, incaps) || !gst_video_info_from_caps(&out, outcaps)) {
        gchar* text = gst_caps_to_string(incaps);
        gst_norda_filter_fail(filter, GST_STREAM_ERROR, GST_STREAM_ERROR_FORMAT,
                              std::string(name) + " takes " + klass->inputFormat + " video frames, not " +
                                  text);
        g_free(text);
        return FALSE;
    }
    const char* format = gst_video_format_to_string(GST_VIDEO_INFO_FORMAT(&in));
    if (!g_str_equal(format, klass->inputFormat)) {
        s.wrongInput =
            std::string(name) + " takes " + klass->inputFormat + " frames (16 bits a pixel), not " + format;
        return TRUE;
    }
    const cv::Size size(GST_VIDEO_INFO_WIDTH(&in), GST_VIDEO_INFO_HEIGHT(&in));
    if (s.chain && size != s.size) {
        s.wrongInput = std::string(name) + ": the frame size changed from " + std::to_string(s.size.width) +
                       "x" + std::to_string(s.size.height) + " to " + std::to_string(size.width) + "x" +
                       std::to_string(size.height) + " mid-stream; the calibration and filters hold one size";
        return TRUE;
    }
    s.in = in;
    s.out = out;
    s.size = size;
    return s.chain ? TRUE : build(filter);
}

gboolean unitSize(GstBaseTransform*, GstCaps* caps, gsize* size) {
    GstVideoInfo info;
    if (!gst_video_info_from_caps(&info, caps))
        return FALSE;
    *size = GST_VIDEO_INFO_SIZE(&info);
    return TRUE;
}

// Whether the chain's output may leave as the outgoing buffer's memory: no element keeps it (an
// element that writes its output into the same memory every frame holds a reference to it), and
// its rows lie as GStreamer lays out frames of the negotiated format.
bool canHandOver(const cv::Mat& result, const GstVideoInfo& out) {
    return result.u && result.u->refcount == 1 && result.isContinuous() &&
           result.step[0] == static_cast<size_t>(GST_VIDEO_INFO_PLANE_STRIDE(&out, 0)) &&
           result.total() * result.elemSize() == GST_VIDEO_INFO_SIZE(&out);
}

// The chain's output as a buffer of its own memory, which lives as long as the buffer.
GstBuffer* wrap(const cv::Mat& result) {
    auto* kept = new cv::Mat(result);
    const gsize size = kept->total() * kept->elemSize();
    return gst_buffer_new_wrapped_full(static_cast<GstMemoryFlags>(0), kept->data, size, 0, size, kept,
                                       [](gpointer mat) { delete static_cast<cv::Mat*>(mat); });
}

// Runs the chain on `inbuf` (its reference is taken) and gives the outgoing buffer in `outbuf`.
// The chain reads the mapped input in place. What it gives goes out without a copy where it can:
// the same buffer when the chain passed the frame on unchanged (the measurement), else a buffer
// around the chain's own output memory; the output is copied only into a buffer of the base class
// when an element keeps its output memory.
GstFlowReturn run(GstNordaFilter* filter, GstBuffer* inbuf, GstBuffer** outbuf) {
    State& s = stateOf(filter);
    auto* klass = classOf(filter);
    auto* trans = GST_BASE_TRANSFORM(filter);
    const gchar* name = GST_ELEMENT_NAME(filter);
    *outbuf = nullptr;
    auto fail = [&](GQuark domain, gint code, const std::string& message) {
        gst_norda_filter_fail(filter, domain, code, message);
        s.result.release();
        if (inbuf)
            gst_buffer_unref(inbuf);
        return GST_FLOW_ERROR;
    };
    if (!s.refused.empty())
        gst_norda_filter_fail(filter, GST_LIBRARY_ERROR, GST_LIBRARY_ERROR_SETTINGS, s.refused);
    if (!s.wrongInput.empty())
        gst_norda_filter_fail(filter, GST_STREAM_ERROR, GST_STREAM_ERROR_FORMAT, s.wrongInput);
    if (s.failed) {
        gst_buffer_unref(inbuf);
        return GST_FLOW_ERROR;
    }
    if (!s.chain)
        return fail(GST_CORE_ERROR, GST_CORE_ERROR_NEGOTIATION,
                    std::string(name) + " received a frame before its format");
    NordaFrameMeta* meta = norda_frame_meta_get(inbuf);
    const STREAMING_DATATYPE slot = meta ? meta->slot : STREAMING_DATATYPE_RAW;
    const auto& accepted = *klass->acceptedSlots;
    const bool bareOk = std::find(accepted.begin(), accepted.end(), STREAMING_DATATYPE_RAW) != accepted.end();
    if (std::find(accepted.begin(), accepted.end(), slot) == accepted.end() || (!meta && !bareOk))
        return fail(GST_STREAM_ERROR, GST_STREAM_ERROR_WRONG_TYPE,
                    std::string(name) + " takes " + klass->acceptedDescription + ", but got " +
                        (meta ? slotName(slot) : "a frame from outside the plugin (a raw frame)"));

    GstVideoFrame vin;
    if (!gst_video_frame_map(&vin, &s.in, inbuf, GST_MAP_READ))
        return fail(GST_STREAM_ERROR, GST_STREAM_ERROR_FAILED, std::string(name) + ": unreadable buffer");
    bool mapped = true;
    auto unmapInput = [&] {
        if (mapped)
            gst_video_frame_unmap(&vin);
        mapped = false;
    };
    auto* const inData = static_cast<uint8_t*>(GST_VIDEO_FRAME_PLANE_DATA(&vin, 0));
    // The frame's metadata is replaced on the way out: a buffer this element alone holds gives it up.
    DataStorage<std::string> inMeta;
    if (meta && meta->metadata)
        inMeta = gst_buffer_is_writable(inbuf) ? std::move(*meta->metadata) : *meta->metadata;
    s.pending = std::make_unique<Frame>(
        cv::Mat(s.size, cvType(klass->inputFormat, slot), inData, GST_VIDEO_FRAME_PLANE_STRIDE(&vin, 0)),
        std::move(inMeta));
    s.cycleError.clear();
    s.haveResult = false;
    const auto cycle = s.chain->runCycle();
    s.pending.reset();
    if (cycle.failed > 0 || !s.cycleError.empty()) {
        unmapInput();
        return fail(GST_STREAM_ERROR, GST_STREAM_ERROR_FAILED,
                    std::string(name) + ": " + (s.cycleError.empty() ? "the chain failed" : s.cycleError));
    }
    // The chain keeps some frames back: those of the closed shutter, a frame whose conditions
    // cannot be read.
    if (!s.haveResult) {
        unmapInput();
        gst_buffer_unref(inbuf);
        return GST_BASE_TRANSFORM_FLOW_DROPPED;
    }
    if (s.result.size() != s.size ||
        s.result.elemSize() != static_cast<size_t>(GST_VIDEO_INFO_COMP_PSTRIDE(&s.out, 0))) {
        unmapInput();
        return fail(GST_STREAM_ERROR, GST_STREAM_ERROR_FAILED,
                    std::string(name) + ": the chain gave a frame of another size or depth");
    }
    const bool unchanged = s.result.data == inData;
    unmapInput(); // the mapping holds a reference, which leaves the buffer read-only
    GstBuffer* out = nullptr;
    if (unchanged) {
        out = gst_buffer_make_writable(inbuf);
    } else if (canHandOver(s.result, s.out)) {
        out = wrap(s.result);
        GST_BASE_TRANSFORM_GET_CLASS(trans)->copy_metadata(trans, inbuf, out);
        gst_buffer_unref(inbuf);
    } else {
        const GstFlowReturn prepared =
            GST_BASE_TRANSFORM_GET_CLASS(trans)->prepare_output_buffer(trans, inbuf, &out);
        if (prepared != GST_FLOW_OK || !out) {
            s.result.release();
            gst_buffer_unref(inbuf);
            return prepared != GST_FLOW_OK ? prepared : GST_FLOW_ERROR;
        }
        if (out != inbuf)
            gst_buffer_unref(inbuf);
        inbuf = out;
        GstVideoFrame vout;
        if (!gst_video_frame_map(&vout, &s.out, out, GST_MAP_WRITE))
            return fail(GST_STREAM_ERROR, GST_STREAM_ERROR_FAILED, std::string(name) + ": unwritable buffer");
        cv::Mat target(s.size, s.result.type(), GST_VIDEO_FRAME_PLANE_DATA(&vout, 0),
                       GST_VIDEO_FRAME_PLANE_STRIDE(&vout, 0));
        s.result.copyTo(target);
        gst_video_frame_unmap(&vout);
    }
    Frame frame(s.result, std::move(s.resultMeta));
    s.result.release();
    if (klass->finish)
        klass->finish(filter, frame, out);
    norda_frame_meta_set(out, klass->chainOutput, std::move(frame.getMetaData()));
    *outbuf = out;
    return GST_FLOW_OK;
}

// The base class's output buffer is left out: the chain's output becomes the outgoing buffer.
GstFlowReturn generateOutput(GstBaseTransform* trans, GstBuffer** outbuf) {
    GstBuffer* inbuf = trans->queued_buf;
    trans->queued_buf = nullptr;
    *outbuf = nullptr;
    return inbuf ? run(GST_NORDA_FILTER(trans), inbuf, outbuf) : GST_FLOW_OK;
}

// The frame metadata is rewritten by the chain; other metas go with the buffer.
gboolean transformMeta(GstBaseTransform*, GstBuffer*, GstMeta* meta, GstBuffer*) {
    return meta->info->api != NORDA_FRAME_META_API_TYPE;
}

gboolean stop(GstBaseTransform* trans) {
    State& s = stateOf(GST_NORDA_FILTER(trans));
    s.chain.reset();
    s.size = {};
    s.failed = false;
    s.refused.clear();
    s.wrongInput.clear();
    return TRUE;
}

void finalize(GObject* object) {
    auto* p =
        static_cast<GstNordaFilterPrivate*>(gst_norda_filter_get_instance_private(GST_NORDA_FILTER(object)));
    delete p->state;
    G_OBJECT_CLASS(gst_norda_filter_parent_class)->finalize(object);
}

} // namespace

static void gst_norda_filter_class_init(GstNordaFilterClass* klass) {
    G_OBJECT_CLASS(klass)->finalize = finalize;
    auto* base = GST_BASE_TRANSFORM_CLASS(klass);
    base->transform_caps = transformCaps;
    base->accept_caps = acceptCaps;
    base->set_caps = setCaps;
    base->get_unit_size = unitSize;
    base->generate_output = generateOutput;
    base->transform_meta = transformMeta;
    base->stop = stop;
    base->passthrough_on_same_caps = FALSE;
}

static void gst_norda_filter_init(GstNordaFilter* filter) {
    auto* p = static_cast<GstNordaFilterPrivate*>(gst_norda_filter_get_instance_private(filter));
    p->state = new State;
    setDefaultParameters(p->state->store);
    p->state->store.flush();
}

norda::exp::DataProxy<std::string>& gst_norda_filter_store(GstNordaFilter* filter) {
    return stateOf(filter).store;
}

std::string gst_norda_filter_calibration_dir(GstNordaFilter* filter) {
    std::string dir = stateOf(filter).calibrationDir;
    if (!dir.empty() && dir.back() != '/')
        dir += '/';
    return dir;
}

gboolean gst_norda_filter_is_built(GstNordaFilter* filter) {
    return stateOf(filter).chain != nullptr;
}

void gst_norda_filter_install_calibration_dir(GObjectClass* klass, guint propertyId) {
    g_object_class_install_property(
        klass, propertyId,
        g_param_spec_string(
            "calibration-dir", "Calibration directory",
            "Folder of the camera's calibration (radiometry.json, badpixel.pxm, "
            "lens<n>/distort.pxm); read when the stream starts",
            norda_gst_default_calibration_dir().c_str(),
            static_cast<GParamFlags>(G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS | GST_PARAM_MUTABLE_READY)));
}

void gst_norda_filter_set_calibration_dir(GstNordaFilter* filter, const GValue* value) {
    const gchar* dir = g_value_get_string(value);
    stateOf(filter).calibrationDir = dir ? dir : "";
}

void gst_norda_filter_get_calibration_dir(GstNordaFilter* filter, GValue* value) {
    g_value_set_string(value, stateOf(filter).calibrationDir.c_str());
}

void gst_norda_filter_refuse(GstNordaFilter* filter, const std::string& message) {
    State& s = stateOf(filter);
    const std::string text = std::string(GST_ELEMENT_NAME(filter)) + ": " + message;
    if (s.chain)
        gst_norda_filter_fail(filter, GST_LIBRARY_ERROR, GST_LIBRARY_ERROR_SETTINGS, text);
    else if (s.refused.empty())
        s.refused = text;
}

void gst_norda_filter_fail(GstNordaFilter* filter, GQuark domain, gint code, const std::string& message) {
    State& s = stateOf(filter);
    if (s.failed)
        return;
    s.failed = true;
    gst_element_message_full(GST_ELEMENT(filter), GST_MESSAGE_ERROR, domain, code, g_strdup(message.c_str()),
                             nullptr, __FILE__, GST_FUNCTION, __LINE__);
}

std::string norda_gst_default_calibration_dir() {
    return NORDA_GST_CALIBRATION_DIR;
}

GstCaps* norda_gst_video_caps(const char* format) {
    return gst_caps_new_simple("video/x-raw", "format", G_TYPE_STRING, format, "width", GST_TYPE_INT_RANGE, 1,
                               8192, "height", GST_TYPE_INT_RANGE, 1, 8192, "framerate",
                               GST_TYPE_FRACTION_RANGE, 0, 1, G_MAXINT, 1, nullptr);
}

void gst_norda_filter_class_describe(GstNordaFilterClass* klass, const GstNordaFilterDescription& d) {
    auto* element = GST_ELEMENT_CLASS(klass);
    gst_element_class_set_static_metadata(element, d.longName, d.classification, d.description, "nordalib");
    gst_element_class_add_pad_template(element, gst_pad_template_new("sink", GST_PAD_SINK, GST_PAD_ALWAYS,
                                                                     norda_gst_video_caps(d.inputFormat)));
    gst_element_class_add_pad_template(element, gst_pad_template_new("src", GST_PAD_SRC, GST_PAD_ALWAYS,
                                                                     norda_gst_video_caps(d.outputFormat)));
    klass->inputFormat = d.inputFormat;
    klass->outputFormat = d.outputFormat;
    klass->acceptedSlots = new std::vector<norda::exp::streaming::STREAMING_DATATYPE>(d.acceptedSlots);
    klass->acceptedDescription = d.acceptedDescription;
    klass->chainInput = d.chainInput;
    klass->chainOutput = d.chainOutput;
    klass->build = d.build;
    klass->finish = d.finish;
}
