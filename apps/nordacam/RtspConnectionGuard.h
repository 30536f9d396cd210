#pragma once
// RtspConnectionGuard: keeps the RTSP server's clients from taking it over, without disturbing
// the others. At most kMaxSessions sessions at once and kSessionsPerAddress from one address
// (more SETUPs get 503); a connection that sends more than kUnansweredBytes without completing a
// request (an endless header) is cut; the sessions a closed connection leaves without a stream are
// freed at once rather than at their timeout, so that a viewer that reconnects gets its share
// back. Other sessions left behind end when they time out. Garbage gets the server's own 400 and
// the connection closed.

#include <cstdint>

typedef struct _GstRTSPServer GstRTSPServer;
typedef struct _GMainContext GMainContext;
typedef struct _GSource GSource;

namespace nordacam {

class RtspConnectionGuard {
public:
    static constexpr int kMaxSessions = 64;
    static constexpr int kSessionsPerAddress = 16;
    static constexpr uint64_t kUnansweredBytes = 64 * 1024;

    // Guards the clients `server` accepts from now on; its checks run on `context`, the one the
    // server's own source is attached to.
    RtspConnectionGuard(GstRTSPServer* server, GMainContext* context);
    // Once the context's loop has ended.
    ~RtspConnectionGuard();
    RtspConnectionGuard(const RtspConnectionGuard&) = delete;
    RtspConnectionGuard& operator=(const RtspConnectionGuard&) = delete;

private:
    GSource* m_cleanup = nullptr;
    GSource* m_watchdog = nullptr;
};

} // namespace nordacam
