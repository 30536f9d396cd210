#include "gst/NordaCorrect.h"

#include "nordalib/core/keys/Keys.h"
#include "nordalib/vision/streaming/BadPixelElement.h"
#include "nordalib/vision/streaming/GainElement.h"
#include "nordalib/vision/streaming/OffsetElement.h"
#include "nordalib/vision/streaming/SnrElement.h"
#include "nordalib/vision/streaming/SprElement.h"
#include "nordalib/vision/streaming/StoreStampElement.h"
#include "nordalib/vision/streaming/TnrElement.h"

using namespace norda::exp;
using namespace norda::exp::streaming;

struct _GstNordaCorrect {
    GstNordaFilter parent;
    gboolean shutterClosed;
    gboolean noiseFilters;
};

G_DEFINE_TYPE(GstNordaCorrect, gst_norda_correct, GST_TYPE_NORDA_FILTER)

namespace {

enum { PROP_0, PROP_CALIBRATION_DIR, PROP_SHUTTER_CLOSED, PROP_NOISE_FILTERS };

// Writes the shutter state frames from outside the plugin are stamped with.
void applyShutter(GstNordaCorrect* self) {
    auto& store = gst_norda_filter_store(GST_NORDA_FILTER(self));
    const bool closed = self->shutterClosed;
    store.setValue(Id::Shutter::State, closed ? Id::Shutter::StateCaptureOffsetFrame : Id::Shutter::StateIdle,
                   true);
    store.setValue(Id::Shutter::Closed, closed, true);
}

std::string build(GstNordaFilter* filter, Pipeline& chain, DataProxy<std::string>& store) {
    auto* self = GST_NORDA_CORRECT(filter);
    const std::string calib = gst_norda_filter_calibration_dir(filter);
    if (!g_file_test(calib.c_str(), G_FILE_TEST_IS_DIR))
        return std::string(GST_ELEMENT_NAME(filter)) + ": the calibration directory " + calib +
               " does not exist";
    // Frames without metadata (a detector outside the plugin) get the element's.
    std::vector<std::string> keys = norda_gst_condition_keys();
    keys.insert(keys.end(), {Id::Shutter::State, Id::Shutter::Closed});
    chain.add(std::make_unique<StoreStampElement>(store, STREAMING_DATATYPE_RAW, keys, "Conditions"), {},
              [](const FrameMap& frames) {
                  return !frames.at(STREAMING_DATATYPE_RAW)->getMetaData().contains(Id::Shutter::State);
              });
    chain.add(std::make_unique<OffsetElement>(&store, calib, nullptr));
    chain.add(std::make_unique<GainElement>(&store, calib));
    chain.add(std::make_unique<BadPixelElement>(&store, "BadPixelElement", STREAMING_DATATYPE_CORRECTED));
    if (self->noiseFilters) {
        chain.add(std::make_unique<TnrElement>(&store));
        chain.add(std::make_unique<SprElement>(&store));
        chain.add(std::make_unique<SnrElement>(&store));
        // The two filters take their settings when a key is written (see SprElement).
        for (const std::string& key :
             {Id::SprElement::Threshold, Id::SprElement::LineLimit, Id::SprElement::FrameLimit})
            store.set(key, store.get(key), true);
    }
    return {};
}

void setProperty(GObject* object, guint id, const GValue* value, GParamSpec* pspec) {
    auto* self = GST_NORDA_CORRECT(object);
    switch (id) {
    case PROP_CALIBRATION_DIR:
        gst_norda_filter_set_calibration_dir(GST_NORDA_FILTER(self), value);
        break;
    case PROP_SHUTTER_CLOSED:
        self->shutterClosed = g_value_get_boolean(value);
        applyShutter(self);
        break;
    case PROP_NOISE_FILTERS:
        self->noiseFilters = g_value_get_boolean(value);
        break;
    default:
        G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, pspec);
    }
}

void getProperty(GObject* object, guint id, GValue* value, GParamSpec* pspec) {
    auto* self = GST_NORDA_CORRECT(object);
    switch (id) {
    case PROP_CALIBRATION_DIR:
        gst_norda_filter_get_calibration_dir(GST_NORDA_FILTER(self), value);
        break;
    case PROP_SHUTTER_CLOSED:
        g_value_set_boolean(value, self->shutterClosed);
        break;
    case PROP_NOISE_FILTERS:
        g_value_set_boolean(value, self->noiseFilters);
        break;
    default:
        G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, pspec);
    }
}

} // namespace

const std::vector<std::string>& norda_gst_condition_keys() {
    // Never destroyed: a streaming thread still running at exit may read it.
    static const std::vector<std::string>& keys =
        *new std::vector<std::string>{Id::Environment::EmissivityValue,
                                      Id::Environment::ReflectedTemperature,
                                      Id::Temperatures::Current::TBoardSens50,
                                      Id::Temperatures::Current::TBoardSlope,
                                      Id::Temperatures::Current::TLens,
                                      Id::Temperatures::Shuttering::TBoardSens50,
                                      Id::Temperatures::Shuttering::TShutter,
                                      Id::ActiveMeasRange::Name,
                                      Id::ActiveLens::Attached,
                                      Id::ActiveLens::Index,
                                      Id::ActiveLens::Serial,
                                      Id::ProtectiveGlass::Attached,
                                      Id::ProtectiveGlass::Transmission,
                                      Id::ProtectiveGlass::Emissivity,
                                      Id::DeviceInfo::Uptime};
    return keys;
}

static void gst_norda_correct_class_init(GstNordaCorrectClass* klass) {
    auto* object = G_OBJECT_CLASS(klass);
    object->set_property = setProperty;
    object->get_property = getProperty;
    gst_norda_filter_install_calibration_dir(object, PROP_CALIBRATION_DIR);
    g_object_class_install_property(
        object, PROP_SHUTTER_CLOSED,
        g_param_spec_boolean("shutter-closed", "Shutter closed",
                             "Frames without the plugin's metadata (a detector through v4l2src) show the "
                             "closed shutter: their average becomes the offset. Set it while the "
                             "camera's shutter is closed, clear it when it opens",
                             FALSE,
                             static_cast<GParamFlags>(G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS |
                                                      GST_PARAM_MUTABLE_PLAYING)));
    g_object_class_install_property(
        object, PROP_NOISE_FILTERS,
        g_param_spec_boolean(
            "noise-filters", "Noise filters",
            "Temporal noise reduction, static pattern and spatial noise removal after "
            "the offset and bad-pixel correction",
            TRUE,
            static_cast<GParamFlags>(G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS | GST_PARAM_MUTABLE_READY)));

    gst_norda_filter_class_describe(
        GST_NORDA_FILTER_CLASS(klass),
        {.longName = "Thermal sensor correction",
         .classification = "Filter/Video",
         .description = "Offset with the shutter, bad pixels and noise filters on raw 16-bit detector frames",
         .inputFormat = "GRAY16_LE",
         .outputFormat = "GRAY16_LE",
         .acceptedSlots = {STREAMING_DATATYPE_RAW},
         .acceptedDescription = "raw detector frames",
         .chainInput = STREAMING_DATATYPE_RAW,
         .chainOutput = STREAMING_DATATYPE_CORRECTED,
         .build = build});
}

static void gst_norda_correct_init(GstNordaCorrect* self) {
    self->shutterClosed = FALSE;
    self->noiseFilters = TRUE;
}
