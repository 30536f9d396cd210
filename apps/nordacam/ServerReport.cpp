// Routes of reports and notes: an inspection report of chosen saved images (PDF or HTML), the
// thermographer's note of an image, and the viewer's script for both and for the trend chart.
#include "apps/nordacam/HttpSupport.h"
#include "apps/nordacam/Report.h"
#include "apps/nordacam/Server.h"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <unistd.h>

namespace nordacam {

using namespace http;
namespace fs = std::filesystem;

std::string_view reportScript();

namespace {

std::string imagePath(const std::string& folder, const std::string& name) {
    std::string ext = fs::path(name).extension().string();
    for (auto& c : ext)
        c = char(std::toupper(static_cast<unsigned char>(c)));
    if (ext != ".RIX")
        throw HttpError(400, "\"" + name + "\" is not a saved image (.RIX)");
    return WebServer::fileInFolder(folder, name);
}

} // namespace

void WebServer::reportRoutes() {
    const std::string folder = m_camera.options().outputDir;
    add("GET", "/report.js", [](const httplib::Request&, httplib::Response& res) {
        const auto script = reportScript();
        res.set_content(script.data(), script.size(), "text/javascript; charset=utf-8");
    });
    add("POST", "/api/report", guarded([folder](const httplib::Request& req, httplib::Response& res) {
            const json body = parseBody(req);
            if (!body.contains("files") || !body["files"].is_array() || body["files"].empty())
                throw HttpError(400, "report: \"files\" must be a non-empty list of saved images");
            const std::string format = body.value("format", "pdf");
            if (format != "pdf" && format != "html")
                throw HttpError(400, "report: \"format\" must be \"pdf\" or \"html\"");
            ReportOptions o;
            for (const auto& f : body["files"])
                o.images.push_back(imagePath(folder, f.is_string() ? f.get<std::string>() : std::string()));
            if (body.contains("alarm") && body["alarm"].is_number())
                o.alarmC = body["alarm"].get<float>();
            static std::atomic<unsigned> counter{0};
            const fs::path file =
                fs::temp_directory_path() / ("nordacam-report-" + std::to_string(::getpid()) + "-" +
                                             std::to_string(counter++) + "." + format);
            o.out = file.string();
            std::ostringstream log;
            report(o, log);
            std::ifstream in(file, std::ios::binary);
            std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
            std::error_code ec;
            fs::remove(file, ec);
            res.set_header("Content-Disposition", "attachment; filename=\"report." + format + "\"");
            res.set_content(bytes, format == "pdf" ? "application/pdf" : "text/html; charset=utf-8");
        }));
    add("GET", R"(/api/gallery/note/([^/]+))",
        guarded([folder](const httplib::Request& req, httplib::Response& res) {
            norda::vision::Rix rix;
            rix.load(imagePath(folder, req.matches[1]));
            reply(res, {{"file", req.matches[1]}, {"note", imageNote(rix)}});
        }));
    add("PUT", R"(/api/gallery/note/([^/]+))",
        guarded([folder](const httplib::Request& req, httplib::Response& res) {
            const json body = parseBody(req);
            if (!body.contains("note") || !body["note"].is_string())
                throw HttpError(400, "note: \"note\" must be a text");
            std::ostringstream log;
            rixNote(imagePath(folder, req.matches[1]), body["note"].get<std::string>(), log);
            reply(res, {{"file", req.matches[1]}, {"note", body["note"]}});
        }));
}

} // namespace nordacam
