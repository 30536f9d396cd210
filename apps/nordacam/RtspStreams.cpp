#include "apps/nordacam/RtspStreams.h"

#include "apps/nordacam/Camera.h"

#include "nordalib/core/exception/Exception.h"

namespace nordacam {

std::unique_ptr<RtspStreams> startRtsp(Camera& camera, const std::string& address, int port,
                                       std::ostream& out) {
    if (port == -1)
        return nullptr;
    auto streams = std::make_unique<RtspStreams>(camera, address, port);
    out << "nordacam: RTSP (H.264):";
    for (const auto& path : streams->paths())
        out << " rtsp://" << address << ":" << streams->port() << path;
    out << std::endl;
    return streams;
}

} // namespace nordacam

#ifdef NORDACAM_RTSP

#include "apps/nordacam/RtspConnectionGuard.h"

#include "nordalib/vision/overlay/OverlayFromValues.h"

#include <gst/app/gstappsrc.h>
#include <gst/gst.h>
#include <gst/rtsp-server/rtsp-server.h>

#include <cmath>
#include <cstring>
#include <map>
#include <mutex>
#include <thread>

namespace nordacam {

using namespace norda::exp::streaming;
using norda::exp::Frame;

namespace {

// Frames waiting in front of the encoder; more and the oldest is dropped.
constexpr guint64 kQueuedFrames = 3;

// Zero latency: no look-ahead, no B frames, a key frame every second for clients that join.
constexpr const char* kEncoder =
    "videoconvert ! video/x-raw,format=I420 ! x264enc tune=zerolatency speed-preset=ultrafast "
    "bframes=0 key-int-max=30 threads=1 ! video/x-h264,profile=constrained-baseline ! "
    "rtph264pay name=pay0 pt=96 config-interval=-1";

GQuark overlayQuark() {
    static const GQuark quark = g_quark_from_static_string("nordacam-rtsp-overlay");
    return quark;
}

// Drawn on the media's streaming thread, so that the chain's thread only copies the picture.
GstPadProbeReturn drawOverlay(GstPad*, GstPadProbeInfo* info, gpointer) {
    GstBuffer* buffer = GST_PAD_PROBE_INFO_BUFFER(info);
    auto* content = static_cast<norda::vision::OverlayContent*>(
        gst_mini_object_steal_qdata(GST_MINI_OBJECT(buffer), overlayQuark()));
    if (!content)
        return GST_PAD_PROBE_OK;
    const cv::Size size = content->imageSize;
    try {
        buffer = gst_buffer_make_writable(buffer);
        GST_PAD_PROBE_INFO_DATA(info) = buffer;
        GstMapInfo map;
        if (gst_buffer_map(buffer, &map, GST_MAP_READWRITE)) {
            cv::Mat picture(size, CV_8UC3, map.data, GST_ROUND_UP_4(static_cast<size_t>(size.width) * 3));
            try {
                norda::vision::ThermalOverlay::drawOntoRgb(*content, picture);
            } catch (const std::exception&) {
                // unmapped all the same
            }
            gst_buffer_unmap(buffer, &map);
        }
    } catch (const std::exception&) {
        // A picture without its overlay rather than none.
    }
    delete content;
    return GST_PAD_PROBE_OK;
}

} // namespace

struct RtspStreams::Impl {
    struct Stream {
        std::string path;
        STREAMING_DATATYPE slot;
        bool overlay;
        mutable std::mutex mutex;
        // The path's media while clients watch: one, or more when a client sets up a session
        // without describing the stream first (the server keys shared media by the URL asked for).
        struct Source {
            GstAppSrc* src;
            cv::Size size;
            int type = -1;
        };
        std::vector<Source> sources;
        Stats stats;

        ~Stream() {
            for (auto& source : sources)
                gst_object_unref(source.src);
        }
    };

    Camera& camera;
    int fps;
    GMainContext* context = nullptr;
    GMainLoop* loop = nullptr;
    GstRTSPServer* server = nullptr;
    GSource* serverSource = nullptr;
    std::unique_ptr<RtspConnectionGuard> guard;
    std::thread thread;
    // Shared with the signal handlers of the path's factory and media: the clients are served on
    // the server's pool threads, which may still be taking their media down after this is gone.
    std::map<std::string, std::shared_ptr<Stream>> streams;
    int port = 0;

    Impl(Camera& cam) : camera(cam), fps(static_cast<int>(std::lround(cam.options().sim.fps))) {}

    void mount(const std::string& path, STREAMING_DATATYPE slot, bool overlay);
    void push(Stream& stream, const Frame& frame);
    void onCycle(const FrameMap& frames);
    static void configure(GstRTSPMediaFactory*, GstRTSPMedia* media, gpointer data);
    static void unprepared(GstRTSPMedia*, gpointer data);
    static void releaseStream(gpointer data, GClosure*) {
        delete static_cast<std::shared_ptr<Stream>*>(data);
    }
};

RtspStreams::RtspStreams(Camera& camera, const std::string& address, int port)
    : m(std::make_unique<Impl>(camera)) {
    if (port < 0 || port > 65535)
        NORDA_THROW("the RTSP port " + std::to_string(port) + " is not a TCP port (0 to 65535)",
                    "nordacam::RtspStreams");
    if (!gst_is_initialized())
        gst_init(nullptr, nullptr);
    m->context = g_main_context_new();
    m->loop = g_main_loop_new(m->context, FALSE);
    m->server = gst_rtsp_server_new();
    gst_rtsp_server_set_address(m->server, address.c_str());
    gst_rtsp_server_set_service(m->server, std::to_string(port).c_str());
    m->guard = std::make_unique<RtspConnectionGuard>(m->server, m->context);

    const bool visual = camera.visualCamera() != nullptr;
    m->mount("/thermal", visual ? kInfraredSlot : STREAMING_DATATYPE_RGB, true);
    if (visual) {
        m->mount("/visual", STREAMING_DATATYPE_YUV422, false);
        m->mount("/fusion", STREAMING_DATATYPE_RGB, false);
    }

    GError* error = nullptr;
    m->serverSource = gst_rtsp_server_create_source(m->server, nullptr, &error);
    if (!m->serverSource) {
        const std::string what = error ? error->message : "unknown error";
        g_clear_error(&error);
        NORDA_THROW("cannot serve RTSP on " + address + ":" + std::to_string(port) + ": " + what,
                    "nordacam::RtspStreams");
    }
    g_source_attach(m->serverSource, m->context);
    m->port = gst_rtsp_server_get_bound_port(m->server);
    m->thread = std::thread([loop = m->loop] { g_main_loop_run(loop); });
    camera.setFrameTap([impl = m.get()](const FrameMap& frames) { impl->onCycle(frames); });
}

RtspStreams::~RtspStreams() {
    m->camera.setFrameTap(nullptr);
    if (m->thread.joinable()) {
        // Clients are closed on the server's own thread, then the loop ends.
        g_main_context_invoke(
            m->context,
            +[](gpointer data) -> gboolean {
                auto* impl = static_cast<Impl*>(data);
                gst_rtsp_server_client_filter(
                    impl->server,
                    +[](GstRTSPServer*, GstRTSPClient*, gpointer) { return GST_RTSP_FILTER_REMOVE; },
                    nullptr);
                g_main_loop_quit(impl->loop);
                return FALSE;
            },
            m.get());
        m->thread.join();
    }
    m->guard.reset();
    if (m->serverSource) {
        g_source_destroy(m->serverSource);
        g_source_unref(m->serverSource);
    }
    g_object_unref(m->server);
    g_main_loop_unref(m->loop);
    g_main_context_unref(m->context);
}

int RtspStreams::port() const {
    return m->port;
}

std::vector<std::string> RtspStreams::paths() const {
    std::vector<std::string> out;
    for (const auto& [path, stream] : m->streams)
        out.push_back(path);
    return out;
}

RtspStreams::Stats RtspStreams::stats(const std::string& path) const {
    const auto it = m->streams.find(path);
    if (it == m->streams.end())
        NORDA_THROW("no RTSP stream " + path, "nordacam::RtspStreams");
    std::lock_guard<std::mutex> lock(it->second->mutex);
    Stats out = it->second->stats;
    out.playing = !it->second->sources.empty();
    return out;
}

void RtspStreams::Impl::mount(const std::string& path, STREAMING_DATATYPE slot, bool overlay) {
    auto stream = std::make_shared<Stream>();
    stream->path = path;
    stream->slot = slot;
    stream->overlay = overlay;
    GstRTSPMediaFactory* factory = gst_rtsp_media_factory_new();
    const std::string launch = "( appsrc name=src is-live=true format=time do-timestamp=true max-buffers=" +
                               std::to_string(kQueuedFrames) + " leaky-type=downstream ! " + kEncoder + " )";
    gst_rtsp_media_factory_set_launch(factory, launch.c_str());
    gst_rtsp_media_factory_set_shared(factory, TRUE);
    g_signal_connect_data(factory, "media-configure", G_CALLBACK(configure),
                          new std::shared_ptr<Stream>(stream), releaseStream, GConnectFlags(0));
    GstRTSPMountPoints* mounts = gst_rtsp_server_get_mount_points(server);
    gst_rtsp_mount_points_add_factory(mounts, path.c_str(), factory);
    g_object_unref(mounts);
    streams[path] = stream;
}

// A client asked for a stream that does not run: its media is built; frames flow into it from now.
void RtspStreams::Impl::configure(GstRTSPMediaFactory*, GstRTSPMedia* media, gpointer data) {
    const auto& stream = *static_cast<std::shared_ptr<Stream>*>(data);
    GstElement* bin = gst_rtsp_media_get_element(media);
    GstElement* src = gst_bin_get_by_name_recurse_up(GST_BIN(bin), "src");
    gst_object_unref(bin);
    if (!src)
        return;
    if (stream->overlay) {
        GstPad* pad = gst_element_get_static_pad(src, "src");
        gst_pad_add_probe(pad, GST_PAD_PROBE_TYPE_BUFFER, drawOverlay, nullptr, nullptr);
        gst_object_unref(pad);
    }
    g_object_set_data(G_OBJECT(media), "nordacam-src", src);
    g_signal_connect_data(media, "unprepared", G_CALLBACK(unprepared), new std::shared_ptr<Stream>(stream),
                          releaseStream, GConnectFlags(0));
    std::lock_guard<std::mutex> lock(stream->mutex);
    stream->sources.push_back({GST_APP_SRC(src), {}});
}

void RtspStreams::Impl::unprepared(GstRTSPMedia* media, gpointer data) {
    const auto& stream = *static_cast<std::shared_ptr<Stream>*>(data);
    auto* src = static_cast<GstAppSrc*>(g_object_get_data(G_OBJECT(media), "nordacam-src"));
    std::lock_guard<std::mutex> lock(stream->mutex);
    for (auto it = stream->sources.begin(); it != stream->sources.end(); ++it)
        if (it->src == src) {
            gst_object_unref(it->src);
            stream->sources.erase(it);
            break;
        }
}

void RtspStreams::Impl::onCycle(const FrameMap& frames) {
    for (auto& [path, stream] : streams) {
        const auto it = frames.find(stream->slot);
        if (it != frames.end() && it->second && !it->second->getFrameData().empty())
            push(*stream, *it->second);
    }
}

void RtspStreams::Impl::push(Stream& stream, const Frame& frame) {
    const cv::Mat& image = frame.getFrameData();
    if (image.type() != CV_8UC3 && image.type() != CV_8UC2)
        return;
    std::lock_guard<std::mutex> lock(stream.mutex);
    if (stream.sources.empty())
        return;
    for (auto& source : stream.sources)
        if (image.size() != source.size || image.type() != source.type) {
            GstCaps* caps = gst_caps_new_simple("video/x-raw", "format", G_TYPE_STRING,
                                                image.type() == CV_8UC3 ? "RGB" : "UYVY", "width", G_TYPE_INT,
                                                image.cols, "height", G_TYPE_INT, image.rows, "framerate",
                                                GST_TYPE_FRACTION, fps, 1, nullptr);
            gst_app_src_set_caps(source.src, caps);
            gst_caps_unref(caps);
            source.size = image.size();
            source.type = image.type();
        }
    ++stream.stats.offered;
    // A buffer of its own for each media: the overlay is drawn into it on the media's thread.
    const size_t row = image.cols * image.elemSize();
    const size_t stride = GST_ROUND_UP_4(row); // GStreamer's rows start on 4-byte boundaries
    for (auto& source : stream.sources) {
        GstBuffer* buffer = gst_buffer_new_allocate(nullptr, stride * image.rows, nullptr);
        GstMapInfo map;
        gst_buffer_map(buffer, &map, GST_MAP_WRITE);
        for (int y = 0; y < image.rows; ++y)
            std::memcpy(map.data + y * stride, image.ptr(y), row);
        gst_buffer_unmap(buffer, &map);
        if (stream.overlay)
            gst_mini_object_set_qdata(
                GST_MINI_OBJECT(buffer), overlayQuark(),
                new norda::vision::OverlayContent(
                    norda::vision::overlayContent(norda::vision::metadataLookup(frame.getMetaData()),
                                                  image.size(), norda::vision::overlayDateTime())),
                [](gpointer p) { delete static_cast<norda::vision::OverlayContent*>(p); });
        if (gst_app_src_get_current_level_buffers(source.src) >= kQueuedFrames)
            ++stream.stats.dropped;
        gst_app_src_push_buffer(source.src, buffer);
    }
}

} // namespace nordacam

#else // built without the RTSP server

namespace nordacam {

struct RtspStreams::Impl {};

RtspStreams::RtspStreams(Camera&, const std::string&, int) {
    NORDA_THROW("this nordacam was built without RTSP streaming (it needs libgstrtspserver-1.0-dev)",
                "nordacam::RtspStreams");
}
RtspStreams::~RtspStreams() = default;
int RtspStreams::port() const {
    return 0;
}
std::vector<std::string> RtspStreams::paths() const {
    return {};
}
RtspStreams::Stats RtspStreams::stats(const std::string&) const {
    return {};
}

} // namespace nordacam

#endif
