#include "apps/nordacam/Server.h"

#include "apps/nordacam/Gallery.h"
#include "apps/nordacam/HttpSupport.h"
#include "apps/nordacam/Measure.h"

#include "nordalib/core/datatypes/Quantity.h"
#include "nordalib/core/datatypes/VariantRegistry.h"
#include "nordalib/core/keys/Keys.h"
#include "nordalib/vision/radiometry/RadiometricTools.h"

#include "nordalib/vision/imgproc/Palettes.h"

#include <httplib.h>
#include <nlohmann/json.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>
#include <sys/socket.h>
#include <thread>

namespace nordacam {

std::string_view viewerPage();

using namespace norda::exp;
using json = nlohmann::json;
using Temp = quantity::Temperature<MarkedFloat>;
namespace fs = std::filesystem;

using http::errorPage;
using http::guarded;
using http::HttpError;
using http::parseBody;
using http::reply;

namespace {

// Stream clients served at once; the pool keeps threads beyond them for the page and the API.
constexpr int kMaxStreams = 32;
constexpr int kApiThreads = 8;
// A stream client whose connection takes nothing for this long is dropped.
constexpr int kStalledClientSeconds = 5;
// Send buffer of each connection (the kernel doubles it). Without a cap it grows to megabytes, so
// a slow viewer would see the live image seconds late and a stalled one would be noticed only
// after that much data; a radiometric frame (0.6 MB) still fits in one buffer.
constexpr int kSendBufferBytes = 512 * 1024;

int intParam(const httplib::Request& req, const char* name) {
    if (!req.has_param(name))
        throw HttpError(400, std::string("missing parameter ") + name);
    const std::string v = req.get_param_value(name);
    char* end = nullptr;
    const long n = std::strtol(v.c_str(), &end, 10);
    if (v.empty() || *end != '\0' || n < 0 || n > 65535)
        throw HttpError(400,
                        std::string("parameter ") + name + " must be a pixel position, got \"" + v + "\"");
    return static_cast<int>(n);
}

template <typename T> std::shared_ptr<Variant> typedArgument(const json& a) {
    const Variant_<T> prototype{T{}};
    return parseJsonFor(prototype, a, "argument");
}

// A command argument: {"type": "<tag>", "value": ...} or a plain value of the parameter's type.
std::shared_ptr<Variant> argument(const json& a, const std::type_index& type) {
    if (a.is_object()) {
        if (!a.contains("type") || !a.contains("value") || !a["type"].is_string())
            throw HttpError(400, "a typed argument needs \"type\" and \"value\"");
        const std::string tag = a["type"].get<std::string>();
        if (!VariantRegistry::instance().knows(tag))
            throw HttpError(400, "unknown argument type " + tag);
        const std::string text = a["value"].is_string() ? a["value"].get<std::string>() : a["value"].dump();
        try {
            return VariantRegistry::instance().fromText(tag, text);
        } catch (const std::exception& e) {
            throw HttpError(400, "argument of type " + tag + ": " + e.what());
        }
    }
#define NORDA_ARG(T)                                                                                         \
    if (type == std::type_index(typeid(T)))                                                                  \
        return typedArgument<T>(a);
    NORDA_ARG(bool)
    NORDA_ARG(unsigned char)
    NORDA_ARG(unsigned short)
    NORDA_ARG(unsigned int)
    NORDA_ARG(unsigned long long)
    NORDA_ARG(int)
    NORDA_ARG(short)
    NORDA_ARG(float)
    NORDA_ARG(std::string)
#undef NORDA_ARG
    throw HttpError(400, "give this argument as {\"type\": ..., \"value\": ...}");
}

std::string jpegOf(const cv::Mat& rgb) {
    cv::Mat bgr;
    cv::cvtColor(rgb, bgr, cv::COLOR_RGB2BGR);
    std::vector<uchar> buf;
    cv::imencode(".jpg", bgr, buf, {cv::IMWRITE_JPEG_QUALITY, 90});
    return std::string(buf.begin(), buf.end());
}

} // namespace

struct WebServer::Route {
    std::string method;
    std::regex pattern;
    httplib::Server::Handler handler;
};

std::string WebServer::fileInFolder(const std::string& folder, const std::string& name) {
    if (name.empty() || name.size() > 128 || name[0] == '.')
        throw HttpError(400, "invalid file name \"" + name + "\"");
    for (char c : name)
        if (!(std::isalnum(static_cast<unsigned char>(c)) || c == '.' || c == '_' || c == '-'))
            throw HttpError(400, "invalid file name \"" + name + "\": use letters, digits, '.', '_' and '-'");
    return (fs::path(folder) / name).string();
}

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
    Camera& cam = m_camera;

    add("GET", "/", [](const httplib::Request&, httplib::Response& res) {
        const auto page = viewerPage();
        res.set_content(page.data(), page.size(), "text/html; charset=utf-8");
    });

    // Multipart streams of the newest frames.
    auto stream = [this](FrameHub& hub, const std::string& element, const char* partType) {
        return guarded([this, &hub, element, partType](const httplib::Request&, httplib::Response& res) {
            if (!m_camera.has(element))
                throw NotAvailable("this stream (" + element + ")");
            if (m_streams.load() >= kMaxStreams)
                throw HttpError(503, "too many stream clients");
            ++m_streams;
            auto reader = std::make_shared<FrameHub::Reader>(hub);
            auto seen = std::make_shared<uint64_t>(0);
            res.set_header("Cache-Control", "no-cache, no-store");
            res.set_content_provider(
                "multipart/x-mixed-replace; boundary=nordacamframe",
                [this, &hub, seen, partType, reader](size_t, httplib::DataSink& sink) {
                    while (!m_stopping.load()) {
                        auto data = hub.waitNewer(*seen, std::chrono::milliseconds(500));
                        if (!sink.is_writable() || hub.closed())
                            return false;
                        if (!data)
                            continue;
                        std::string head = "--nordacamframe\r\nContent-Type: ";
                        head.append(partType).append("\r\nContent-Length: ");
                        head.append(std::to_string(data->size())).append("\r\n\r\n");
                        if (!sink.write(head.data(), head.size()) ||
                            !sink.write(data->data(), data->size()) || !sink.write("\r\n", 2))
                            return false;
                        return true;
                    }
                    return false;
                },
                [this](bool) { --m_streams; });
        });
    };
    add("GET", "/stream.mjpg", stream(cam.mjpegHub(), "SocketServerElement", "image/jpeg"));
    add("GET", "/stream.pxm", stream(cam.pxmHub(), "SocketServerElement", "image/x-portable-anymap"));

    add("GET", "/snapshot.jpg", guarded([&cam](const httplib::Request&, httplib::Response& res) {
            const auto snap = cam.snapshot();
            if (snap.rgb.empty())
                throw NotAvailable("a display image");
            res.set_content(jpegOf(snap.rgb), "image/jpeg");
        }));

    add("GET", "/api/status", guarded([this, &cam](const httplib::Request&, httplib::Response& res) {
            const auto stats = cam.pipeline().statistics();
            json elements = json::array();
            for (const auto& e : stats.elements)
                elements.push_back({{"name", e.name},
                                    {"runs", e.calls},
                                    {"skipped", e.skipped},
                                    {"failures", e.failures},
                                    {"meanMs", e.meanMs},
                                    {"worstMs", e.worstMs},
                                    {"lastError", e.lastError}});
            json stages = json::array();
            for (const auto& s : cam.stages())
                stages.push_back({{"type", s.type}, {"element", s.element}, {"role", s.role}});
            reply(res, {{"cycles", stats.cycles},
                        {"fps", cam.snapshot().fps},
                        {"streamClients",
                         {{"mjpeg", cam.mjpegHub().readers()},
                          {"pxm", cam.pxmHub().readers()},
                          {"total", m_streams.load()}}},
                        {"meanCycleMs", stats.meanCycleMs},
                        {"stages", stages},
                        {"elements", elements}});
        }));

    add("GET", "/api/measurements", guarded([&cam](const httplib::Request&, httplib::Response& res) {
            const auto snap = cam.snapshot();
            auto& store = cam.store();
            json spots = json::array();
            for (auto s : readSpots(store)) {
                s.valid = s.valid && !snap.rad.empty(); // before the first frame: only defaults
                spots.push_back(toJson(s));
            }
            json j = {{"frame", snap.frame},
                      {"cycle", snap.cycle},
                      {"fps", snap.fps},
                      {"width", snap.rad.empty() ? 640 : snap.rad.cols},
                      {"height", snap.rad.empty() ? 480 : snap.rad.rows},
                      {"spots", spots},
                      {"warmup", store.getValue<bool>(Id::Streaming::WarmUp)},
                      {"shutter", store.getValue<std::string>(Id::Shutter::State)},
                      {"recording", cam.recording()},
                      {"recordingRemaining", cam.recordingRemaining()},
                      {"range",
                       {{"name", store.getValue<unsigned char>(Id::ActiveMeasRange::Name)},
                        {"bottom", store.getValue<Temp>(Id::ActiveMeasRange::ToleranceBottom).celsius()},
                        {"top", store.getValue<Temp>(Id::ActiveMeasRange::ToleranceTop).celsius()}}}};
            if (cam.visualCamera()) {
                json laser = {{"visible", snap.laserVisible},
                              {"status", store.getValue<std::string>(Id::Laser::Status)},
                              {"distance", snap.laserDistance}};
                if (snap.laserVisible && !snap.rad.empty()) {
                    laser["x"] = snap.laserPosition.x;
                    laser["y"] = snap.laserPosition.y;
                    laser["celsius"] = norda::vision::RadiometricTools::getFloat(
                        snap.rad.at<uint16_t>(std::clamp(snap.laser.y, 0, snap.rad.rows - 1),
                                              std::clamp(snap.laser.x, 0, snap.rad.cols - 1)));
                }
                const auto rect = store.getValue<cv::Rect_<int>>(Id::EmissionMarker::Rect);
                j["laser"] = laser;
                j["marker"] = {{"status", snap.markerStatus},
                               {"valid", snap.markerStatus == "Valid"},
                               {"emissivity", std::round(snap.markerEmissivity * 1000.0f) / 1000.0f},
                               {"rect", {rect.x, rect.y, rect.width, rect.height}}};
                j["fusion"] = store.getValue<std::string>(Id::Fusion::Mode);
                const auto placement = store.getValue<std::vector<double>>(Id::Fusion::InfraredPlacement);
                if (placement.size() == 4 && j["fusion"] == Id::Fusion::PictureInPicture)
                    j["placement"] = placement;
            }
            if (!snap.rad.empty()) {
                double mn, mx;
                cv::minMaxIdx(snap.rad, &mn, &mx);
                j["image"] = {{"min", norda::vision::RadiometricTools::getFloat(static_cast<uint16_t>(mn))},
                              {"max", norda::vision::RadiometricTools::getFloat(static_cast<uint16_t>(mx))},
                              {"mean", norda::vision::RadiometricTools::getFloat(
                                           static_cast<uint16_t>(cv::mean(snap.rad)[0] + 0.5))}};
                json objects = json::array();
                for (const auto& o : measureObjects(snap))
                    objects.push_back(toJson(o));
                if (!objects.empty())
                    j["objects"] = objects;
            }
            reply(res, j);
        }));

    add("GET", "/api/temperature", guarded([&cam](const httplib::Request& req, httplib::Response& res) {
            const int x = intParam(req, "x"), y = intParam(req, "y");
            reply(res, {{"x", x}, {"y", y}, {"celsius", cam.temperatureAt(x, y)}, {"raw", cam.rawAt(x, y)}});
        }));

    add("GET", "/api/palettes", guarded([](const httplib::Request&, httplib::Response& res) {
            reply(res, {{"palettes", norda::vision::Palettes::names()}});
        }));

    add("GET", "/api/settings", guarded([&cam](const httplib::Request&, httplib::Response& res) {
            reply(res, cam.settings().userSettings());
        }));
    add("POST", "/api/settings", guarded([&cam](const httplib::Request& req, httplib::Response& res) {
            const json body = parseBody(req);
            cam.settings().apply(body, "request");
            reply(res, {{"applied", body.size()}});
        }));
    add("GET", R"(/api/settings/([A-Za-z0-9_.]+))",
        guarded([&cam](const httplib::Request& req, httplib::Response& res) {
            const std::string key = req.matches[1];
            try {
                reply(res, {{"key", key}, {"value", cam.settings().get(key)}});
            } catch (const SettingsError& e) {
                throw HttpError(404, e.what());
            }
        }));
    add("PUT", R"(/api/settings/([A-Za-z0-9_.]+))",
        guarded([&cam](const httplib::Request& req, httplib::Response& res) {
            const std::string key = req.matches[1];
            const json body = parseBody(req);
            cam.settings().set(key, body.is_object() && body.contains("value") ? body["value"] : body);
            reply(res, {{"key", key}, {"value", cam.settings().get(key)}});
        }));

    add("GET", "/api/commands", guarded([&cam](const httplib::Request&, httplib::Response& res) {
            json out = json::object();
            for (const auto& callable : cam.commands().getCallableNames()) {
                json commands = json::array();
                for (const auto& d : cam.commands().getDescriptions(callable)) {
                    json params = json::array();
                    for (const auto& p : d.getParameters())
                        params.push_back({{"index", p.getIndex()},
                                          {"name", p.getName()},
                                          {"type", typeName(p.getType())},
                                          {"description", p.getDescription()}});
                    commands.push_back({{"name", d.getName()},
                                        {"description", d.getDescription()},
                                        {"returns", typeName(d.getReturnType())},
                                        {"parameters", params}});
                }
                out[callable] = commands;
            }
            reply(res, out);
        }));
    add("POST", R"(/api/commands/([A-Za-z0-9_]+)/([A-Za-z0-9_]+))",
        guarded([&cam](const httplib::Request& req, httplib::Response& res) {
            const std::string callable = req.matches[1], command = req.matches[2];
            if (!cam.commands().hasCallable(callable))
                throw HttpError(404, "unknown callable " + callable);
            const json body = req.body.empty() ? json::array() : parseBody(req);
            if (!body.is_array())
                throw HttpError(400, "the arguments must be a JSON array");
            std::vector<std::type_index> types;
            std::vector<std::string> names;
            for (const auto& d : cam.commands().getDescriptions(callable))
                if (d.getName() == command)
                    for (const auto& p : d.getParameters()) {
                        types.push_back(p.getType());
                        names.push_back(p.getName());
                    }
            cmd::ParameterPack pack;
            for (size_t i = 0; i < body.size(); ++i) {
                auto arg = argument(body[i], i < types.size() ? types[i] : std::type_index(typeid(void)));
                // A file a command writes is named like any other file from a request: a
                // plain name inside the output folder.
                if (i < names.size() && names[i].find("Filename") != std::string::npos &&
                    arg->holds<std::string>())
                    arg = makeVariant(
                        WebServer::fileInFolder(cam.options().outputDir, arg->value<std::string>()));
                pack.add(arg);
            }
            std::shared_ptr<Variant> result;
            try {
                result = cam.commands().call(callable, command, pack);
            } catch (const norda::Exception& e) {
                throw HttpError(400, e.what());
            }
            json j = {{"callable", callable}, {"command", command}};
            if (result && result->holds<std::vector<char>>())
                j["bytes"] = result->value<std::vector<char>>().size();
            else if (result)
                j["result"] = toJson(*result);
            reply(res, j);
        }));

    add("POST", "/api/save", guarded([&cam](const httplib::Request&, httplib::Response& res) {
            const auto path = cam.saveImage(std::chrono::seconds(10));
            reply(res, {{"file", fs::path(path).filename().string()}, {"path", path}});
        }));
    add("GET", "/api/capture", guarded([&cam](const httplib::Request&, httplib::Response& res) {
            auto bytes = cam.captureImage();
            if (bytes.empty())
                throw HttpError(409, "no image was captured (timeout or preview mode)");
            res.set_header("Content-Disposition", "attachment; filename=\"capture.rix\"");
            res.set_content(std::string(bytes.begin(), bytes.end()), "application/octet-stream");
        }));
    add("POST", "/api/record/start", guarded([&cam](const httplib::Request& req, httplib::Response& res) {
            const json body = parseBody(req);
            std::string name = body.value("file", "");
            if (name.empty())
                name = "rec-" +
                       std::to_string(std::chrono::duration_cast<std::chrono::seconds>(
                                          std::chrono::system_clock::now().time_since_epoch())
                                          .count()) +
                       ".pxm";
            if (name.size() < 5 || name.substr(name.size() - 4) != ".pxm")
                throw HttpError(400, "a recording's name ends in .pxm");
            const auto path = WebServer::fileInFolder(cam.options().outputDir, name);
            const auto frames = body.value("frames", 300ull);
            if (cam.recording())
                throw HttpError(409, "a recording is running");
            cam.startRecording(path, frames);
            reply(res, {{"file", name}, {"frames", frames}});
        }));
    add("POST", "/api/record/stop", guarded([&cam](const httplib::Request&, httplib::Response& res) {
            cam.stopRecording();
            reply(res, {{"stopped", true}});
        }));
    add("GET", "/api/files", guarded([&cam](const httplib::Request&, httplib::Response& res) {
            json files = json::array();
            std::error_code ec;
            for (const auto& e : fs::directory_iterator(cam.options().outputDir, ec))
                if (e.is_regular_file())
                    files.push_back({{"name", e.path().filename().string()}, {"size", e.file_size()}});
            reply(res, files);
        }));
    add("GET", R"(/files/([^/]+))", guarded([&cam](const httplib::Request& req, httplib::Response& res) {
            const auto path = WebServer::fileInFolder(cam.options().outputDir, req.matches[1]);
            std::ifstream in(path, std::ios::binary);
            if (!in)
                throw HttpError(404, "no file " + std::string(req.matches[1]));
            std::ostringstream data;
            data << in.rdbuf();
            res.set_header("Content-Disposition",
                           "attachment; filename=\"" + std::string(req.matches[1]) + "\"");
            res.set_content(data.str(), "application/octet-stream");
        }));
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
    Camera camera(cameraOptions);
    WebServer server(camera);
    const int port = server.bind(options.bind, options.port);
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
