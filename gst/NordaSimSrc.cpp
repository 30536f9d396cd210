#include "gst/NordaSimSrc.h"

#include "gst/NordaFilter.h"
#include "gst/NordaFrameMeta.h"

#include "apps/nordacam/sim/SceneSimulator.h"

#include "nordalib/core/keys/DefaultParameters.h"
#include "nordalib/core/keys/Keys.h"

#include <memory>

using namespace norda::exp;
using namespace norda::exp::streaming;

namespace {

constexpr int kFps = 30;

struct Simulation {
    DataProxy<std::string> store;
    std::unique_ptr<nordacam::sim::SceneSimulator> sim; // after the store: destroyed first
};

} // namespace

struct _GstNordaSimSrc {
    GstPushSrc parent;
    gint width, height;
    guint seed;
    gfloat hotC;
    gchar* calibrationDir;
    gboolean postTruth;
    Simulation* simulation;
    guint64 frames;
};

G_DEFINE_TYPE(GstNordaSimSrc, gst_norda_sim_src, GST_TYPE_PUSH_SRC)

namespace {

enum {
    PROP_0,
    PROP_WIDTH,
    PROP_HEIGHT,
    PROP_SEED,
    PROP_HOT,
    PROP_CALIBRATION_DIR,
    PROP_POST_TRUTH,
    PROP_IS_LIVE
};

GstCaps* fixedCaps(GstNordaSimSrc* self) {
    return gst_caps_new_simple("video/x-raw", "format", G_TYPE_STRING, "GRAY16_LE", "width", G_TYPE_INT,
                               self->width, "height", G_TYPE_INT, self->height, "framerate",
                               GST_TYPE_FRACTION, kFps, 1, nullptr);
}

GstCaps* getCaps(GstBaseSrc* src, GstCaps* filter) {
    GstCaps* caps = fixedCaps(GST_NORDA_SIM_SRC(src));
    if (filter) {
        GstCaps* both = gst_caps_intersect_full(filter, caps, GST_CAPS_INTERSECT_FIRST);
        gst_caps_unref(caps);
        caps = both;
    }
    return caps;
}

gboolean start(GstBaseSrc* src) {
    auto* self = GST_NORDA_SIM_SRC(src);
    try {
        auto simulation = std::make_unique<Simulation>();
        setDefaultParameters(simulation->store);
        simulation->store.setValue<unsigned short>(Id::IrImage::Cols,
                                                   static_cast<unsigned short>(self->width), false);
        simulation->store.setValue<unsigned short>(Id::IrImage::Rows,
                                                   static_cast<unsigned short>(self->height), false);
        simulation->store.flush();
        nordacam::sim::SimulatorConfig config;
        config.width = self->width;
        config.height = self->height;
        config.seed = self->seed;
        config.hotC = self->hotC;
        config.fps = kFps;
        // The lens keeps its field of view at every size.
        const double scale = self->width / 640.0;
        config.lens.fx *= scale;
        config.lens.fy *= scale;
        config.lens.cx = (self->width - 1) / 2.0;
        config.lens.cy = (self->height - 1) / 2.0;
        simulation->sim = std::make_unique<nordacam::sim::SceneSimulator>(simulation->store, config);
        self->simulation = simulation.release();
    } catch (const std::exception& e) {
        GST_ELEMENT_ERROR(src, LIBRARY, INIT,
                          ("%s: the simulator does not start: %s", GST_ELEMENT_NAME(src), e.what()),
                          (nullptr));
        return FALSE;
    }
    self->frames = 0;
    return TRUE;
}

gboolean stop(GstBaseSrc* src) {
    auto* self = GST_NORDA_SIM_SRC(src);
    delete self->simulation;
    self->simulation = nullptr;
    return TRUE;
}

void postTruth(GstNordaSimSrc* self) {
    const auto t = self->simulation->sim->truth();
    GstStructure* s = gst_structure_new(
        "norda-scene-truth", "frame", G_TYPE_UINT64, static_cast<guint64>(t.frame), "background-c",
        G_TYPE_FLOAT, t.backgroundC, "hot-c", G_TYPE_FLOAT, t.hotC, "hot-x", G_TYPE_FLOAT, t.hotCentre.x,
        "hot-y", G_TYPE_FLOAT, t.hotCentre.y, "hot-radius", G_TYPE_FLOAT, t.hotRadius, "cold-c", G_TYPE_FLOAT,
        t.coldC, "cold-x", G_TYPE_FLOAT, t.coldCentre.x, "cold-y", G_TYPE_FLOAT, t.coldCentre.y,
        "cold-radius", G_TYPE_FLOAT, t.coldRadius, "shutter", G_TYPE_STRING, t.shutterState.c_str(), nullptr);
    gst_element_post_message(GST_ELEMENT(self), gst_message_new_element(GST_OBJECT(self), s));
}

GstFlowReturn create(GstPushSrc* src, GstBuffer** out) {
    auto* self = GST_NORDA_SIM_SRC(src);
    std::unique_ptr<Frame> frame;
    try {
        frame = self->simulation->sim->nextFrame();
    } catch (const std::exception& e) {
        GST_ELEMENT_ERROR(src, LIBRARY, FAILED,
                          ("%s: the simulator failed: %s", GST_ELEMENT_NAME(src), e.what()), (nullptr));
        return GST_FLOW_ERROR;
    }
    const cv::Mat& data = frame->getFrameData();
    const gsize size = data.total() * data.elemSize();
    GstBuffer* buffer = gst_buffer_new_allocate(nullptr, size, nullptr);
    cv::Mat target(data.size(), data.type());
    gst_buffer_fill(buffer, 0, data.isContinuous() ? data.data : data.clone().data, size);
    GST_BUFFER_PTS(buffer) = gst_util_uint64_scale(self->frames, GST_SECOND, kFps);
    GST_BUFFER_DURATION(buffer) =
        gst_util_uint64_scale(self->frames + 1, GST_SECOND, kFps) - GST_BUFFER_PTS(buffer);
    GST_BUFFER_OFFSET(buffer) = self->frames;
    ++self->frames;
    norda_frame_meta_set(buffer, STREAMING_DATATYPE_RAW, frame->getMetaData());
    if (self->postTruth)
        postTruth(self);
    *out = buffer;
    return GST_FLOW_OK;
}

void setProperty(GObject* object, guint id, const GValue* value, GParamSpec* pspec) {
    auto* self = GST_NORDA_SIM_SRC(object);
    switch (id) {
    case PROP_WIDTH:
        self->width = g_value_get_int(value);
        break;
    case PROP_HEIGHT:
        self->height = g_value_get_int(value);
        break;
    case PROP_SEED:
        self->seed = g_value_get_uint(value);
        break;
    case PROP_HOT:
        self->hotC = g_value_get_float(value);
        break;
    case PROP_CALIBRATION_DIR:
        g_free(self->calibrationDir);
        self->calibrationDir = g_value_dup_string(value);
        break;
    case PROP_POST_TRUTH:
        self->postTruth = g_value_get_boolean(value);
        break;
    case PROP_IS_LIVE:
        gst_base_src_set_live(GST_BASE_SRC(self), g_value_get_boolean(value));
        break;
    default:
        G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, pspec);
    }
}

void getProperty(GObject* object, guint id, GValue* value, GParamSpec* pspec) {
    auto* self = GST_NORDA_SIM_SRC(object);
    switch (id) {
    case PROP_WIDTH:
        g_value_set_int(value, self->width);
        break;
    case PROP_HEIGHT:
        g_value_set_int(value, self->height);
        break;
    case PROP_SEED:
        g_value_set_uint(value, self->seed);
        break;
    case PROP_HOT:
        g_value_set_float(value, self->hotC);
        break;
    case PROP_CALIBRATION_DIR:
        g_value_set_string(value, self->calibrationDir);
        break;
    case PROP_POST_TRUTH:
        g_value_set_boolean(value, self->postTruth);
        break;
    case PROP_IS_LIVE:
        g_value_set_boolean(value, gst_base_src_is_live(GST_BASE_SRC(self)));
        break;
    default:
        G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, pspec);
    }
}

void finalize(GObject* object) {
    auto* self = GST_NORDA_SIM_SRC(object);
    delete self->simulation;
    g_free(self->calibrationDir);
    G_OBJECT_CLASS(gst_norda_sim_src_parent_class)->finalize(object);
}

} // namespace

static void gst_norda_sim_src_class_init(GstNordaSimSrcClass* klass) {
    auto* object = G_OBJECT_CLASS(klass);
    object->set_property = setProperty;
    object->get_property = getProperty;
    object->finalize = finalize;
    const auto ready =
        static_cast<GParamFlags>(G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS | GST_PARAM_MUTABLE_READY);
    nordacam::sim::SimulatorConfig defaults;
    g_object_class_install_property(
        object, PROP_WIDTH,
        g_param_spec_int("width", "Width", "Detector width in pixels", 64, 4096, defaults.width, ready));
    g_object_class_install_property(
        object, PROP_HEIGHT,
        g_param_spec_int("height", "Height", "Detector height in pixels", 48, 4096, defaults.height, ready));
    g_object_class_install_property(object, PROP_SEED,
                                    g_param_spec_uint("seed", "Seed",
                                                      "Seed of the detector's patterns, bad pixels and noise",
                                                      0, G_MAXUINT, defaults.seed, ready));
    g_object_class_install_property(
        object, PROP_HOT,
        g_param_spec_float("hot-temperature", "Hot object temperature",
                           "Temperature in °C of the scene's hot object (-20 to 600)", -20.0f, 600.0f,
                           defaults.hotC, ready));
    g_object_class_install_property(
        object, PROP_CALIBRATION_DIR,
        g_param_spec_string(
            "calibration-dir", "Calibration directory",
            "Not used: the detector is the physical camera simulator's and needs no calibration "
            "(accepted so that older pipelines still start)",
            norda_gst_default_calibration_dir().c_str(), ready));
    g_object_class_install_property(
        object, PROP_POST_TRUTH,
        g_param_spec_boolean("post-truth", "Post the scene's truth",
                             "Post the scene's true temperatures and positions as element messages "
                             "\"norda-scene-truth\" on the bus, one per frame",
                             FALSE, static_cast<GParamFlags>(ready | GST_PARAM_MUTABLE_PLAYING)));
    g_object_class_install_property(object, PROP_IS_LIVE,
                                    g_param_spec_boolean("is-live", "Live",
                                                         "Deliver frames in real time, as a camera does",
                                                         FALSE, ready));

    auto* element = GST_ELEMENT_CLASS(klass);
    gst_element_class_set_static_metadata(
        element, "Simulated thermal camera", "Source/Video",
        "Raw 16-bit infrared detector frames of a simulated scene at 30 fps", "nordalib");
    gst_element_class_add_pad_template(
        element, gst_pad_template_new("src", GST_PAD_SRC, GST_PAD_ALWAYS,
                                      gst_caps_from_string("video/x-raw, format=GRAY16_LE, width=[64, 4096], "
                                                           "height=[48, 4096], framerate=30/1")));
    auto* base = GST_BASE_SRC_CLASS(klass);
    base->get_caps = getCaps;
    base->start = start;
    base->stop = stop;
    GST_PUSH_SRC_CLASS(klass)->create = create;
}

static void gst_norda_sim_src_init(GstNordaSimSrc* self) {
    nordacam::sim::SimulatorConfig defaults;
    self->width = defaults.width;
    self->height = defaults.height;
    self->seed = defaults.seed;
    self->hotC = defaults.hotC;
    self->calibrationDir = g_strdup(norda_gst_default_calibration_dir().c_str());
    self->postTruth = FALSE;
    self->simulation = nullptr;
    self->frames = 0;
    gst_base_src_set_format(GST_BASE_SRC(self), GST_FORMAT_TIME);
}
