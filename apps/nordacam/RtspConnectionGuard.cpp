#include "apps/nordacam/RtspConnectionGuard.h"

#ifdef NORDACAM_RTSP

#include <gst/rtsp-server/rtsp-server.h>

#include <linux/tcp.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <atomic>
#include <mutex>
#include <string>
#include <vector>

namespace nordacam {

namespace {

// Bytes a client has sent on its RTSP connection (the kernel's count), 0 when unknown or closed.
uint64_t receivedBytes(GSocket* socket) {
    tcp_info info{};
    socklen_t size = sizeof info;
    if (!socket || g_socket_is_closed(socket) ||
        ::getsockopt(g_socket_get_fd(socket), IPPROTO_TCP, TCP_INFO, &info, &size) != 0)
        return 0;
    return info.tcpi_bytes_received;
}

// What the guard keeps of each connection, on the client object itself (clients are served on
// the server's pool threads): its address, its socket, the bytes it had sent when it last got an
// answer, the sessions it set up and the server's main context.
struct Connection {
    std::string address;
    GSocket* socket;
    GMainContext* context;
    std::atomic<uint64_t> answeredAt{0};
    std::atomic<int> quietSeconds{0};
    std::mutex mutex;
    std::vector<std::string> sessions;

    Connection(std::string a, GSocket* s, GMainContext* c) : address(std::move(a)), socket(s), context(c) {
        g_object_ref(socket);
        g_main_context_ref(context);
    }
    ~Connection() {
        g_object_unref(socket);
        g_main_context_unref(context);
    }
};

Connection* connectionOf(GstRTSPClient* client) {
    return static_cast<Connection*>(g_object_get_data(G_OBJECT(client), "nordacam-connection"));
}

// Sessions of one client.
int sessionsOf(GstRTSPClient* client) {
    int sessions = 0;
    gst_rtsp_client_session_filter(
        client,
        +[](GstRTSPClient*, GstRTSPSession*, gpointer n) {
            ++*static_cast<int*>(n);
            return GST_RTSP_FILTER_KEEP;
        },
        &sessions);
    return sessions;
}

void answered(GstRTSPClient* client, GstRTSPSession*, GstRTSPMessage*, gpointer) {
    if (Connection* c = connectionOf(client)) {
        c->answeredAt = receivedBytes(c->socket);
        c->quietSeconds = 0;
    }
}

// A new session from an address that holds its share already is refused.
GstRTSPStatusCode setupRequest(GstRTSPClient* client, GstRTSPContext* ctx, gpointer server) {
    gchar* session = nullptr;
    if (gst_rtsp_message_get_header(ctx->request, GST_RTSP_HDR_SESSION, &session, 0) == GST_RTSP_OK)
        return GST_RTSP_STS_OK;
    const Connection* self = connectionOf(client);
    if (!self)
        return GST_RTSP_STS_OK;
    struct Count {
        const std::string& address;
        int sessions = 0;
    } count{self->address};
    gst_rtsp_server_client_filter(
        static_cast<GstRTSPServer*>(server),
        +[](GstRTSPServer*, GstRTSPClient* other, gpointer d) {
            auto* n = static_cast<Count*>(d);
            if (const Connection* c = connectionOf(other); c && c->address == n->address)
                n->sessions += sessionsOf(other);
            return GST_RTSP_FILTER_KEEP;
        },
        &count);
    return count.sessions >= RtspConnectionGuard::kSessionsPerAddress ? GST_RTSP_STS_SERVICE_UNAVAILABLE
                                                                      : GST_RTSP_STS_OK;
}

void sessionCreated(GstRTSPClient* client, GstRTSPSession* session, gpointer) {
    if (Connection* c = connectionOf(client)) {
        std::lock_guard<std::mutex> lock(c->mutex);
        c->sessions.emplace_back(gst_rtsp_session_get_sessionid(session));
    }
}

// The sessions a closed connection set up, to be freed from the pool.
struct Leftovers {
    GstRTSPSessionPool* pool;
    std::vector<std::string> sessions;
};

// On the server's main context, where the pool's timeout ends sessions too: of the closed
// connection's sessions, those without a stream are removed from the pool.
gboolean freeLeftovers(gpointer data) {
    auto* leftovers = static_cast<Leftovers*>(data);
    GList* none = gst_rtsp_session_pool_filter(
        leftovers->pool,
        +[](GstRTSPSessionPool*, GstRTSPSession* session, gpointer d) {
            const auto& ids = static_cast<Leftovers*>(d)->sessions;
            if (std::find(ids.begin(), ids.end(), gst_rtsp_session_get_sessionid(session)) == ids.end())
                return GST_RTSP_FILTER_KEEP;
            GList* media = gst_rtsp_session_filter(session, nullptr, nullptr);
            const bool streams = media != nullptr;
            g_list_free_full(media, g_object_unref);
            return streams ? GST_RTSP_FILTER_KEEP : GST_RTSP_FILTER_REMOVE;
        },
        leftovers);
    g_list_free_full(none, g_object_unref);
    return G_SOURCE_REMOVE;
}

// When a connection closes, the server stops its streams (our media stop on disconnect, so UDP
// ones too) and forgets its sessions, which stay in the pool until they time out, counted against
// kMaxSessions though nothing can stream in them any more. They are freed at once, but not here:
// this runs on the client's thread inside the server's own teardown of the connection, while the
// pool's timeout and the other clients use the pool from the main context. A session that streams
// still (over UDP from a media that outlives its connection, or set up again from another
// connection with its id) is kept: its client may come back for it, and it times out otherwise.
void closed(GstRTSPClient* client, gpointer) {
    Connection* c = connectionOf(client);
    GstRTSPSessionPool* pool = gst_rtsp_client_get_session_pool(client);
    if (!c || !pool) {
        if (pool)
            g_object_unref(pool);
        return;
    }
    auto* leftovers = new Leftovers{pool, {}};
    {
        std::lock_guard<std::mutex> lock(c->mutex);
        leftovers->sessions.swap(c->sessions);
    }
    GSource* idle = g_idle_source_new();
    g_source_set_callback(idle, freeLeftovers, leftovers, [](gpointer p) {
        auto* leftovers = static_cast<Leftovers*>(p);
        g_object_unref(leftovers->pool);
        delete leftovers;
    });
    g_source_attach(idle, c->context);
    g_source_unref(idle);
}

void connected(GstRTSPServer* server, GstRTSPClient* client, gpointer context) {
    GstRTSPConnection* connection = gst_rtsp_client_get_connection(client);
    GSocket* socket = connection ? gst_rtsp_connection_get_read_socket(connection) : nullptr;
    const gchar* ip = connection ? gst_rtsp_connection_get_ip(connection) : nullptr;
    if (!socket || !ip)
        return;
    auto* c = new Connection(ip, socket, static_cast<GMainContext*>(context));
    c->answeredAt = receivedBytes(socket);
    g_object_set_data_full(G_OBJECT(client), "nordacam-connection", c,
                           [](gpointer p) { delete static_cast<Connection*>(p); });
    // With a reference: the client's thread may still be answering when the server is let go.
    g_signal_connect_data(
        client, "pre-setup-request", G_CALLBACK(setupRequest), g_object_ref(server),
        +[](gpointer server, GClosure*) { g_object_unref(server); }, GConnectFlags(0));
    g_signal_connect(client, "send-message", G_CALLBACK(answered), nullptr);
    g_signal_connect(client, "new-session", G_CALLBACK(sessionCreated), nullptr);
    g_signal_connect(client, "closed", G_CALLBACK(closed), nullptr);
}

// Every second: a connection that sent more than kUnansweredBytes since its last answer is
// closed. Its count starts again after a minute, so that a client's reports over the connection
// (RTCP, a few bytes a second) never add up.
gboolean watch(gpointer server) {
    gst_rtsp_server_client_filter(
        static_cast<GstRTSPServer*>(server),
        +[](GstRTSPServer*, GstRTSPClient* client, gpointer) {
            Connection* c = connectionOf(client);
            if (!c)
                return GST_RTSP_FILTER_KEEP;
            const uint64_t received = receivedBytes(c->socket);
            if (received > c->answeredAt + RtspConnectionGuard::kUnansweredBytes)
                // Cut at the socket: the server then ends the connection as one the client closed.
                ::shutdown(g_socket_get_fd(c->socket), SHUT_RDWR);
            else if (++c->quietSeconds >= 60)
                c->answeredAt = received, c->quietSeconds = 0;
            return GST_RTSP_FILTER_KEEP;
        },
        nullptr);
    return G_SOURCE_CONTINUE;
}

} // namespace

RtspConnectionGuard::RtspConnectionGuard(GstRTSPServer* server, GMainContext* context) {
    GstRTSPSessionPool* pool = gst_rtsp_server_get_session_pool(server);
    gst_rtsp_session_pool_set_max_sessions(pool, kMaxSessions);
    // Sessions of clients that vanished without a TEARDOWN end when they time out.
    m_cleanup = gst_rtsp_session_pool_create_watch(pool);
    // The pool's watch calls a GstRTSPSessionPoolFunc through the GSourceFunc slot.
    GstRTSPSessionPoolFunc cleanupSessions = [](GstRTSPSessionPool* p, gpointer) -> gboolean {
        gst_rtsp_session_pool_cleanup(p);
        return TRUE;
    };
    g_source_set_callback(m_cleanup,
                          reinterpret_cast<GSourceFunc>(reinterpret_cast<void (*)()>(cleanupSessions)),
                          nullptr, nullptr);
    g_source_attach(m_cleanup, context);
    g_object_unref(pool);
    g_signal_connect(server, "client-connected", G_CALLBACK(connected), context);
    m_watchdog = g_timeout_source_new_seconds(1);
    g_source_set_callback(m_watchdog, watch, server, nullptr);
    g_source_attach(m_watchdog, context);
}

RtspConnectionGuard::~RtspConnectionGuard() {
    for (GSource* source : {m_cleanup, m_watchdog}) {
        g_source_destroy(source);
        g_source_unref(source);
    }
}

} // namespace nordacam

#endif
