#pragma once
// nordaradiometry: offset-corrected frames (of nordacorrect) into temperature frames in the
// library's 16-bit encoding (RadiometricTools: GRAY16_LE), with the object parameters given as
// properties (RadiometryElement), then the lens distortion removed (DistortionElement), which the
// library applies to temperature frames.

#include "gst/NordaFilter.h"

G_BEGIN_DECLS
#define GST_TYPE_NORDA_RADIOMETRY (gst_norda_radiometry_get_type())
G_DECLARE_FINAL_TYPE(GstNordaRadiometry, gst_norda_radiometry, GST, NORDA_RADIOMETRY, GstNordaFilter)
G_END_DECLS
