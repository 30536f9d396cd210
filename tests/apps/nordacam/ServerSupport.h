#pragma once
// The host's web server in tests: a request answered without a connection (call), the live chain
// with the server on a free loopback port (LiveServer) for real clients, and the browser tests'
// set-up around it (ViewerInBrowser).

#include "apps/nordacam/Server.h"
#include "tests/support/ExclusiveRun.h"
#include "tests/support/TempDir.h"
#include "tests/support/WebDriver.h"

#include <gtest/gtest.h>
#include <httplib.h>
#include <nlohmann/json.hpp>

#include <chrono>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace nordacam::test {

struct Reply {
    int status;
    std::string text;    // the body as sent
    nlohmann::json body; // the body parsed, when it is JSON
};

inline Reply call(const WebServer& server, const std::string& method, const std::string& path,
                  const nlohmann::json& body = {}) {
    httplib::Request req;
    httplib::Response res;
    req.method = method;
    req.path = path;
    if (!body.is_null())
        req.body = body.dump();
    server.handle(req, res);
    const bool isJson = !res.body.empty() && (res.body[0] == '{' || res.body[0] == '[');
    return {res.status, res.body, isJson ? nlohmann::json::parse(res.body) : nlohmann::json()};
}

// The live chain and the server in this process, on a free loopback port.
class LiveServer {
public:
    explicit LiveServer(const std::string& out) {
        CameraOptions o;
        o.outputDir = out;
        o.settingsFile = out + "/settings.json";
        o.streams = true;
        o.sim.uptimeStartMs = 130000;
        camera = std::make_unique<Camera>(o);
        server = std::make_unique<WebServer>(*camera);
        port = server->bind("127.0.0.1", 0);
        camera->start();
        thread = std::thread([this] { server->run(); });
    }
    ~LiveServer() {
        stop();
        camera->stop();
    }
    void stop() {
        if (thread.joinable()) {
            server->stop();
            thread.join();
        }
    }
    httplib::Client client() const {
        httplib::Client c("127.0.0.1", port);
        c.set_read_timeout(30, 0); // a capture may wait 15 s for its frame on a busy machine
        return c;
    }
    // Reads a multipart stream until `parts` parts arrived; returns their bodies (and, if asked,
    // their arrival times in seconds).
    std::vector<std::string> readParts(const std::string& path, size_t parts,
                                       std::vector<double>* times = nullptr) const {
        std::string buffer;
        std::vector<std::string> out;
        const auto start = std::chrono::steady_clock::now();
        auto c = client();
        c.Get(path.c_str(), [&](const char* data, size_t n) {
            buffer.append(data, n);
            while (true) {
                const auto head = buffer.find("--nordacamframe\r\n");
                const auto lenAt = buffer.find("Content-Length: ", head);
                const auto bodyAt = buffer.find("\r\n\r\n", lenAt);
                if (head == std::string::npos || lenAt == std::string::npos || bodyAt == std::string::npos)
                    break;
                const size_t len = std::stoul(buffer.substr(lenAt + 16, bodyAt - lenAt - 16));
                if (buffer.size() < bodyAt + 4 + len)
                    break;
                out.push_back(buffer.substr(bodyAt + 4, len));
                buffer.erase(0, bodyAt + 4 + len);
                if (times)
                    times->push_back(
                        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
            }
            return out.size() < parts;
        });
        return out;
    }
    void waitForFrames() const {
        for (int i = 0; i < 200 && camera->snapshot().rgb.empty(); ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }

    std::unique_ptr<Camera> camera;
    std::unique_ptr<WebServer> server;
    int port = 0;
    std::thread thread;
};

// The browser tests' set-up: the heavy-test lock (a browser takes both cores for seconds), the live
// server with its first frames, `saved` images taken, then a browser on the viewer page, whose
// gallery lists the images saved before it opened.
struct ViewerInBrowser {
    explicit ViewerInBrowser(int saved = 0) : live(dir.file("out")), page(dir.file("profile"), 1600, 1100) {
        live.waitForFrames();
        auto c = live.client();
        for (int i = 0; i < saved; ++i) {
            const auto res = c.Post("/api/save", "", "application/json");
            EXPECT_TRUE(res && res->status == 200) << "saving image " << i + 1 << " for the gallery";
        }
        page.open("http://127.0.0.1:" + std::to_string(live.port) + "/");
    }
    norda::test::ExclusiveRun exclusive;
    norda::test::TempDir dir;
    LiveServer live;
    norda::test::WebDriver page;
};

// Where the browser tests leave their screenshots, to be looked at: <build>/test-pictures/.
inline std::string testPicturesFolder() {
    const std::string folder = std::string(NORDA_BINARY_DIR) + "/test-pictures";
    std::filesystem::create_directories(folder);
    return folder;
}

} // namespace nordacam::test
