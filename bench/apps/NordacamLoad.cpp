// nordaload: load on `nordacam serve` (`make load`, `make soak`). The real program on the simulated
// camera, 20 stream clients on both streams (steady readers, stalled readers that stop reading
// after the first part, readers that hang up in the middle of a part and reconnect) while the JSON
// API is polled. It measures and checks that the pipeline keeps its paced rate, that every steady
// reader keeps getting frames whatever the stalled ones do, that stalled readers are dropped by
// the server, that memory and threads stay flat, and that the server stops promptly with stalled
// readers connected; it prints the figures and exits non-zero when a check fails.
//
// With NORDA_LOAD_RTSP_CLIENTS=n, the server streams RTSP too and n ffmpeg clients read its H.264
// streams (/thermal, /visual, /fusion in turn) beside the HTTP readers; each must keep the paced rate.
//
// The length is a parameter (environment): NORDA_LOAD_SECONDS (default 30), NORDA_LOAD_REPORT_SECONDS
// (a figures line every so often; default: only at the end), NORDA_LOAD_FPS (paced rate, default 30).
// `make load` runs it for 5 minutes, `make soak` for 10, both with eight RTSP clients.
#include <httplib.h>
#include <nlohmann/json.hpp>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <mutex>
#include <thread>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;
using json = nlohmann::json;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kSanitized = true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = false;
#endif
#else
constexpr bool kSanitized = false;
#endif

double envNumber(const char* name, double fallback) {
    const char* v = std::getenv(name);
    if (!v || !*v)
        return fallback;
    char* end = nullptr;
    const double d = std::strtod(v, &end);
    return end && *end == '\0' && d > 0 ? d : fallback;
}

double seconds(Clock::duration d) {
    return std::chrono::duration<double>(d).count();
}

void sleepFor(double s) {
    std::this_thread::sleep_for(std::chrono::duration<double>(s));
}

// `nordacam serve` as its own process on a free loopback port; its memory and threads are read
// from /proc.
class ServerProcess {
public:
    ServerProcess(const std::string& out, double fps, bool rtsp) {
        const std::string fpsText = std::to_string(fps);
        int fds[2];
        if (::pipe(fds) != 0)
            return;
        m_pid = ::fork();
        if (m_pid == 0) {
            ::dup2(fds[1], STDOUT_FILENO);
            ::close(fds[0]);
            ::close(fds[1]);
            if (rtsp)
                ::execl(NORDACAM_BINARY, "nordacam", "serve", "--port", "0", "--out", out.c_str(), "--fps",
                        fpsText.c_str(), "--rtsp-port", "0", static_cast<char*>(nullptr));
            else
                ::execl(NORDACAM_BINARY, "nordacam", "serve", "--port", "0", "--out", out.c_str(), "--fps",
                        fpsText.c_str(), static_cast<char*>(nullptr));
            ::_exit(127);
        }
        ::close(fds[1]);
        m_out = fds[0];
        // The first line names the port; the program may take a while to start under sanitizers.
        const auto deadline = Clock::now() + std::chrono::seconds(60);
        while (Clock::now() < deadline && m_port == 0) {
            pollfd p{m_out, POLLIN, 0};
            if (::poll(&p, 1, 200) <= 0)
                continue;
            char buf[512];
            const ssize_t n = ::read(m_out, buf, sizeof buf);
            if (n <= 0)
                break;
            m_output.append(buf, static_cast<size_t>(n));
            const std::string marker = "serving http://127.0.0.1:";
            const auto at = m_output.find(marker);
            if (at != std::string::npos && m_output.find('/', at + marker.size()) != std::string::npos)
                m_port = std::atoi(m_output.c_str() + at + marker.size());
        }
    }
    ~ServerProcess() {
        if (m_pid > 0 && !m_exited) {
            ::kill(m_pid, SIGKILL);
            ::waitpid(m_pid, nullptr, 0);
        }
        if (m_out >= 0)
            ::close(m_out);
    }
    int port() const { return m_port; }
    const std::string& output() const { return m_output; }
    // The RTSP port the server printed before the HTTP one, or 0.
    int rtspPort() const {
        const std::string marker = "rtsp://127.0.0.1:";
        const auto at = m_output.find(marker);
        return at == std::string::npos ? 0 : std::atoi(m_output.c_str() + at + marker.size());
    }

    // A line of /proc/<pid>/status as a number (VmRSS in kB, Threads).
    long status(const std::string& field) const {
        std::ifstream in("/proc/" + std::to_string(m_pid) + "/status");
        std::string line;
        while (std::getline(in, line))
            if (line.rfind(field + ":", 0) == 0)
                return std::atol(line.c_str() + field.size() + 1);
        return -1;
    }

    // SIGTERM, then waits up to `timeout` seconds. Returns the wait status, -1 if it did not end.
    int stop(double timeout, double& took) {
        const auto start = Clock::now();
        ::kill(m_pid, SIGTERM);
        int st = 0;
        while (seconds(Clock::now() - start) < timeout) {
            if (::waitpid(m_pid, &st, WNOHANG) == m_pid) {
                m_exited = true;
                break;
            }
            sleepFor(0.01);
        }
        took = seconds(Clock::now() - start);
        if (!m_exited)
            return -1;
        char buf[4096];
        ssize_t n;
        while ((n = ::read(m_out, buf, sizeof buf)) > 0)
            m_output.append(buf, static_cast<size_t>(n));
        return st;
    }

private:
    pid_t m_pid = -1;
    int m_out = -1;
    int m_port = 0;
    bool m_exited = false;
    std::string m_output;
};

// Splits the multipart stream into parts as a viewer does; checks the framing and each part's
// first bytes (a JPEG or a PXM header).
class PartReader {
public:
    explicit PartReader(bool jpeg) : m_jpeg(jpeg) {}

    // Complete parts in the new bytes; -1 when the stream is not what the server must send.
    int feed(const char* data, size_t n) {
        m_buf.append(data, n);
        if (!m_headerDone) {
            const auto end = m_buf.find("\r\n\r\n");
            if (end == std::string::npos)
                return m_buf.size() > 8192 ? fail("no end of the response header") : 0;
            if (m_buf.rfind("HTTP/1.1 200", 0) != 0)
                return fail("answer " + m_buf.substr(0, m_buf.find('\r')));
            m_headerDone = true;
            m_pos = end + 4;
        }
        int parts = 0;
        static const std::string boundary = "--nordacamframe\r\n";
        while (true) {
            if (m_buf.size() - m_pos < boundary.size())
                break;
            if (m_buf.compare(m_pos, boundary.size(), boundary) != 0)
                return fail("no boundary where a part must start");
            const auto headEnd = m_buf.find("\r\n\r\n", m_pos);
            if (headEnd == std::string::npos)
                break;
            const auto lenAt = m_buf.find("Content-Length: ", m_pos);
            if (lenAt == std::string::npos || lenAt > headEnd)
                return fail("a part without Content-Length");
            const size_t len = std::strtoul(m_buf.c_str() + lenAt + 16, nullptr, 10);
            const size_t body = headEnd + 4;
            if (m_buf.size() < body + len + 2)
                break;
            const bool ok = m_jpeg ? len > 4 && static_cast<unsigned char>(m_buf[body]) == 0xFF &&
                                         static_cast<unsigned char>(m_buf[body + 1]) == 0xD8 &&
                                         static_cast<unsigned char>(m_buf[body + len - 1]) == 0xD9
                                   : len > 640 * 480 * 2 && m_buf[body] == 'P';
            if (!ok || m_buf.compare(body + len, 2, "\r\n") != 0)
                return fail("a damaged part");
            m_pos = body + len + 2;
            ++parts;
        }
        if (m_pos > (1u << 20)) {
            m_buf.erase(0, m_pos);
            m_pos = 0;
        }
        return parts;
    }
    // Bytes of a part begun but not complete.
    size_t pending() const { return m_headerDone ? m_buf.size() - m_pos : 0; }
    const std::string& error() const { return m_error; }

private:
    int fail(const std::string& what) {
        m_error = what;
        return -1;
    }
    bool m_jpeg;
    bool m_headerDone = false;
    std::string m_buf;
    size_t m_pos = 0;
    std::string m_error;
};

// A loopback connection that asked for `path`; `rcvbuf` > 0 makes the receive buffer small so a
// reader that stops reading backs up into the server quickly.
int openStream(int port, const std::string& path, int rcvbuf = 0) {
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return -1;
    if (rcvbuf > 0)
        ::setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &rcvbuf, sizeof rcvbuf);
    timeval tv{0, 200000};
    ::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof tv);
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    addr.sin_port = htons(static_cast<uint16_t>(port));
    const std::string request = "GET " + path + " HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n";
    if (::connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0 ||
        ::send(fd, request.data(), request.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(request.size())) {
        ::close(fd);
        return -1;
    }
    return fd;
}

enum class Kind { Steady, Stalled, Reconnecting };

struct Client {
    Kind kind;
    std::string path;
    std::atomic<uint64_t> frames{0};
    std::mutex mutex;
    std::vector<double> arrivals; // seconds since the start, steady readers only
    std::string error;
    int stalls = 0, stallsDropped = 0, stallsNotDropped = 0;
    int connections = 0;
    int openAtEnd = -1; // a stalled reader's connection left open for the shutdown

    bool jpeg() const { return path == "/stream.mjpg"; }
    const char* kindName() const {
        return kind == Kind::Steady ? "steady" : kind == Kind::Stalled ? "stalled" : "reconnecting";
    }
    void setError(const std::string& e) {
        std::lock_guard<std::mutex> lock(mutex);
        if (error.empty())
            error = e;
    }
};

// Reads until `parts` parts arrived, the stream failed or the deadline passed.
int readParts(int fd, PartReader& reader, int parts, double timeout, const std::atomic<bool>& stop) {
    char buf[65536];
    int got = 0;
    const auto deadline = Clock::now() + std::chrono::duration<double>(timeout);
    while (got < parts && !stop && Clock::now() < deadline) {
        const ssize_t n = ::recv(fd, buf, sizeof buf, 0);
        if (n == 0)
            return -1;
        if (n < 0) {
            if (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR)
                continue;
            return -1;
        }
        const int p = reader.feed(buf, static_cast<size_t>(n));
        if (p < 0)
            return -1;
        got += p;
    }
    return got;
}

struct Load {
    int port;
    Clock::time_point start;
    std::atomic<bool> stop{false};
    double stallSeconds;
    double now() const { return seconds(Clock::now() - start); }
};

void steadyReader(Client& c, Load& load) {
    const int fd = openStream(load.port, c.path);
    if (fd < 0)
        return c.setError("can not connect");
    ++c.connections;
    PartReader reader(c.jpeg());
    std::vector<char> buf(1 << 16);
    while (!load.stop) {
        const ssize_t n = ::recv(fd, buf.data(), buf.size(), 0);
        if (n > 0) {
            const int parts = reader.feed(buf.data(), static_cast<size_t>(n));
            if (parts < 0) {
                c.setError(reader.error());
                break;
            }
            if (parts > 0) {
                const double t = load.now();
                std::lock_guard<std::mutex> lock(c.mutex);
                c.arrivals.insert(c.arrivals.end(), static_cast<size_t>(parts), t);
                c.frames += static_cast<uint64_t>(parts);
            }
        } else if (n == 0 || (errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR)) {
            c.setError("the server ended a steady reader's stream at " + std::to_string(load.now()) + " s");
            break;
        }
    }
    ::close(fd);
}

// Takes the first part, then stops reading; after `stallSeconds` it drains what the connection
// still holds and expects the server to have hung up. Then again, until the end, where the last
// stalled connection stays open for the shutdown.
void stalledReader(Client& c, Load& load) {
    while (!load.stop) {
        const int fd = openStream(load.port, c.path, 8192);
        if (fd < 0)
            return c.setError("can not connect");
        ++c.connections;
        PartReader reader(c.jpeg());
        if (readParts(fd, reader, 1, 20.0, load.stop) < 1) {
            ::close(fd);
            if (!load.stop)
                c.setError("no first part: " + reader.error());
            return;
        }
        ++c.frames;
        const double until = load.now() + load.stallSeconds;
        while (!load.stop && load.now() < until)
            sleepFor(0.05);
        if (load.stop) {
            c.openAtEnd = fd;
            return;
        }
        ++c.stalls;
        // The server must have given up on this connection: what is left is read, then the end.
        bool ended = false;
        char buf[65536];
        const double drainUntil = load.now() + 5.0;
        while (load.now() < drainUntil) {
            const ssize_t n = ::recv(fd, buf, sizeof buf, 0);
            if (n == 0 || (n < 0 && errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR)) {
                ended = true;
                break;
            }
        }
        ++(ended ? c.stallsDropped : c.stallsNotDropped);
        ::close(fd);
    }
}

// Hangs up in the middle of a part (half of the time with a reset), and reconnects.
void reconnectingReader(Client& c, Load& load) {
    bool reset = false;
    while (!load.stop) {
        const int fd = openStream(load.port, c.path);
        if (fd < 0)
            return c.setError("can not connect");
        ++c.connections;
        PartReader reader(c.jpeg());
        const int got = readParts(fd, reader, 1, 20.0, load.stop);
        if (got < 1 && !load.stop)
            c.setError("no first part: " + reader.error());
        c.frames += static_cast<uint64_t>(std::max(got, 0));
        // Into the next part.
        char buf[4096];
        for (int i = 0; i < 50 && !load.stop && reader.pending() == 0; ++i) {
            const ssize_t n = ::recv(fd, buf, sizeof buf, 0);
            if (n > 0)
                reader.feed(buf, static_cast<size_t>(n));
        }
        if (reset) {
            linger l{1, 0};
            ::setsockopt(fd, SOL_SOCKET, SO_LINGER, &l, sizeof l);
        }
        reset = !reset;
        ::close(fd);
        sleepFor(0.1);
    }
}

struct ApiStats {
    std::mutex mutex;
    long requests = 0, failures = 0;
    double slowest = 0;
    std::string firstFailure;
    json status;
};

void pollApi(int port, Load& load, ApiStats& stats) {
    httplib::Client c("127.0.0.1", port);
    c.set_keep_alive(true);
    c.set_connection_timeout(5, 0);
    c.set_read_timeout(10, 0);
    const char* paths[] = {"/api/status", "/api/measurements", "/api/temperature?x=320&y=240",
                           "/api/settings/Palette.ActivePalette", "/snapshot.jpg"};
    for (size_t i = 0; !load.stop; ++i) {
        const char* path = paths[i % 5];
        const auto t0 = Clock::now();
        auto res = c.Get(path);
        const double took = seconds(Clock::now() - t0);
        std::lock_guard<std::mutex> lock(stats.mutex);
        ++stats.requests;
        stats.slowest = std::max(stats.slowest, took);
        if (!res || res->status != 200) {
            if (++stats.failures == 1)
                stats.firstFailure = std::string(path) + ": " +
                                     (res ? std::to_string(res->status) + " " + res->body
                                          : "error " + httplib::to_string(res.error()));
        } else if (i % 5 == 0) {
            stats.status = json::parse(res->body, nullptr, false);
        }
        sleepFor(0.1);
    }
}

// The pipeline's cycle count, straight from the API.
uint64_t cycles(int port) {
    httplib::Client c("127.0.0.1", port);
    c.set_read_timeout(10, 0);
    auto res = c.Get("/api/status");
    if (!res || res->status != 200)
        return 0;
    return json::parse(res->body).value("cycles", uint64_t{0});
}

// An ffmpeg process reading an RTSP stream without decoding it (eight decoders would take the
// machine's cores from the server), reconnecting when it ends; frames counted from its progress
// lines.
class RtspClient {
public:
    explicit RtspClient(std::string url) : m_url(std::move(url)) {
        m_thread = std::thread([this] { run(); });
    }
    ~RtspClient() {
        stop();
        m_thread.join();
    }
    void stop() {
        m_stop = true;
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_pid > 0)
            ::kill(m_pid, SIGINT);
    }
    uint64_t frames() const { return m_total + m_current; }
    int connections() const { return m_connections; }
    const std::string& url() const { return m_url; }

private:
    void run() {
        while (!m_stop) {
            // Close-on-exec: another client's ffmpeg must not hold this pipe open after this one ends.
            int fds[2];
            if (::pipe2(fds, O_CLOEXEC) != 0)
                return;
            const pid_t pid = ::fork();
            if (pid == 0) {
                ::dup2(fds[1], STDOUT_FILENO);
                const int null = ::open("/dev/null", O_WRONLY);
                ::dup2(null, STDERR_FILENO);
                ::close(fds[0]);
                ::close(fds[1]);
                ::execlp("ffmpeg", "ffmpeg", "-nostdin", "-nostats", "-loglevel", "error", "-progress",
                         "pipe:1", "-rtsp_transport", "tcp", "-i", m_url.c_str(), "-c", "copy", "-f", "null",
                         "-", static_cast<char*>(nullptr));
                ::_exit(127);
            }
            ::close(fds[1]);
            {
                std::lock_guard<std::mutex> lock(m_mutex);
                m_pid = pid;
            }
            ++m_connections;
            std::string text;
            char buf[1024];
            ssize_t n;
            while ((n = ::read(fds[0], buf, sizeof buf)) > 0) {
                text.append(buf, static_cast<size_t>(n));
                for (auto end = text.find('\n'); end != std::string::npos; end = text.find('\n')) {
                    if (text.rfind("frame=", 0) == 0)
                        m_current = std::strtoull(text.c_str() + 6, nullptr, 10);
                    text.erase(0, end + 1);
                }
            }
            ::close(fds[0]);
            {
                std::lock_guard<std::mutex> lock(m_mutex);
                ::waitpid(pid, nullptr, 0);
                m_pid = -1;
            }
            m_total += m_current;
            m_current = 0;
            if (!m_stop)
                sleepFor(1.0);
        }
    }

    std::string m_url;
    std::thread m_thread;
    std::mutex m_mutex;
    pid_t m_pid = -1;
    std::atomic<bool> m_stop{false};
    std::atomic<uint64_t> m_total{0}, m_current{0};
    std::atomic<int> m_connections{0};
};

struct Sample {
    double t;
    uint64_t cycles;
    long rssKb, threads;
};

// A failed check: printed at once, remembered for the exit status.
struct Checks {
    int failed = 0;
    void operator()(bool ok, const std::string& what) {
        if (!ok) {
            std::printf("[load] FAILED: %s\n", what.c_str());
            ++failed;
        }
    }
};

// A fresh scratch folder for the server's output, removed at the end.
struct ScratchDir {
    ScratchDir() {
        char name[] = "/tmp/nordaload-XXXXXX";
        path = ::mkdtemp(name) ? name : "/tmp";
    }
    ~ScratchDir() {
        std::error_code ec;
        if (path != "/tmp")
            std::filesystem::remove_all(path, ec);
    }
    std::string path;
};

} // namespace

int main() {
    Checks check;
    const double duration = envNumber("NORDA_LOAD_SECONDS", 30);
    const double reportEvery = envNumber("NORDA_LOAD_REPORT_SECONDS", duration);
    const double fps = envNumber("NORDA_LOAD_FPS", 30);
    const double warmUp = std::clamp(duration * 0.1, 15.0, 30.0);
    // Sanitizers make everything several times slower; rates are relative to the paced rate.
    const double rateShare = kSanitized ? 0.5 : 0.8;
    const double longestGap = kSanitized ? 3.0 : 1.5; // a blocked reader would wait for the send timeout

    const int rtspClients = static_cast<int>(envNumber("NORDA_LOAD_RTSP_CLIENTS", 0));

    ScratchDir dir;
    ServerProcess server(dir.path + "/out", fps, rtspClients > 0);
    if (server.port() <= 0) {
        std::printf("[load] the server did not start: %s\n", server.output().c_str());
        return 1;
    }

    // Before its first frame the server rightly answers 503 for temperatures and images.
    {
        httplib::Client c("127.0.0.1", server.port());
        const auto deadline = Clock::now() + std::chrono::seconds(60);
        while (Clock::now() < deadline) {
            auto res = c.Get("/api/temperature?x=320&y=240");
            if (res && res->status == 200)
                break;
            sleepFor(0.1);
        }
    }

    Load load{server.port(), Clock::now(), {}, 12.0};
    std::vector<std::unique_ptr<Client>> clients;
    for (int i = 0; i < 20; ++i) {
        const Kind kind = i < 4 ? Kind::Stalled : i < 6 ? Kind::Reconnecting : Kind::Steady;
        clients.push_back(std::make_unique<Client>());
        clients.back()->kind = kind;
        clients.back()->path = i % 2 ? "/stream.pxm" : "/stream.mjpg";
    }
    ApiStats api;
    std::vector<std::thread> threads;
    for (auto& c : clients)
        threads.emplace_back([&load, c = c.get()] {
            if (c->kind == Kind::Steady)
                steadyReader(*c, load);
            else if (c->kind == Kind::Stalled)
                stalledReader(*c, load);
            else
                reconnectingReader(*c, load);
        });
    threads.emplace_back([&] { pollApi(load.port, load, api); });
    std::vector<std::unique_ptr<RtspClient>> rtsp;
    const char* const rtspPaths[] = {"/thermal", "/visual", "/fusion"};
    if (rtspClients > 0 && server.rtspPort() <= 0) {
        std::printf("[load] the server printed no RTSP port: %s\n", server.output().c_str());
        return 1;
    }
    for (int i = 0; i < rtspClients; ++i)
        rtsp.push_back(std::make_unique<RtspClient>("rtsp://127.0.0.1:" + std::to_string(server.rtspPort()) +
                                                    rtspPaths[i % 3]));
    auto rtspFrames = [&] {
        std::vector<uint64_t> f;
        for (auto& c : rtsp)
            f.push_back(c->frames());
        return f;
    };
    std::vector<Sample> samples; // after the warm-up, for the memory curve

    auto sample = [&] {
        return Sample{load.now(), cycles(load.port), server.status("VmRSS"), server.status("Threads")};
    };
    auto steadyFrames = [&] {
        std::vector<uint64_t> f;
        for (auto& c : clients)
            if (c->kind == Kind::Steady)
                f.push_back(c->frames.load());
        return f;
    };
    std::printf("[load] %.0f s, 20 clients (14 steady, 4 stalled, 2 hanging up mid-part) on "
                "/stream.mjpg and /stream.pxm, %d RTSP clients, API polled, paced at %.0f fps, %u cores%s\n",
                duration, rtspClients, fps, std::thread::hardware_concurrency(),
                kSanitized ? ", sanitizers" : "");

    while (load.now() < warmUp)
        sleepFor(0.05);
    const Sample warm = sample();
    samples.push_back(warm);
    const auto warmRtsp = rtspFrames();
    Sample last = warm;
    auto lastFrames = steadyFrames();
    auto lastRtsp = warmRtsp;
    std::printf("[load] t=%5.1f s after warm-up: RSS %.1f MB, %ld threads\n", warm.t, warm.rssKb / 1024.0,
                warm.threads);
    double nextReport = warm.t + reportEvery;
    while (load.now() < duration) {
        sleepFor(0.05);
        if (load.now() < nextReport || load.now() >= duration)
            continue;
        nextReport += reportEvery;
        const Sample s = sample();
        const auto frames = steadyFrames();
        double lo = 1e9, sum = 0;
        for (size_t i = 0; i < frames.size(); ++i) {
            const double r = (frames[i] - lastFrames[i]) / (s.t - last.t);
            lo = std::min(lo, r);
            sum += r;
        }
        int streams = -1;
        long requests = 0, failures = 0;
        {
            std::lock_guard<std::mutex> lock(api.mutex);
            if (api.status.contains("streamClients"))
                streams = api.status["streamClients"].value("total", -1);
            requests = api.requests;
            failures = api.failures;
        }
        const auto rtspNow = rtspFrames();
        double rtspLow = rtspNow.empty() ? 0 : 1e9;
        for (size_t i = 0; i < rtspNow.size(); ++i)
            rtspLow = std::min(rtspLow, (rtspNow[i] - lastRtsp[i]) / (s.t - last.t));
        std::printf("[load] t=%5.1f s: pipeline %.1f fps, steady readers %.1f min / %.1f mean frames/s, "
                    "RTSP clients %.1f min frames/s, "
                    "%d stream clients at the server, RSS %.1f MB (%+.1f since warm-up), %ld threads, "
                    "API %ld requests (%ld failed)\n",
                    s.t, (s.cycles - last.cycles) / (s.t - last.t), lo, sum / frames.size(), rtspLow, streams,
                    s.rssKb / 1024.0, (s.rssKb - warm.rssKb) / 1024.0, s.threads, requests, failures);
        std::fflush(stdout);
        samples.push_back(s);
        last = s;
        lastFrames = frames;
        lastRtsp = rtspNow;
    }
    const Sample end = sample();
    samples.push_back(end);
    const auto endRtsp = rtspFrames();
    load.stop = true;
    for (auto& t : threads)
        t.join();
    std::vector<int> rtspConnections;
    for (auto& c : rtsp)
        rtspConnections.push_back(c->connections());
    for (auto& c : rtsp) // all at once: each ffmpeg takes a moment to end
        c->stop();
    rtsp.clear(); // the ffmpeg clients hang up before the server stops

    // Shutdown with the stalled readers still connected.
    int stalledOpen = 0;
    for (auto& c : clients)
        stalledOpen += c->openAtEnd >= 0;
    double shutdownTook = 0;
    const int status = server.stop(kSanitized ? 30.0 : 15.0, shutdownTook);
    for (auto& c : clients)
        if (c->openAtEnd >= 0)
            ::close(c->openAtEnd);

    // Figures.
    const double window = end.t - warm.t;
    const double pipelineRate = (end.cycles - warm.cycles) / window;
    std::printf("[load] pipeline: %.2f frames/s over %.0f s (paced %.0f)\n", pipelineRate, window, fps);
    for (size_t i = 0; i < clients.size(); ++i) {
        auto& c = *clients[i];
        if (c.kind == Kind::Steady) {
            std::lock_guard<std::mutex> lock(c.mutex);
            const auto from = std::lower_bound(c.arrivals.begin(), c.arrivals.end(), warm.t);
            const auto to = std::upper_bound(c.arrivals.begin(), c.arrivals.end(), end.t);
            double gap = 0, previous = warm.t;
            for (auto it = from; it != to; ++it) {
                gap = std::max(gap, *it - previous);
                previous = *it;
            }
            gap = std::max(gap, end.t - previous);
            const double rate = (to - from) / window;
            std::printf("[load] client %2zu %-12s steady: %.2f frames/s, longest wait %.2f s\n", i,
                        c.path.c_str(), rate, gap);
            check(rate >= rateShare * fps, "frame rate of client " + std::to_string(i) + " " + c.path);
            check(gap <= longestGap, "longest wait of client " + std::to_string(i) + " " + c.path);
        } else if (c.kind == Kind::Stalled) {
            std::printf("[load] client %2zu %-12s stalled: %d stalls of %.0f s, %d dropped by the server\n",
                        i, c.path.c_str(), c.stalls, load.stallSeconds, c.stallsDropped);
            check(c.stallsNotDropped == 0,
                  "client " + std::to_string(i) + ": the server kept feeding a stalled reader");
        } else {
            std::printf("[load] client %2zu %-12s hung up mid-part %d times\n", i, c.path.c_str(),
                        c.connections);
            check(c.connections >= 2, "client " + std::to_string(i) + " reconnected");
        }
        check(c.error.empty(),
              "client " + std::to_string(i) + " (" + c.kindName() + ", " + c.path + "): " + c.error);
    }
    for (int i = 0; i < rtspClients; ++i) {
        const double rate = (endRtsp[i] - warmRtsp[i]) / window;
        std::printf("[load] RTSP client %d %-8s %.2f frames/s, %d connection(s)\n", i, rtspPaths[i % 3], rate,
                    rtspConnections[i]);
        check(rate >= rateShare * fps, "frame rate of RTSP client " + std::to_string(i));
        check(rtspConnections[i] == 1, "RTSP client " + std::to_string(i) + " lost its stream");
    }
    std::printf("[load] API: %ld requests, %ld failed, slowest %.0f ms%s%s\n", api.requests, api.failures,
                api.slowest * 1000, api.failures ? "; first failure: " : "", api.firstFailure.c_str());
    const double growthMb = (end.rssKb - warm.rssKb) / 1024.0;
    std::printf(
        "[load] memory: RSS %.1f MB after warm-up, %.1f MB at the end (%+.1f MB); threads %ld -> %ld\n",
        warm.rssKb / 1024.0, end.rssKb / 1024.0, growthMb, warm.threads, end.threads);
    // The memory curve: its extremes after the warm-up and the least-squares slope through the samples.
    {
        double n = 0, st = 0, sr = 0, stt = 0, str = 0, lowMb = 1e9, highMb = 0;
        for (const auto& x : samples) {
            const double mb = x.rssKb / 1024.0, minutes = x.t / 60.0;
            n += 1, st += minutes, sr += mb, stt += minutes * minutes, str += minutes * mb;
            lowMb = std::min(lowMb, mb), highMb = std::max(highMb, mb);
        }
        const double slope = n > 1 && n * stt != st * st ? (n * str - st * sr) / (n * stt - st * st) : 0;
        std::printf("[load] memory curve: %.0f samples, RSS %.1f to %.1f MB, slope %+.2f MB/min\n", n, lowMb,
                    highMb, slope);
    }
    std::printf("[load] shutdown with %d stalled readers connected: %.2f s\n", stalledOpen, shutdownTook);
    std::fflush(stdout);

    check(pipelineRate >= rateShare * fps, "pipeline rate");
    check(api.failures == 0, "API requests: " + api.firstFailure);
    check(api.slowest < (kSanitized ? 5.0 : 2.0), "slowest API answer");
    // A radiometric frame is 0.6 MB: keeping one a second, or a few kilobytes per connection of
    // the reconnecting readers, exceeds this within the shortest run. Under the address checker
    // the resident size says little (its allocator and quarantine keep freed memory); there the
    // leak checker at the server's exit (its exit status below) stands in for this bound.
    if (!kSanitized)
        check(growthMb < 8.0, "resident memory growth");
    check(end.threads <= warm.threads + 2, "thread count");
    check(stalledOpen >= 1, "a stalled reader connected at the stop");
    check(status != -1, "the server stopped within the time");
    check(status != -1 && WIFEXITED(status) && WEXITSTATUS(status) == 0,
          "exit status " + std::to_string(status) + "\n" + server.output());
    std::printf("[load] %s\n", check.failed ? "FAILED" : "passed");
    return check.failed ? 1 : 0;
}
