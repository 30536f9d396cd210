#pragma once
// A headless Chromium driven through chromedriver's WebDriver protocol (HTTP + JSON on loopback),
// for tests that use a page the way a person does: type into fields, click, read the screen.

#include <gtest/gtest.h>
#include <httplib.h>
#include <nlohmann/json.hpp>

#include <chrono>
#include <csignal>
#include <netinet/in.h>
#include <spawn.h>
#include <stdexcept>
#include <string>
#include <sys/socket.h>
#include <sys/wait.h>
#include <thread>
#include <tuple>
#include <unistd.h>
#include <vector>

extern char** environ;

namespace norda::test {

class WebDriver {
public:
    using json = nlohmann::json;

    // Starts chromedriver on a free loopback port and a browser session with a fresh profile.
    explicit WebDriver(const std::string& profileDir, int width = 1400, int height = 1200) {
        m_port = freePort();
        const std::string port = "--port=" + std::to_string(m_port);
        char* argv[] = {const_cast<char*>("chromedriver"), const_cast<char*>(port.c_str()), nullptr};
        if (posix_spawnp(&m_pid, "chromedriver", nullptr, nullptr, argv, environ) != 0)
            throw std::runtime_error("chromedriver can not be started (tools/install-deps.sh installs it)");
        for (int i = 0; i < 100 && !client().Get("/status"); ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        const json args = {"--headless",
                           "--no-sandbox",
                           "--disable-gpu",
                           "--disable-dev-shm-usage",
                           "--disable-background-networking",
                           "--disable-component-update",
                           "--disable-sync",
                           "--no-first-run",
                           "--user-data-dir=" + profileDir,
                           "--window-size=" + std::to_string(width) + "," + std::to_string(height)};
        const auto r =
            send("POST", "/session",
                 {{"capabilities", {{"alwaysMatch", {{"goog:chromeOptions", {{"args", args}}}}}}}});
        m_session = r["value"]["sessionId"].get<std::string>();
    }
    ~WebDriver() {
        try {
            if (!m_session.empty())
                client().Delete(("/session/" + m_session).c_str());
        } catch (...) {
        }
        if (m_pid > 0) {
            ::kill(m_pid, SIGTERM);
            int status = 0;
            ::waitpid(m_pid, &status, 0);
        }
    }
    WebDriver(const WebDriver&) = delete;
    WebDriver& operator=(const WebDriver&) = delete;

    void open(const std::string& url) { command("POST", "/url", {{"url", url}}); }
    // The element of a CSS selector (its WebDriver id); throws when there is none.
    std::string find(const std::string& css) {
        const auto r = command("POST", "/element", {{"using", "css selector"}, {"value", css}});
        return r["value"].begin().value().get<std::string>();
    }
    void click(const std::string& css) {
        command("POST", "/element/" + find(css) + "/click", json::object());
    }
    void type(const std::string& css, const std::string& text) {
        const auto id = find(css);
        command("POST", "/element/" + id + "/clear", json::object());
        command("POST", "/element/" + id + "/value", {{"text", text}});
    }
    json script(const std::string& body, const json& args = json::array()) {
        return command("POST", "/execute/sync", {{"script", body}, {"args", args}})["value"];
    }
    // Waits up to `seconds` for the script to return true.
    bool waitFor(const std::string& condition, double seconds = 20.0) {
        const auto until = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
        while (std::chrono::steady_clock::now() < until) {
            if (script("return !!(" + condition + ");") == true)
                return true;
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
        }
        return false;
    }
    // A mouse gesture over an element: each step moves to (x, y) from the element's centre, then
    // presses ("down"), releases ("up") or only moves ("move").
    void mouse(const std::string& css, const std::vector<std::tuple<std::string, int, int>>& steps) {
        const std::string element = find(css);
        const json origin = {{"element-6066-11e4-a52e-4f735466cecf", element}};
        // Offsets are from the element's centre, which must lie in the viewport.
        script("arguments[0].scrollIntoView({block: 'center'});", json::array({origin}));
        json actions = json::array();
        for (const auto& [what, x, y] : steps) {
            actions.push_back(
                {{"type", "pointerMove"}, {"origin", origin}, {"x", x}, {"y", y}, {"duration", 50}});
            if (what != "move")
                actions.push_back({{"type", what == "down" ? "pointerDown" : "pointerUp"}, {"button", 0}});
        }
        command("POST", "/actions",
                {{"actions",
                  {{{"type", "pointer"},
                    {"id", "mouse"},
                    {"parameters", {{"pointerType", "mouse"}}},
                    {"actions", actions}}}}});
    }
    // The viewport as PNG bytes.
    std::string screenshot() {
        return base64Decode(command("GET", "/screenshot", nullptr)["value"].get<std::string>());
    }

private:
    static int freePort() {
        const int s = ::socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in a{};
        a.sin_family = AF_INET;
        a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t len = sizeof a;
        ::bind(s, reinterpret_cast<sockaddr*>(&a), sizeof a);
        ::getsockname(s, reinterpret_cast<sockaddr*>(&a), &len);
        ::close(s);
        return ntohs(a.sin_port);
    }
    static std::string base64Decode(const std::string& in) {
        std::string out;
        int bits = 0, value = 0;
        for (char c : in) {
            int d = c >= 'A' && c <= 'Z'   ? c - 'A'
                    : c >= 'a' && c <= 'z' ? c - 'a' + 26
                    : c >= '0' && c <= '9' ? c - '0' + 52
                    : c == '+'             ? 62
                    : c == '/'             ? 63
                                           : -1;
            if (d < 0)
                continue;
            value = (value << 6) | d;
            if ((bits += 6) >= 8) {
                bits -= 8;
                out.push_back(static_cast<char>((value >> bits) & 0xFF));
            }
        }
        return out;
    }
    httplib::Client client() const {
        httplib::Client c("127.0.0.1", m_port);
        c.set_read_timeout(60, 0);
        return c;
    }
    json send(const std::string& method, const std::string& path, const json& body) {
        auto c = client();
        httplib::Result r =
            method == "GET" ? c.Get(path.c_str())
                            : c.Post(path.c_str(), body.is_null() ? "{}" : body.dump(), "application/json");
        if (!r)
            throw std::runtime_error("chromedriver did not answer " + path);
        auto j = json::parse(r->body);
        if (r->status != 200)
            throw std::runtime_error("WebDriver " + path + ": " + j["value"].value("message", r->body));
        return j;
    }
    json command(const std::string& method, const std::string& path, const json& body) {
        return send(method, "/session/" + m_session + path, body);
    }

    pid_t m_pid = -1;
    int m_port = 0;
    std::string m_session;
};

} // namespace norda::test
