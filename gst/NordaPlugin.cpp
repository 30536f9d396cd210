// libgstnorda: the library's thermal-camera chain as GStreamer elements (docs/gstreamer.md).
#include "gst/NordaCorrect.h"
#include "gst/NordaMeasure.h"
#include "gst/NordaPalette.h"
#include "gst/NordaRadiometry.h"
#ifdef NORDA_GST_SIMULATOR
#include "gst/NordaSimSrc.h"
#endif

namespace {

gboolean pluginInit(GstPlugin* plugin) {
    gboolean ok = gst_element_register(plugin, "nordacorrect", GST_RANK_NONE, GST_TYPE_NORDA_CORRECT) &&
                  gst_element_register(plugin, "nordaradiometry", GST_RANK_NONE, GST_TYPE_NORDA_RADIOMETRY) &&
                  gst_element_register(plugin, "nordameasure", GST_RANK_NONE, GST_TYPE_NORDA_MEASURE) &&
                  gst_element_register(plugin, "nordapalette", GST_RANK_NONE, GST_TYPE_NORDA_PALETTE);
#ifdef NORDA_GST_SIMULATOR
    ok = ok && gst_element_register(plugin, "nordasimsrc", GST_RANK_NONE, GST_TYPE_NORDA_SIM_SRC);
#endif
    return ok;
}

} // namespace

// The package name GST_PLUGIN_DEFINE records.
#define PACKAGE "nordalib"
GST_PLUGIN_DEFINE(GST_VERSION_MAJOR, GST_VERSION_MINOR, norda,
                  "Thermal camera chain of nordalib: sensor correction, "
                  "radiometry, measurement, palette and a simulated camera",
                  pluginInit, NORDA_GST_VERSION, "Proprietary", "nordalib", "nordalib")
