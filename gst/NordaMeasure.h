#pragma once
// nordameasure: the measurement results of temperature frames (of nordaradiometry): hot spot,
// cold spot, centre spot, the user's points and areas (MinMaxExtractionElement,
// UserMeasurementElement). Every frame it posts them on the bus as an element message
// "norda-measurement" and attaches them to the buffer (NordaMeasurementMeta); the frame passes
// unchanged, carrying the display scaling on to nordapalette.

#include "gst/NordaFilter.h"

G_BEGIN_DECLS
#define GST_TYPE_NORDA_MEASURE (gst_norda_measure_get_type())
G_DECLARE_FINAL_TYPE(GstNordaMeasure, gst_norda_measure, GST, NORDA_MEASURE, GstNordaFilter)
G_END_DECLS
