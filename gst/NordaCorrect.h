#pragma once
// nordacorrect: sensor correction of raw detector frames (GRAY16_LE) into offset-corrected frames:
// offset with the shutter (OffsetElement), the pixels' gains (GainElement, from gain.pxm when the
// calibration directory has one), bad pixels (BadPixelElement) and the noise filters
// (TnrElement, SprElement, SnrElement), as the camera's chain runs them. A detector's frames
// through v4l2src come without the plugin's metadata: their shutter state is the "shutter"
// property, their conditions the element's defaults. Frames of nordasimsrc bring their own.

#include "gst/NordaFilter.h"

G_BEGIN_DECLS
#define GST_TYPE_NORDA_CORRECT (gst_norda_correct_get_type())
G_DECLARE_FINAL_TYPE(GstNordaCorrect, gst_norda_correct, GST, NORDA_CORRECT, GstNordaFilter)
G_END_DECLS

// The frame metadata the radiometry reads (detector and lens conditions, object parameters).
const std::vector<std::string>& norda_gst_condition_keys();
