#include "gst/NordaFrameMeta.h"

using namespace norda::exp;
using namespace norda::exp::streaming;

namespace {

gboolean init(GstMeta* meta, gpointer, GstBuffer*) {
    auto* m = reinterpret_cast<NordaFrameMeta*>(meta);
    m->slot = STREAMING_DATATYPE_RAW;
    m->metadata = nullptr;
    return TRUE;
}

void release(GstMeta* meta, GstBuffer*) {
    auto* m = reinterpret_cast<NordaFrameMeta*>(meta);
    delete m->metadata;
    m->metadata = nullptr;
}

// Copies go with the buffer (the values are shared, as between frames).
gboolean transform(GstBuffer* dest, GstMeta* meta, GstBuffer*, GQuark type, gpointer) {
    if (!GST_META_TRANSFORM_IS_COPY(type))
        return FALSE;
    auto* m = reinterpret_cast<NordaFrameMeta*>(meta);
    norda_frame_meta_set(dest, m->slot, m->metadata ? *m->metadata : DataStorage<std::string>());
    return TRUE;
}

const GstMetaInfo* info() {
    static const GstMetaInfo* info = gst_meta_register(NORDA_FRAME_META_API_TYPE, "NordaFrameMeta",
                                                       sizeof(NordaFrameMeta), init, release, transform);
    return info;
}

} // namespace

GType norda_frame_meta_api_get_type() {
    static GType type = [] {
        static const gchar* tags[] = {nullptr};
        return gst_meta_api_type_register("NordaFrameMetaAPI", tags);
    }();
    return type;
}

NordaFrameMeta* norda_frame_meta_get(GstBuffer* buffer) {
    return reinterpret_cast<NordaFrameMeta*>(gst_buffer_get_meta(buffer, NORDA_FRAME_META_API_TYPE));
}

void norda_frame_meta_set(GstBuffer* buffer, STREAMING_DATATYPE slot, DataStorage<std::string> metadata) {
    auto* m = norda_frame_meta_get(buffer);
    if (!m)
        m = reinterpret_cast<NordaFrameMeta*>(gst_buffer_add_meta(buffer, info(), nullptr));
    if (!m) // a buffer that is not writable
        return;
    m->slot = slot;
    if (m->metadata)
        *m->metadata = std::move(metadata);
    else
        m->metadata = new DataStorage<std::string>(std::move(metadata));
}
