#pragma once
// nordapalette: temperature frames (of nordameasure) coloured into RGB display images with a
// palette (PaletteElement, the display scaling nordameasure worked out), with the camera's overlay
// drawn over them (ThermalOverlay: colour scale, hot and cold spot, points and areas with their
// values, emissivity): ready for any encoder or sink.

#include "gst/NordaFilter.h"

G_BEGIN_DECLS
#define GST_TYPE_NORDA_PALETTE (gst_norda_palette_get_type())
G_DECLARE_FINAL_TYPE(GstNordaPalette, gst_norda_palette, GST, NORDA_PALETTE, GstNordaFilter)
G_END_DECLS
