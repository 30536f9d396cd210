// Routes of the output folder: saving and capturing images, raw recordings, listing and
// downloading files.
#include "apps/nordacam/HttpSupport.h"
#include "apps/nordacam/Server.h"

#include <chrono>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace nordacam {

using json = nlohmann::json;
namespace fs = std::filesystem;

using http::guarded;
using http::HttpError;
using http::parseBody;
using http::reply;

void WebServer::fileRoutes() {
    Camera& cam = m_camera;

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
            const auto path = fileInFolder(cam.options().outputDir, name);
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
            const auto path = fileInFolder(cam.options().outputDir, req.matches[1]);
            std::ifstream in(path, std::ios::binary);
            if (!in)
                throw HttpError(404, "no file " + std::string(req.matches[1]));
            std::ostringstream data;
            data << in.rdbuf();
            res.set_header("Content-Disposition",
                           "attachment; filename=\"" + std::string(req.matches[1]) + "\"");
            res.set_content(data.str(), "application/octet-stream");
        }));
}

} // namespace nordacam
