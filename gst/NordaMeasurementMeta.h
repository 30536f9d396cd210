#pragma once
// NordaMeasurementMeta: the measurement results of a temperature frame on its buffer, for any
// element or application downstream: the same GstStructure "norda-measurement" that nordameasure
// posts on the bus (fields in docs/gstreamer.md). Find it with
// gst_buffer_get_meta(buffer, gst_meta_api_type_get("NordaMeasurementMetaAPI")).

#include <gst/gst.h>

struct NordaMeasurementMeta {
    GstMeta meta;
    GstStructure* results;
};

GType norda_measurement_meta_api_get_type();
// Attaches a copy of `results` to a writable buffer (replacing earlier results).
void norda_measurement_meta_set(GstBuffer* buffer, const GstStructure* results);
