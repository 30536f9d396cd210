#include "gst/NordaMeasurementMeta.h"

namespace {

gboolean init(GstMeta* meta, gpointer, GstBuffer*) {
    reinterpret_cast<NordaMeasurementMeta*>(meta)->results = nullptr;
    return TRUE;
}

void release(GstMeta* meta, GstBuffer*) {
    auto* m = reinterpret_cast<NordaMeasurementMeta*>(meta);
    if (m->results)
        gst_structure_free(m->results);
    m->results = nullptr;
}

gboolean transform(GstBuffer* dest, GstMeta* meta, GstBuffer*, GQuark type, gpointer) {
    if (!GST_META_TRANSFORM_IS_COPY(type))
        return FALSE;
    auto* m = reinterpret_cast<NordaMeasurementMeta*>(meta);
    if (m->results)
        norda_measurement_meta_set(dest, m->results);
    return TRUE;
}

const GstMetaInfo* info() {
    static const GstMetaInfo* info =
        gst_meta_register(norda_measurement_meta_api_get_type(), "NordaMeasurementMeta",
                          sizeof(NordaMeasurementMeta), init, release, transform);
    return info;
}

} // namespace

GType norda_measurement_meta_api_get_type() {
    static GType type = [] {
        static const gchar* tags[] = {nullptr};
        return gst_meta_api_type_register("NordaMeasurementMetaAPI", tags);
    }();
    return type;
}

void norda_measurement_meta_set(GstBuffer* buffer, const GstStructure* results) {
    auto* m = reinterpret_cast<NordaMeasurementMeta*>(
        gst_buffer_get_meta(buffer, norda_measurement_meta_api_get_type()));
    if (!m)
        m = reinterpret_cast<NordaMeasurementMeta*>(gst_buffer_add_meta(buffer, info(), nullptr));
    if (!m) // a buffer that is not writable
        return;
    if (m->results)
        gst_structure_free(m->results);
    m->results = gst_structure_copy(results);
}
