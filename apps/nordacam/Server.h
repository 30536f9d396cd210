#pragma once
// The live chain behind an HTTP server.
//
//   /              the live viewer: image with hot, cold and centre spot, live temperatures,
//                  palette and scaling controls, save and record buttons, click for temperature
//   /stream.mjpg   the display image as Motion JPEG (multipart/x-mixed-replace)
//   /stream.pxm    the radiometric frames as a multipart stream of PXM frames with metadata
//   /snapshot.jpg  the newest display image
//   /api/status, /api/measurements, /api/temperature?x=&y=, /api/palettes
//   /api/settings (GET all user settings, POST a JSON object), /api/settings/<key> (GET, PUT)
//   /api/keys (GET: the key schema: every key's type, default, range, writer and group, the
//                  user's marks and the results delta-T compares)
//   /api/commands (GET), /api/commands/<callable>/<command> (POST a JSON array of arguments)
//   /api/materials (GET: name, emissivity, source; the library's and materials.txt beside the
//                  settings file), /api/material (POST {"name", "mark"}: its emissivity for the
//                  image, or as a user mark's local emissivity)
//   /api/save (POST), /api/capture (GET: the "CaptureImage" bytes as a download)
//   /api/record/start (POST {"file": "...pxm", "frames": N}), /api/record/stop (POST)
//   /api/files (GET), /files/<name> (GET: a file of the output folder)
//   /api/thermography (GET: user points, areas, delta-T, scale, range choice), /api/scale (GET)
//   /api/gallery (GET), /api/gallery/thumb/<name> (GET), /api/gallery/open (POST {"file"}),
//   /api/gallery/close (POST), /api/gallery/reanalyse (POST {"emissivity", "reflected",
//                  "distance" (optional)}),
//   /api/gallery/save (POST {"file", "overwrite"})
//
// Streams run on the element's commands while someone watches; each client gets the newest frame
// and skips what it cannot take, so a slow client never slows the pipeline. Errors are JSON
// {"error": "..."} with a 4xx status (503 for what is not available now: no frame yet, too many
// stream clients). File names taken from requests are plain names inside the output folder.

#include "apps/nordacam/Camera.h"
#include "apps/nordacam/OutputFolder.h"

#include <atomic>
#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

namespace httplib {
class Server;
struct Request;
struct Response;
} // namespace httplib

namespace nordacam {

class Gallery;

class WebServer {
public:
    explicit WebServer(Camera& camera);
    ~WebServer();
    WebServer(const WebServer&) = delete;
    WebServer& operator=(const WebServer&) = delete;

    // Binds (port 0: any free port) and returns the port; throws std::runtime_error when the
    // address or port cannot be used.
    int bind(const std::string& host, int port);
    // Serves until stop(); blocking.
    void run();
    void stop();
    int port() const { return m_port; }

    // A plain file name ([A-Za-z0-9._-], no leading dot) inside `folder`; throws otherwise.
    static std::string fileInFolder(const std::string& folder, const std::string& name) {
        return nordacam::fileInFolder(folder, name);
    }

    // Answers one request (method, decoded path, parameters, body) the way the server does, without
    // a connection: the same routes, errors and error page. Streams only get their response set up.
    void handle(httplib::Request& req, httplib::Response& res) const;

private:
    // Stream clients served at once.
    static constexpr int kMaxStreams = 32;

    struct Route;
    void routes();
    // By area: the live view and its streams; settings, key schema and commands; the output folder.
    void liveRoutes();
    void settingsRoutes();
    void fileRoutes();
    // The thermographer's additions: measurement results and set-up, the colour scale, gallery.
    void thermographyRoutes();
    void galleryRoutes();
    void reportRoutes(); // ServerReport.cpp
    void add(const std::string& method, const std::string& pattern,
             std::function<void(const httplib::Request&, httplib::Response&)> handler);

    Camera& m_camera;
    std::unique_ptr<httplib::Server> m_server;
    std::vector<Route> m_routes;
    std::unique_ptr<Gallery> m_gallery;
    std::atomic<bool> m_stopping{false};
    std::atomic<int> m_streams{0};
    int m_port = 0;
    int m_listenSocket = -1;
};

struct ServeOptions {
    CameraOptions camera;
    std::string bind = "127.0.0.1";
    int port = 8080;
    double seconds = 0.0; // 0: until interrupted
    int rtspPort = -1;    // RTSP streams on the same address (0: any free port; -1: none)
};

// Runs the chain and the server; returns the process exit code.
int serve(const ServeOptions& options, std::ostream& out);

} // namespace nordacam
