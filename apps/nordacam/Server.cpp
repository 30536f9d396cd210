#include "apps/nordacam/Server.h"

#include "apps/nordacam/Gallery.h"
#include "apps/nordacam/HttpSupport.h"
#include "apps/nordacam/RtspStreams.h"

#include <httplib.h>

#include <csignal>
#include <regex>
#include <sys/socket.h>
#include <thread>

namespace nordacam {

using http::errorPage;

namespace {

// Threads of the pool beyond the stream clients, for the page and the API.
constexpr int kApiThreads = 8;
// A stream client whose connection takes nothing for this long is dropped.
constexpr int kStalledClientSeconds = 5;
// Send buffer of each connection (the kernel doubles it). Without a cap it grows to megabytes, so
// a slow viewer would see the live image seconds late and a stalled one would be noticed only
// after that much data; a radiometric frame (0.6 MB) still fits in one buffer.
constexpr int kSendBufferBytes = 512 * 1024;

} // namespace

struct WebServer::Route {
    std::string method;
    std::regex pattern;
    httplib::Server::Handler handler;
};

WebServer::WebServer(Camera& camera) : m_camera(camera), m_server(std::make_unique<httplib::Server>()) {
    m_server->new_task_queue = [] { return new httplib::ThreadPool(kMaxStreams + kApiThreads); };
    m_server->set_payload_max_length(1 << 20);
    m_server->set_write_timeout(kStalledClientSeconds, 0);
    // Accepted connections inherit the listening socket's buffer size.
    m_server->set_socket_options([this](socket_t sock) {
        httplib::default_socket_options(sock);
        const int size = kSendBufferBytes;
        ::setsockopt(sock, SOL_SOCKET, SO_SNDBUF, &size, sizeof size);
        m_listenSocket = sock;
    });
    routes();
}

WebServer::~WebServer() {
    stop();
}

int WebServer::bind(const std::string& host, int port) {
    if (port < 0 || port > 65535)
        throw std::runtime_error("invalid port " + std::to_string(port));
    if (port == 0) {
        m_port = m_server->bind_to_any_port(host);
        if (m_port <= 0)
            throw std::runtime_error("can not bind to " + host);
    } else {
        if (!m_server->bind_to_port(host, port))
            throw std::runtime_error("can not bind to " + host + ":" + std::to_string(port) +
                                     " (address not available or port in use)");
        m_port = port;
    }
    // The HTTP library listens with a backlog of 5: a page, its streams and a few viewers
    // connecting at once would overflow it and wait a second for the connection to be retried.
    if (m_listenSocket >= 0)
        ::listen(m_listenSocket, SOMAXCONN);
    return m_port;
}

void WebServer::run() {
    m_server->listen_after_bind();
}

void WebServer::stop() {
    m_stopping = true;
    m_camera.mjpegHub().close();
    m_camera.pxmHub().close();
    if (m_server)
        m_server->stop();
}

void WebServer::add(const std::string& method, const std::string& pattern, httplib::Server::Handler handler) {
    m_routes.push_back({method, std::regex(pattern), handler});
    if (method == "GET")
        m_server->Get(pattern, std::move(handler));
    else if (method == "POST")
        m_server->Post(pattern, std::move(handler));
    else
        m_server->Put(pattern, std::move(handler));
}

void WebServer::handle(httplib::Request& req, httplib::Response& res) const {
    for (const auto& route : m_routes)
        if ((route.method == req.method || (req.method == "HEAD" && route.method == "GET")) &&
            std::regex_match(req.path, req.matches, route.pattern)) {
            route.handler(req, res);
            if (res.status == -1)
                res.status = 200;
            if (res.status >= 400)
                errorPage(res);
            return;
        }
    res.status = 404;
    errorPage(res);
}

void WebServer::routes() {
    liveRoutes();
    settingsRoutes();
    fileRoutes();
    thermographyRoutes();
    galleryRoutes();
    reportRoutes();
    m_server->set_error_handler([](const httplib::Request&, httplib::Response& res) { errorPage(res); });
}

namespace {
std::atomic<bool> g_interrupted{false};
void onSignal(int) {
    g_interrupted = true;
}
} // namespace

int serve(const ServeOptions& options, std::ostream& out) {
    CameraOptions cameraOptions = options.camera;
    cameraOptions.streams = true;
    cameraOptions.rtsp = options.rtspPort >= 0;
    Camera camera(cameraOptions);
    WebServer server(camera);
    const int port = server.bind(options.bind, options.port);
    const auto rtsp = startRtsp(camera, options.bind, options.rtspPort, out);
    camera.start();
    std::thread http([&] { server.run(); });
    out << "nordacam: serving http://" << options.bind << ":" << port << "/ (output folder "
        << cameraOptions.outputDir << ")" << std::endl;
    std::signal(SIGINT, onSignal);
    std::signal(SIGTERM, onSignal);
    const auto start = std::chrono::steady_clock::now();
    while (!g_interrupted.load()) {
        if (options.seconds > 0 &&
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count() >=
                options.seconds)
            break;
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    out << "nordacam: stopping" << std::endl;
    server.stop();
    http.join();
    camera.stop();
    return 0;
}

} // namespace nordacam
