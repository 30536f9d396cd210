#pragma once
// RtspStreams: the host's live pictures as H.264 over RTSP (GStreamer's RTSP server), for video
// management systems and recorders, beside the HTTP stream and viewer:
//
//   rtsp://HOST:PORT/thermal  the palette image with the measurement overlay
//   rtsp://HOST:PORT/visual   the visual camera's live picture (with the simulated visual camera)
//   rtsp://HOST:PORT/fusion   the display image as Fusion.Mode makes it (what the viewer shows)
//
// The pictures are the ones the chain renders every cycle, taken from the camera's frame tap, so
// the viewer's settings and measurement tools apply. Each path is one shared media: the first
// client starts its encoder, the last one leaving stops it, and every client gets the one encoded
// stream. A frame goes into the media without waiting; when the encoder falls behind, the oldest
// waiting frame is dropped and counted (stats), so the chain never waits for a client. Each
// client has its own send backlog in the server; a stalled or vanished client's backlog fills
// and is dropped without holding back the others.
//
// Clients that misbehave are refused without disturbing the others (RtspConnectionGuard).

#include "nordalib/vision/streaming/StreamingDatatype.h"

#include <cstdint>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

namespace nordacam {

class Camera;

class RtspStreams {
public:
    struct Stats {
        uint64_t offered = 0; // frames offered while a client watched
        uint64_t dropped = 0; // of those, dropped before the encoder
        bool playing = false; // a client watches
    };

    // Serves on `address`:`port` (0: any free port) until destroyed; throws norda::Exception when
    // the port cannot be used or this program was built without RTSP streaming.
    RtspStreams(Camera& camera, const std::string& address, int port);
    ~RtspStreams();
    RtspStreams(const RtspStreams&) = delete;
    RtspStreams& operator=(const RtspStreams&) = delete;

    int port() const;
    // The mounted paths ("/thermal", ...): /visual and /fusion only with a visual camera.
    std::vector<std::string> paths() const;
    Stats stats(const std::string& path) const;

    // The display slot the infrared picture is kept in before fusion replaces it.
    static constexpr auto kInfraredSlot = static_cast<norda::exp::streaming::STREAMING_DATATYPE>(8);

private:
    struct Impl;
    std::unique_ptr<Impl> m;
};

// The streams on `address`:`port` (none for port -1), their addresses printed to `out`.
std::unique_ptr<RtspStreams> startRtsp(Camera& camera, const std::string& address, int port,
                                       std::ostream& out);

} // namespace nordacam
