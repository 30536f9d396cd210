#include "gst/NordaPalette.h"

#include "nordalib/core/keys/Keys.h"
#include "nordalib/vision/imgproc/Palettes.h"
#include "nordalib/vision/overlay/OverlayFromValues.h"
#include "nordalib/vision/streaming/PaletteElement.h"
#include "nordalib/vision/streaming/StoreStampElement.h"

#include <gst/video/video.h>

using namespace norda::exp;
using namespace norda::exp::streaming;
using norda::vision::Palettes;

struct _GstNordaPalette {
    GstNordaFilter parent;
    gint palette; // index into Palettes::names()
    gboolean overlay;
};

G_DEFINE_TYPE(GstNordaPalette, gst_norda_palette, GST_TYPE_NORDA_FILTER)

namespace {

enum { PROP_0, PROP_PALETTE, PROP_OVERLAY };

// The library's palettes as an enumeration, so that gst-inspect-1.0 lists them.
GType paletteType() {
    static GType type = [] {
        const auto& names = Palettes::names();
        auto* values = new GEnumValue[names.size() + 1]();
        for (size_t i = 0; i < names.size(); ++i)
            values[i] = {static_cast<gint>(i), names[i].c_str(), names[i].c_str()};
        return g_enum_register_static("GstNordaPaletteName", values);
    }();
    return type;
}

void applyPalette(GstNordaPalette* self) {
    auto& store = gst_norda_filter_store(GST_NORDA_FILTER(self));
    const auto& name = Palettes::names().at(static_cast<size_t>(self->palette));
    store.setValue(Id::Palette::ActivePalette, name, true);
    store.setValue(Id::Palette::Colors, Palettes::colors(name), true);
}

std::string build(GstNordaFilter*, Pipeline& chain, DataProxy<std::string>& store) {
    chain.add(std::make_unique<StoreStampElement>(
        store, STREAMING_DATATYPE_RAD_CONST,
        std::vector<std::string>{Id::Palette::ActivePalette, Id::Palette::Colors}, "PaletteSettings"));
    chain.add(std::make_unique<PaletteElement>(false));
    return {};
}

// The overlay (B, G, R, A) blended over the RGB image in the buffer.
void finish(GstNordaFilter* filter, const Frame& frame, GstBuffer* buffer) {
    if (!GST_NORDA_PALETTE(filter)->overlay)
        return;
    const cv::Mat& rgb = frame.getFrameData();
    const auto content = norda::vision::overlayContent(norda::vision::metadataLookup(frame.getMetaData()),
                                                       rgb.size(), norda::vision::overlayDateTime());
    GstMapInfo map;
    if (!gst_buffer_map(buffer, &map, GST_MAP_READWRITE))
        return;
    cv::Mat picture(rgb.size(), CV_8UC3, map.data, GST_ROUND_UP_4(static_cast<size_t>(rgb.cols) * 3));
    try {
        norda::vision::ThermalOverlay::drawOntoRgb(content, picture);
    } catch (...) {
        gst_buffer_unmap(buffer, &map);
        throw;
    }
    gst_buffer_unmap(buffer, &map);
}

void setProperty(GObject* object, guint id, const GValue* value, GParamSpec* pspec) {
    auto* self = GST_NORDA_PALETTE(object);
    switch (id) {
    case PROP_PALETTE:
        self->palette = g_value_get_enum(value);
        applyPalette(self);
        break;
    case PROP_OVERLAY:
        self->overlay = g_value_get_boolean(value);
        break;
    default:
        G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, pspec);
    }
}

void getProperty(GObject* object, guint id, GValue* value, GParamSpec* pspec) {
    auto* self = GST_NORDA_PALETTE(object);
    switch (id) {
    case PROP_PALETTE:
        g_value_set_enum(value, self->palette);
        break;
    case PROP_OVERLAY:
        g_value_set_boolean(value, self->overlay);
        break;
    default:
        G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, pspec);
    }
}

} // namespace

static void gst_norda_palette_class_init(GstNordaPaletteClass* klass) {
    auto* object = G_OBJECT_CLASS(klass);
    object->set_property = setProperty;
    object->get_property = getProperty;
    const auto live =
        static_cast<GParamFlags>(G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS | GST_PARAM_MUTABLE_PLAYING);
    g_object_class_install_property(
        object, PROP_PALETTE,
        g_param_spec_enum("palette", "Palette", "Colour table of the display image", paletteType(), 0, live));
    g_object_class_install_property(
        object, PROP_OVERLAY,
        g_param_spec_boolean("overlay", "Overlay",
                             "Draw the colour scale, the spots and areas with their values and the "
                             "object parameters over the image",
                             TRUE, live));

    gst_norda_filter_class_describe(
        GST_NORDA_FILTER_CLASS(klass),
        {.longName = "Thermal palette",
         .classification = "Filter/Converter/Video",
         .description = "Temperature frames to RGB display images with a palette and the "
                        "measurement overlay",
         .inputFormat = "GRAY16_LE",
         .outputFormat = "RGB",
         .acceptedSlots = {STREAMING_DATATYPE_RAD_CONST},
         .acceptedDescription = "measured temperature frames (put nordameasure before it)",
         .chainInput = STREAMING_DATATYPE_RAD_CONST,
         .chainOutput = STREAMING_DATATYPE_RGB,
         .build = build,
         .finish = finish});
}

static void gst_norda_palette_init(GstNordaPalette* self) {
    self->palette = 0;
    self->overlay = TRUE;
    applyPalette(self);
}
