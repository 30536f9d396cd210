// The JSON API of `nordacam serve` on arbitrary requests, answered in-process by the server's own
// dispatch. Input: the method on the first line, the request target (path and query, URL-encoded)
// on the second, the body after it. The camera runs its chain on its thread, so saving, capturing
// and recording complete as they do in the program.
#include "FuzzSupport.h"
#include "apps/nordacam/Server.h"

#include <httplib.h>

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <unistd.h>

namespace {

struct Host {
    std::string folder;
    std::unique_ptr<nordacam::Camera> camera;
    std::unique_ptr<nordacam::WebServer> server;

    Host() {
        folder = (std::filesystem::temp_directory_path() / ("norda-fuzz-api-" + std::to_string(::getpid())))
                     .string();
        nordacam::CameraOptions o;
        o.outputDir = folder;
        o.settingsFile = folder + "/settings.json";
        o.streams = true;
        o.sim.fps = 60;
        camera = std::make_unique<nordacam::Camera>(o);
        server = std::make_unique<nordacam::WebServer>(*camera);
        camera->start();
    }
    ~Host() {
        server.reset();
        camera.reset(); // stops and joins the chain
        std::error_code ec;
        std::filesystem::remove_all(folder, ec);
    }
    // Images and recordings of one input do not pile up over millions of them.
    void tidy() {
        if (camera->recording())
            camera->stopRecording();
        std::error_code ec;
        for (const auto& e : std::filesystem::directory_iterator(folder, ec))
            std::filesystem::remove(e.path(), ec);
    }
};

Host* g_host = nullptr;

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    setenv("NORDA_LOG_LEVEL", "off", 0);
    g_host = &norda::fuzz::hostForThisProcess<Host>();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string input(reinterpret_cast<const char*>(data), size);
    const auto methodEnd = input.find('\n');
    if (methodEnd == std::string::npos)
        return 0;
    const auto targetEnd = input.find('\n', methodEnd + 1);
    const std::string target = input.substr(
        methodEnd + 1, targetEnd == std::string::npos ? std::string::npos : targetEnd - methodEnd - 1);
    httplib::Request req;
    req.method = input.substr(0, methodEnd);
    const auto query = target.find('?');
    // As the HTTP library does: the path decoded, the query split into parameters.
    req.path = httplib::detail::decode_url(target.substr(0, query), false);
    if (query != std::string::npos)
        httplib::detail::parse_query_text(target.substr(query + 1), req.params);
    if (targetEnd != std::string::npos)
        req.body = input.substr(targetEnd + 1);

    httplib::Response res;
    g_host->server->handle(req, res);
    // Every answer is a status the server means; errors explain themselves.
    if (res.status < 200 || res.status > 599)
        std::abort();
    if (res.status >= 400 && res.body.find("\"error\"") == std::string::npos)
        std::abort();
    g_host->tidy();
    return 0;
}
