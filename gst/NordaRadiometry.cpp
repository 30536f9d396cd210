#include "gst/NordaRadiometry.h"

#include "nordalib/core/datatypes/Quantity.h"
#include "nordalib/core/keys/Keys.h"
#include "nordalib/vision/radiometry/RadiometricCalibration.h"
#include "nordalib/vision/streaming/DistortionElement.h"
#include "nordalib/vision/streaming/RadiometryElement.h"
#include "nordalib/vision/streaming/StoreStampElement.h"

using namespace norda::exp;
using namespace norda::exp::streaming;
using Temp = quantity::Temperature<MarkedFloat>;
using Rel = quantity::Relation<MarkedFloat>;

struct _GstNordaRadiometry {
    GstNordaFilter parent;
    gboolean undistort;
};

G_DEFINE_TYPE(GstNordaRadiometry, gst_norda_radiometry, GST_TYPE_NORDA_FILTER)

namespace {

enum {
    PROP_0,
    PROP_CALIBRATION_DIR,
    PROP_EMISSIVITY,
    PROP_REFLECTED,
    PROP_AIR,
    PROP_HUMIDITY,
    PROP_GLASS,
    PROP_GLASS_TRANSMISSION,
    PROP_UNDISTORT
};

// The object parameters, the same for every frame.
const std::vector<std::string>& objectKeys() {
    // Never destroyed: a streaming thread still running at exit may read it.
    static const std::vector<std::string>& keys =
        *new std::vector<std::string>{Id::Environment::EmissivityValue, Id::Environment::ReflectedTemperature,
                                      Id::Environment::Temperature,     Id::Environment::Humidity,
                                      Id::ProtectiveGlass::Attached,    Id::ProtectiveGlass::Transmission};
    return keys;
}

std::string build(GstNordaFilter* filter, Pipeline& chain, DataProxy<std::string>& store) {
    const std::string calib = gst_norda_filter_calibration_dir(filter);
    const std::string file = calib + norda::vision::RadiometricCalibration::kFileName;
    if (!g_file_test(file.c_str(), G_FILE_TEST_IS_REGULAR))
        return std::string(GST_ELEMENT_NAME(filter)) + ": no radiometric calibration: " + file +
               " is missing";
    // Type B: interchangeable lenses, a distortion table per lens (lens<n>/distort.pxm).
    const auto camType = norda::vision::RadiometricCamTypeB;
    chain.add(std::make_unique<StoreStampElement>(store, STREAMING_DATATYPE_CORRECTED, objectKeys(),
                                                  "ObjectParameters"));
    chain.add(std::make_unique<RadiometryElement>(&store, calib, camType));
    if (GST_NORDA_RADIOMETRY(filter)->undistort)
        chain.add(std::make_unique<DistortionElement>(&store, calib, camType));
    return {};
}

void setProperty(GObject* object, guint id, const GValue* value, GParamSpec* pspec) {
    auto* self = GST_NORDA_RADIOMETRY(object);
    auto& store = gst_norda_filter_store(GST_NORDA_FILTER(self));
    switch (id) {
    case PROP_CALIBRATION_DIR:
        gst_norda_filter_set_calibration_dir(GST_NORDA_FILTER(self), value);
        break;
    case PROP_EMISSIVITY:
        store.setValue(Id::Environment::EmissivityValue, g_value_get_float(value), true);
        break;
    case PROP_REFLECTED:
        store.setValue(Id::Environment::ReflectedTemperature, Temp(MarkedFloat(g_value_get_float(value))),
                       true);
        break;
    case PROP_AIR:
        store.setValue(Id::Environment::Temperature, Temp(MarkedFloat(g_value_get_float(value))), true);
        break;
    case PROP_HUMIDITY:
        store.setValue(Id::Environment::Humidity, Rel(MarkedFloat(g_value_get_float(value) / 100.0f)), true);
        break;
    case PROP_GLASS:
        store.setValue(Id::ProtectiveGlass::Attached, static_cast<bool>(g_value_get_boolean(value)), true);
        break;
    case PROP_GLASS_TRANSMISSION:
        store.setValue(Id::ProtectiveGlass::Transmission, g_value_get_float(value), true);
        break;
    case PROP_UNDISTORT:
        self->undistort = g_value_get_boolean(value);
        break;
    default:
        G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, pspec);
    }
}

void getProperty(GObject* object, guint id, GValue* value, GParamSpec* pspec) {
    auto* self = GST_NORDA_RADIOMETRY(object);
    auto& store = gst_norda_filter_store(GST_NORDA_FILTER(self));
    switch (id) {
    case PROP_CALIBRATION_DIR:
        gst_norda_filter_get_calibration_dir(GST_NORDA_FILTER(self), value);
        break;
    case PROP_EMISSIVITY:
        g_value_set_float(value, store.getValue<float>(Id::Environment::EmissivityValue));
        break;
    case PROP_REFLECTED:
        g_value_set_float(value, store.getValue<Temp>(Id::Environment::ReflectedTemperature).celsius());
        break;
    case PROP_AIR:
        g_value_set_float(value, store.getValue<Temp>(Id::Environment::Temperature).celsius());
        break;
    case PROP_HUMIDITY:
        g_value_set_float(value,
                          store.getValue<Rel>(Id::Environment::Humidity).getValue().toFloat() * 100.0f);
        break;
    case PROP_GLASS:
        g_value_set_boolean(value, store.getValue<bool>(Id::ProtectiveGlass::Attached));
        break;
    case PROP_GLASS_TRANSMISSION:
        g_value_set_float(value, store.getValue<float>(Id::ProtectiveGlass::Transmission));
        break;
    case PROP_UNDISTORT:
        g_value_set_boolean(value, self->undistort);
        break;
    default:
        G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, pspec);
    }
}

GParamFlags live() {
    return static_cast<GParamFlags>(G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS | GST_PARAM_MUTABLE_PLAYING);
}

} // namespace

static void gst_norda_radiometry_class_init(GstNordaRadiometryClass* klass) {
    auto* object = G_OBJECT_CLASS(klass);
    object->set_property = setProperty;
    object->get_property = getProperty;
    gst_norda_filter_install_calibration_dir(object, PROP_CALIBRATION_DIR);
    g_object_class_install_property(object, PROP_EMISSIVITY,
                                    g_param_spec_float("emissivity", "Emissivity",
                                                       "Emissivity of the measured object (0.01 to 1)", 0.01f,
                                                       1.0f, 0.95f, live()));
    g_object_class_install_property(
        object, PROP_REFLECTED,
        g_param_spec_float("reflected-temperature", "Reflected temperature",
                           "Temperature in °C of what the object reflects (-100 to 1000)", -100.0f, 1000.0f,
                           20.0f, live()));
    g_object_class_install_property(object, PROP_AIR,
                                    g_param_spec_float("air-temperature", "Air temperature",
                                                       "Air temperature in °C (-45 to 60)", -45.0f, 60.0f,
                                                       20.0f, live()));
    g_object_class_install_property(object, PROP_HUMIDITY,
                                    g_param_spec_float("humidity", "Relative humidity",
                                                       "Relative humidity of the air in % (0 to 100)", 0.0f,
                                                       100.0f, 50.0f, live()));
    g_object_class_install_property(object, PROP_GLASS,
                                    g_param_spec_boolean("protective-glass", "Protective glass",
                                                         "A protective glass is in front of the lens", FALSE,
                                                         live()));
    g_object_class_install_property(object, PROP_GLASS_TRANSMISSION,
                                    g_param_spec_float("glass-transmission", "Glass transmission",
                                                       "Transmission of the protective glass (0.01 to 1)",
                                                       0.01f, 1.0f, 1.0f, live()));
    g_object_class_install_property(
        object, PROP_UNDISTORT,
        g_param_spec_boolean(
            "undistort", "Remove lens distortion",
            "Remove the lens distortion with the lens's table (lens<n>/distort.pxm)", TRUE,
            static_cast<GParamFlags>(G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS | GST_PARAM_MUTABLE_READY)));

    gst_norda_filter_class_describe(
        GST_NORDA_FILTER_CLASS(klass),
        {.longName = "Thermal radiometry",
         .classification = "Filter/Video",
         .description = "Offset-corrected detector frames to temperature frames (16-bit encoding), lens "
                        "distortion removed",
         .inputFormat = "GRAY16_LE",
         .outputFormat = "GRAY16_LE",
         .acceptedSlots = {STREAMING_DATATYPE_CORRECTED},
         .acceptedDescription = "offset-corrected frames (put nordacorrect before it)",
         .chainInput = STREAMING_DATATYPE_CORRECTED,
         .chainOutput = STREAMING_DATATYPE_RAD,
         .build = build});
}

static void gst_norda_radiometry_init(GstNordaRadiometry* self) {
    self->undistort = TRUE;
}
