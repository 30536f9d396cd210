// The RTSP streams read by real clients (ffprobe, ffmpeg) beside the HTTP viewer's stream: H.264 of
// the right size at the camera's rate on every path; eight clients at once, with one client that
// stalls and one that hangs up, lose no frame at the source and the chain keeps its rate; clients
// that send garbage or open sessions by the hundred are refused while a reader keeps its frames, and
// a viewer that hangs up gets its sessions back at once when it returns.
#if defined(NORDACAM_CORE) && defined(NORDACAM_RTSP)
#include "apps/nordacam/RtspStreams.h"
#include "apps/nordacam/RtspConnectionGuard.h"
#include "apps/nordacam/Server.h"

#include "tests/support/ExclusiveRun.h"
#include "tests/support/Shell.h"
#include "tests/support/TempDir.h"

#include <gtest/gtest.h>
#include <httplib.h>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <map>
#include <random>
#include <sstream>
#include <thread>

using namespace nordacam;
using norda::test::runCommand;

namespace {

const std::vector<std::string> kPaths = {"/thermal", "/visual", "/fusion"};

// The camera, the HTTP server and the RTSP streams in this process, on free loopback ports.
struct LiveRtsp {
    explicit LiveRtsp(const std::string& out) {
        CameraOptions o;
        o.outputDir = out;
        o.settingsFile = out + "/settings.json";
        o.streams = true;
        o.rtsp = true;
        camera = std::make_unique<Camera>(o);
        http = std::make_unique<WebServer>(*camera);
        httpPort = http->bind("127.0.0.1", 0);
        rtsp = std::make_unique<RtspStreams>(*camera, "127.0.0.1", 0);
        camera->start();
        thread = std::thread([this] { http->run(); });
    }
    ~LiveRtsp() {
        rtsp.reset();
        http->stop();
        thread.join();
        camera->stop();
    }
    std::string url(const std::string& path) const {
        return "rtsp://127.0.0.1:" + std::to_string(rtsp->port()) + path;
    }

    std::unique_ptr<Camera> camera;
    std::unique_ptr<WebServer> http;
    std::unique_ptr<RtspStreams> rtsp;
    int httpPort = 0;
    std::thread thread;
};

// Frames an ffmpeg client received from `url` in `seconds` (copied, not decoded: eight decoders
// would take the machine's cores from the camera).
long ffmpegFrames(const std::string& url, int seconds) {
    const std::string out = runCommand("timeout -s INT " + std::to_string(seconds) +
                                       " ffmpeg -nostdin -nostats -progress pipe:1 -rtsp_transport tcp -i " +
                                       url + " -c copy -f null -");
    const auto at = out.rfind("frame=");
    return at == std::string::npos ? -1 : std::stol(out.substr(at + 6));
}

// Sends an RTSP request on `fd` and returns the response's head (its body read and dropped).
std::string request(int fd, const std::string& method, const std::string& url, int cseq,
                    const std::string& headers) {
    const std::string text =
        method + " " + url + " RTSP/1.0\r\nCSeq: " + std::to_string(cseq) + "\r\n" + headers + "\r\n";
    ::send(fd, text.data(), text.size(), MSG_NOSIGNAL);
    std::string in;
    char buf[4096];
    while (in.find("\r\n\r\n") == std::string::npos) {
        const ssize_t n = ::recv(fd, buf, sizeof buf, 0);
        if (n <= 0)
            return {};
        in.append(buf, n);
    }
    const std::string head = in.substr(0, in.find("\r\n\r\n"));
    const auto length = head.find("Content-Length: ");
    size_t body = length == std::string::npos ? 0 : std::stoul(head.substr(length + 16));
    for (size_t have = in.size() - head.size() - 4; have < body;) {
        const ssize_t n = ::recv(fd, buf, std::min(sizeof buf, body - have), 0);
        if (n <= 0)
            break;
        have += n;
    }
    return head;
}

int connectTo(int port) {
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    addr.sin_port = htons(static_cast<uint16_t>(port));
    timeval timeout{5, 0};
    ::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
    if (::connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0) {
        ::close(fd);
        return -1;
    }
    return fd;
}

// What the server sends until it closes the connection ("" and false when it keeps it open 5 s).
bool readUntilClosed(int fd, std::string& text) {
    char buf[4096];
    for (;;) {
        const ssize_t n = ::recv(fd, buf, sizeof buf, 0);
        if (n == 0 || (n < 0 && errno == ECONNRESET))
            return true;
        if (n < 0)
            return false;
        text.append(buf, static_cast<size_t>(n));
    }
}

// The status code of a SETUP of a new session ("200", "503"), or "" when the connection closed.
std::string setupStatus(int fd, const std::string& url, int cseq) {
    const std::string head =
        request(fd, "SETUP", url + "/stream=0", cseq, "Transport: RTP/AVP/TCP;unicast;interleaved=0-1\r\n");
    return head.size() > 12 ? head.substr(9, 3) : std::string();
}

long residentKb() {
    std::ifstream in("/proc/self/status");
    std::string line;
    while (std::getline(in, line))
        if (line.rfind("VmRSS:", 0) == 0)
            return std::atol(line.c_str() + 6);
    return -1;
}

// A client that plays `path` with RTP interleaved on its RTSP connection, with a small receive
// buffer, and then reads nothing: the server's send backlog for it fills at once.
int playWithoutReading(int port, const std::string& path) {
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int size = 8192;
    ::setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &size, sizeof size);
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    addr.sin_port = htons(static_cast<uint16_t>(port));
    if (::connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0) {
        ::close(fd);
        return -1;
    }
    const std::string url = "rtsp://127.0.0.1:" + std::to_string(port) + path;
    request(fd, "DESCRIBE", url, 1, "Accept: application/sdp\r\n");
    const std::string setup =
        request(fd, "SETUP", url + "/stream=0", 2, "Transport: RTP/AVP/TCP;unicast;interleaved=0-1\r\n");
    const auto at = setup.find("Session: ");
    if (at == std::string::npos) {
        ::close(fd);
        return -1;
    }
    const std::string session = setup.substr(at + 9, setup.find_first_of(";\r", at) - at - 9);
    if (request(fd, "PLAY", url, 3, "Session: " + session + "\r\n").find(" 200 ") == std::string::npos) {
        ::close(fd);
        return -1;
    }
    return fd;
}

} // namespace

TEST(RtspStreams, FfprobeReadsEachStreamAsH264AtTheCameraRate) {
    norda::test::TempDir dir;
    LiveRtsp live(dir.file("out"));
    EXPECT_EQ(live.rtsp->paths(), (std::vector<std::string>{"/fusion", "/thermal", "/visual"}));
    for (const auto& path : kPaths) {
        // The stream's description and five seconds of its packets' time stamps, beside the chain's
        // own rate meanwhile (30 frames a second, less on a busy shared machine).
        const uint64_t cycles = live.camera->pipeline().cycles();
        const auto start = std::chrono::steady_clock::now();
        const std::string out = runCommand(
            "timeout 40 ffprobe -v error -rtsp_transport tcp -read_intervals %+5 -select_streams v "
            "-show_entries stream=codec_name,width,height:packet=pts_time -of csv=p=0 " +
            live.url(path));
        std::istringstream lines(out);
        std::string line;
        std::vector<double> pts;
        std::string description;
        while (std::getline(lines, line)) {
            char* end = nullptr;
            const double t = std::strtod(line.c_str(), &end);
            if (std::isalpha(static_cast<unsigned char>(line[0])) && line != "N/A")
                description = line;
            else if (end != line.c_str())
                pts.push_back(t);
        }
        EXPECT_EQ(description, "h264,640,480") << path << ":\n" << out;
        ASSERT_GE(pts.size(), 30u) << path << ":\n" << out;
        std::sort(pts.begin(), pts.end());
        const double fps = (pts.size() - 1) / (pts.back() - pts.front());
        const double chain = (live.camera->pipeline().cycles() - cycles) /
                             std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        EXPECT_LT(fps, 33.0) << path;
        EXPECT_GT(fps, std::min(27.0, 0.8 * chain)) << path << ", the chain at " << chain;
    }
    // The infrared picture carries the overlay, the fused one (mode Off: the same palette image)
    // none: they differ at the colour scale on the right and agree on the wall at the top left.
    std::map<std::string, cv::Mat> pictures;
    for (const std::string path : {"/thermal", "/fusion"}) {
        const std::string png = dir.file(path.substr(1) + ".png");
        runCommand("timeout 30 ffmpeg -nostdin -v error -rtsp_transport tcp -i " + live.url(path) +
                   " -frames:v 1 -y " + png);
        pictures[path] = cv::imread(png);
        ASSERT_EQ(pictures[path].size(), cv::Size(640, 480)) << path;
    }
    cv::Mat difference;
    cv::absdiff(pictures["/thermal"], pictures["/fusion"], difference);
    EXPECT_GT(cv::mean(difference(cv::Rect(618, 40, 20, 380)))[0], 40.0) << "no colour scale";
    EXPECT_LT(cv::mean(difference(cv::Rect(10, 10, 80, 60)))[0], 8.0);
    // A stream nobody watches any more is stopped; an unknown path is refused.
    EXPECT_FALSE(live.rtsp->stats("/thermal").playing);
    int status = 0;
    runCommand("timeout 20 ffprobe -v error -rtsp_transport tcp " + live.url("/nothing"), &status);
    EXPECT_NE(status, 0);
    EXPECT_THROW(live.rtsp->stats("/nothing"), norda::Exception);
}

// NORDA_RTSP_SECONDS sets how long the clients read (the suite's default 15 s; ctest's
// RtspStreams.EightClientsForAMinute, label "long", a minute).
TEST(RtspStreams, EightClientsAndTheViewerWhileOneStallsAndOneHangsUp) {
    norda::test::ExclusiveRun exclusive; // times the camera: nothing heavy beside it
    norda::test::TempDir dir;
    LiveRtsp live(dir.file("out"));
    const int seconds = std::getenv("NORDA_RTSP_SECONDS") ? std::atoi(std::getenv("NORDA_RTSP_SECONDS")) : 15;

    // The chain's rate alone first: the machine may be shared, and its load is not the streams'.
    auto rate = [&](auto body) {
        const uint64_t before = live.camera->pipeline().cycles();
        const auto t0 = std::chrono::steady_clock::now();
        body();
        return (live.camera->pipeline().cycles() - before) /
               std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    };
    const double alone = rate([] { std::this_thread::sleep_for(std::chrono::seconds(3)); });

    const int stalled = playWithoutReading(live.rtsp->port(), "/thermal");
    ASSERT_GE(stalled, 0);
    ::close(playWithoutReading(live.rtsp->port(), "/fusion")); // hangs up without a TEARDOWN
    std::vector<long> frames(8);
    size_t jpegs = 0;
    const double withClients = rate([&] {
        const auto start = std::chrono::steady_clock::now();
        std::vector<std::thread> clients;
        for (size_t i = 0; i < frames.size(); ++i)
            clients.emplace_back(
                [&, i] { frames[i] = ffmpegFrames(live.url(kPaths[i % kPaths.size()]), seconds); });
        // The HTTP viewer's stream beside them: frames keep coming.
        {
            httplib::Client c("127.0.0.1", live.httpPort);
            c.set_read_timeout(10, 0);
            const auto until = start + std::chrono::seconds(seconds);
            c.Get("/stream.mjpg", [&](const char* data, size_t n) {
                jpegs += norda::test::countOf(std::string(data, n), "--nordacamframe");
                return std::chrono::steady_clock::now() < until;
            });
        }
        for (auto& t : clients)
            t.join();
    });
    ::close(stalled);

    // Below 20 frames a second alone the machine is too busy for the chain's rate to tell anything.
    if (alone > 20.0) {
        EXPECT_GT(withClients, 0.9 * alone) << "the chain slowed down from " << alone << " frames a second";
    }
    // A client's first seconds go to connecting, probing and the first key frame.
    const double expected = 0.9 * withClients * (seconds - 3);
    EXPECT_GT(jpegs, size_t(0.7 * expected)) << "the HTTP stream slowed down";
    for (size_t i = 0; i < frames.size(); ++i)
        EXPECT_GT(frames[i], expected) << "client " << i << " on " << kPaths[i % kPaths.size()];
    for (const auto& path : kPaths) {
        const auto stats = live.rtsp->stats(path);
        EXPECT_GT(stats.offered, expected) << path;
        EXPECT_EQ(stats.dropped, 0u) << path << ": frames dropped before the encoder";
    }
}

TEST(RtspStreams, RefusesGarbageAndSessionFloodsWithoutDisturbingTheOthers) {
    norda::test::ExclusiveRun exclusive; // a reader's rate is measured
    norda::test::TempDir dir;
    LiveRtsp live(dir.file("out"));
    const int port = live.rtsp->port();
    const std::string url = live.url("/thermal");
    const uint64_t cycles = live.camera->pipeline().cycles();
    const auto start = std::chrono::steady_clock::now();
    long frames = -1;
    std::thread reader([&] { frames = ffmpegFrames(url, 15); });
    std::this_thread::sleep_for(std::chrono::seconds(3)); // it holds its session

    // Random bytes and a request line that is not RTSP: 400, and the connection closed.
    std::mt19937 random(26);
    std::string noise(4096, '\0');
    for (auto& c : noise)
        c = static_cast<char>(random());
    for (const std::string& garbage : {noise, std::string("HELLO WORLD\r\n\r\n")}) {
        const int fd = connectTo(port);
        ::send(fd, garbage.data(), garbage.size(), MSG_NOSIGNAL);
        std::string answer;
        EXPECT_TRUE(readUntilClosed(fd, answer)) << "the connection stays open";
        EXPECT_EQ(answer.rfind("RTSP/1.0 400 ", 0), 0u) << answer;
        ::close(fd);
    }

    // A header that never ends: cut off once it passes the limit, without the memory it sent.
    {
        const long before = residentKb();
        const int fd = connectTo(port);
        const std::string head = "DESCRIBE " + url + " RTSP/1.0\r\nCSeq: 1\r\n";
        ::send(fd, head.data(), head.size(), MSG_NOSIGNAL);
        std::string lines;
        for (int i = 0; i < 512; ++i)
            lines += "X-Padding: " + std::to_string(i) + " of a header that never ends\r\n";
        size_t sent = 0;
        bool closed = false;
        char byte;
        for (auto until = std::chrono::steady_clock::now() + std::chrono::seconds(10);
             !closed && std::chrono::steady_clock::now() < until;) {
            const ssize_t n = ::send(fd, lines.data(), lines.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
            if (n > 0)
                sent += static_cast<size_t>(n);
            else if (errno != EAGAIN)
                closed = true;
            const ssize_t r = ::recv(fd, &byte, 1, MSG_DONTWAIT);
            closed = closed || r == 0 || (r < 0 && errno == ECONNRESET);
            if (n <= 0)
                std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        EXPECT_TRUE(closed) << sent << " bytes of header taken";
        ::close(fd);
        EXPECT_LT(residentKb() - before, 16 * 1024) << sent << " bytes of header sent";
    }

    // Sessions by the hundred from one address, on one connection and on many: its share
    // (the reader holds one), then 503.
    const int flood = connectTo(port);
    std::map<std::string, int> statuses;
    for (int i = 0; i < 100; ++i)
        ++statuses[setupStatus(flood, url, i + 1)];
    EXPECT_EQ(statuses["200"], RtspConnectionGuard::kSessionsPerAddress - 1);
    EXPECT_EQ(statuses["503"], 100 - statuses["200"]);
    std::vector<int> many;
    statuses.clear();
    for (int i = 0; i < 200; ++i) {
        many.push_back(connectTo(port));
        ++statuses[setupStatus(many.back(), url, 1)];
    }
    EXPECT_EQ(statuses["503"], 200) << statuses["200"] << " accepted";
    for (int fd : many)
        ::close(fd);
    ::close(flood);

    // A viewer from that address that hangs up and comes back at once, again and again, sets up its
    // share each time and then reads the stream: its closed connections' sessions went with them
    // (kept to their timeout, the fourth return would find the 64 in all taken).
    for (int round = 0; round < 4; ++round) {
        const int fd = connectTo(port);
        int accepted = 0;
        // Until the server has seen the last connection close, its sessions still count.
        const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(5);
        for (int cseq = 1; accepted < RtspConnectionGuard::kSessionsPerAddress - 1 &&
                           std::chrono::steady_clock::now() < until;
             ++cseq)
            if (setupStatus(fd, url, cseq) == "200")
                ++accepted;
            else
                std::this_thread::sleep_for(std::chrono::milliseconds(20));
        EXPECT_EQ(accepted, RtspConnectionGuard::kSessionsPerAddress - 1) << "return " << round;
        ::close(fd);
    }
    EXPECT_GT(ffmpegFrames(url, 5), 0) << "the returning viewer reads nothing";

    reader.join();
    const double chain = (live.camera->pipeline().cycles() - cycles) /
                         std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    EXPECT_GT(frames, 0.8 * chain * (15 - 3)) << "the reader, with the chain at " << chain;
}

#endif
