// Routes of the live view: the page, the streams, the snapshot, the chain's status, the newest
// measurements and the temperature at a pixel.
#include "apps/nordacam/HttpSupport.h"
#include "apps/nordacam/Measure.h"
#include "apps/nordacam/Server.h"

#include "nordalib/core/datatypes/Quantity.h"
#include "nordalib/core/keys/Keys.h"
#include "nordalib/vision/imgproc/Palettes.h"
#include "nordalib/vision/radiometry/RadiometricTools.h"

#include <opencv2/core.hpp>

#include <algorithm>
#include <cmath>

namespace nordacam {

std::string_view viewerPage();

using namespace norda::exp;
using json = nlohmann::json;
using Temp = quantity::Temperature<MarkedFloat>;

using http::guarded;
using http::HttpError;
using http::reply;

namespace {

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

} // namespace

void WebServer::liveRoutes() {
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
            res.set_content(StreamPublisher::encodeJpeg(snap.rgb, 90), "image/jpeg");
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
}

} // namespace nordacam
