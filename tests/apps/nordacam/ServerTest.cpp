#ifdef NORDACAM_CORE
#include "apps/nordacam/Server.h"

#include "nordalib/core/keys/Keys.h"
#include "tests/support/Shell.h"
#include "tests/support/TempDir.h"

#include "nordalib/vision/imageio/ImageDecoderPxM.h"

#include <gtest/gtest.h>
#include <httplib.h>
#include <nlohmann/json.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include <filesystem>
#include <fstream>
#include <map>
#include <thread>

using namespace norda::exp;
using namespace nordacam;
using json = nlohmann::json;

namespace {

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
        server->stop();
        thread.join();
        camera->stop();
    }
    httplib::Client client() const {
        httplib::Client c("127.0.0.1", port);
        c.set_read_timeout(10, 0);
        return c;
    }
    // Reads a multipart stream until `parts` parts arrived; returns their bodies.
    std::vector<std::string> readParts(const std::string& path, size_t parts) const {
        std::string buffer;
        std::vector<std::string> out;
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

} // namespace

TEST(NordacamServer, FileNamesFromRequestsStayInTheOutputFolder) {
    EXPECT_EQ(WebServer::fileInFolder("/data/out", "IR000001.RIX"), "/data/out/IR000001.RIX");
    for (const char* bad :
         {"../settings.json", ".hidden", "a/b.pxm", "", "x\\y", "%2e%2e", "name with space"})
        EXPECT_THROW(WebServer::fileInFolder("/data/out", bad), std::exception) << bad;
}

TEST(NordacamServer, RequestsAreAnsweredWithoutAConnection) {
    norda::test::TempDir dir;
    CameraOptions o;
    o.outputDir = dir.file("out");
    o.streams = true;
    o.realTime = false;
    Camera camera(o);
    WebServer server(camera);
    auto ask = [&](const std::string& method, const std::string& path, const std::string& body = "") {
        httplib::Request req;
        req.method = method;
        req.path = path;
        req.body = body;
        httplib::Response res;
        server.handle(req, res);
        return res;
    };
    EXPECT_EQ(ask("GET", "/api/status").status, 200);
    EXPECT_EQ(ask("HEAD", "/api/status").status, 200);
    for (const auto& [method, path] : std::vector<std::pair<std::string, std::string>>{
             {"GET", "/api/nothing"}, {"DELETE", "/api/settings"}, {"GET", "/files/a/b"}}) {
        const auto res = ask(method, path);
        EXPECT_EQ(res.status, 404) << method << " " << path;
        EXPECT_NE(res.body.find("\"error\""), std::string::npos) << method << " " << path;
    }
    EXPECT_EQ(ask("GET", "/snapshot.jpg").status, 503); // no frame yet

    // A file a command writes is a plain name inside the output folder, as on every other route.
    const std::string start = "/api/commands/" + kRecorderName + "/Start";
    const std::string rest = R"(, 1, {"type": "u16", "value": 0}, {"type": "bool", "value": false}])";
    for (const std::string name : {"../escaped.pxm", "/tmp/escaped.pxm", ".hidden.pxm"}) {
        const auto res = ask("POST", start, "[\"" + name + "\"" + rest);
        EXPECT_EQ(res.status, 400) << name << ": " << res.body;
    }
    EXPECT_FALSE(std::filesystem::exists(dir.file("escaped.pxm")));
    const auto inside = ask("POST", start, R"(["inside.pxm")" + rest);
    ASSERT_EQ(inside.status, 200) << inside.body;
    camera.runCycle();
    camera.runCycle();
    EXPECT_TRUE(std::filesystem::exists(dir.file("out/inside.pxm")));

    // Requests found by fuzzing (kept in fuzz/corpus/fuzz_http_api/regression-*): each gets a 4xx
    // answer whose body is valid JSON naming the error.
    const std::pair<std::string, std::string> finds[] = {
        // Bytes that are not UTF-8 in a malformed body, quoted by the parser's message.
        {"/api/settings", "{\"Palette.Acti\xff\xff\xff\xffvePalette\": "},
    };
    for (const auto& [path, body] : finds) {
        const auto res = ask("POST", path, body);
        EXPECT_GE(res.status, 400) << path;
        EXPECT_LT(res.status, 500) << path;
        EXPECT_TRUE(nlohmann::json::parse(res.body, nullptr, false).contains("error")) << res.body;
    }
    const auto badName = ask("GET", "/files/\xff\xfe.rix");
    EXPECT_EQ(badName.status, 400);
    EXPECT_TRUE(nlohmann::json::parse(badName.body, nullptr, false).contains("error")) << badName.body;
}

TEST(NordacamServer, StreamsAndApiAnswerRealClients) {
    norda::test::TempDir dir;
    LiveServer live(dir.file("out"));
    live.waitForFrames();
    auto c = live.client();

    // The page and the JSON API.
    auto page = c.Get("/");
    ASSERT_TRUE(page);
    EXPECT_EQ(page->status, 200);
    EXPECT_NE(page->body.find("/stream.mjpg"), std::string::npos);
    auto m = c.Get("/api/measurements");
    ASSERT_TRUE(m);
    ASSERT_EQ(m->status, 200);
    const auto measurements = json::parse(m->body);
    EXPECT_EQ(measurements["spots"].size(), 3u);
    auto t = c.Get("/api/temperature?x=320&y=240");
    ASSERT_TRUE(t);
    EXPECT_EQ(t->status, 200);
    EXPECT_NEAR(json::parse(t->body)["celsius"].get<double>(), 22.0, 1.5);
    EXPECT_EQ(c.Get("/api/temperature?x=900&y=1")->status, 400);
    EXPECT_EQ(c.Get("/api/temperature?x=abc&y=1")->status, 400);

    // Settings through the store; bad keys and JSON are refused with 4xx.
    auto set = c.Post("/api/settings", R"({"Palette.ActivePalette": "rainbow"})", "application/json");
    ASSERT_TRUE(set);
    EXPECT_EQ(set->status, 200);
    EXPECT_EQ(live.camera->store().getValue<std::string>(Id::Palette::ActivePalette), "rainbow");
    EXPECT_EQ(c.Post("/api/settings", R"({"No.Such": 1})", "application/json")->status, 400);
    auto unknownPalette =
        c.Post("/api/settings", R"({"Palette.ActivePalette": "plaid"})", "application/json");
    EXPECT_EQ(unknownPalette->status, 400);
    EXPECT_NE(unknownPalette->body.find("unknown palette"), std::string::npos);
    EXPECT_EQ(c.Post("/api/settings", R"({"ActiveMeasRange.Name": 9})", "application/json")->status, 400);
    EXPECT_EQ(live.camera->store().getValue<std::string>(Id::Palette::ActivePalette), "rainbow");
    EXPECT_EQ(c.Post("/api/settings", R"({"Palette.ActivePalette": )", "application/json")->status, 400);
    EXPECT_EQ(c.Get("/api/settings/No.Such")->status, 404);
    auto put = c.Put("/api/settings/Environment.EmissivityValue", "0.93", "application/json");
    EXPECT_EQ(put->status, 200);
    EXPECT_FLOAT_EQ(live.camera->store().getValue<float>(Id::Environment::EmissivityValue), 0.93f);

    // Commands of the elements through the command registry.
    auto commands = json::parse(c.Get("/api/commands")->body);
    EXPECT_TRUE(commands.contains(kMjpegStreamName));
    EXPECT_TRUE(commands.contains(Cmd::ApplicationControlGroup));
    auto call =
        c.Post(("/api/commands/" + Cmd::ApplicationControlGroup + "/" + Cmd::SaveUserSettings).c_str(), "[]",
               "application/json");
    EXPECT_EQ(call->status, 200) << call->body;
    EXPECT_TRUE(std::filesystem::exists(dir.file("out/settings.json")));
    EXPECT_EQ(c.Post("/api/commands/Nobody/Start", "[]", "application/json")->status, 404);
    EXPECT_EQ(c.Post(("/api/commands/" + kMjpegStreamName + "/Start").c_str(), R"(["x"])", "application/json")
                  ->status,
              400);
    for (const char* escape : {"/files/..%2Fsettings.json", "/files/%2E%2E", "/files/.settings"}) {
        auto r = c.Get(escape);
        EXPECT_TRUE(r->status == 400 || r->status == 404) << escape << " " << r->status;
        EXPECT_EQ(r->body.find("Miscellaneous"), std::string::npos);
    }
    EXPECT_EQ(c.Get("/files/nothing.rix")->status, 404);

    // Motion JPEG: parts decode to images of the scene.
    const auto jpegs = live.readParts("/stream.mjpg", 2);
    ASSERT_EQ(jpegs.size(), 2u);
    const cv::Mat image =
        cv::imdecode(std::vector<uchar>(jpegs[1].begin(), jpegs[1].end()), cv::IMREAD_COLOR);
    EXPECT_EQ(image.size(), cv::Size(640, 480));

    // Radiometric stream: PXM frames with temperatures in their metadata.
    const auto pxm = live.readParts("/stream.pxm", 1);
    ASSERT_EQ(pxm.size(), 1u);
    const std::string file = dir.file("frame.pxm");
    std::ofstream(file, std::ios::binary) << pxm[0];
    norda::vision::ImageDecoderPxM decoder;
    ASSERT_TRUE(decoder.open(file));
    cv::Mat frame;
    ASSERT_TRUE(decoder.grab(frame, nullptr));
    EXPECT_EQ(frame.type(), CV_16UC1);
    EXPECT_EQ(frame.size(), cv::Size(640, 480));
    EXPECT_TRUE(decoder.getMetaData().contains(Id::MeasPoints::HotSpot::MeasPoint));
    EXPECT_TRUE(decoder.getMetaData().contains(Id::Environment::EmissivityValue));

    // Streams stop when nobody watches.
    for (int i = 0; i < 100 && (live.camera->mjpegHub().readers() || live.camera->pxmHub().readers()); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_EQ(live.camera->mjpegHub().readers(), 0);

    auto save = c.Post("/api/save", "", "application/json");
    ASSERT_TRUE(save);
    EXPECT_EQ(save->status, 200) << save->body;
    EXPECT_EQ(json::parse(save->body)["file"], "IR000001.RIX");
    auto capture = c.Get("/api/capture");
    EXPECT_EQ(capture->status, 200);
    EXPECT_GT(capture->body.size(), 600000u);
}

TEST(NordacamServer, BrowserShowsTheLiveImage) {
    std::string browser;
    for (const char* name : {"chromium", "chromium-browser"})
        if (norda::test::haveTool(name)) {
            browser = name;
            break;
        }
    if (browser.empty())
        GTEST_SKIP() << "no chromium installed (tools/install-deps.sh with NORDA_WITH_BROWSER=1)";
    norda::test::TempDir dir;
    LiveServer live(dir.file("out"));
    live.waitForFrames();
    const std::string shot = dir.file("page.png");
    const std::string command = "timeout 60 " + browser +
                                " --headless --no-sandbox --disable-gpu --disable-background-networking"
                                " --disable-component-update --disable-sync --no-first-run --user-data-dir=" +
                                dir.file("profile") + " --window-size=1100,700 --virtual-time-budget=3000" +
                                " --screenshot=" + shot + " http://127.0.0.1:" + std::to_string(live.port) +
                                "/";
    norda::test::runCommand(command);
    const cv::Mat png = cv::imread(shot, cv::IMREAD_COLOR);
    ASSERT_FALSE(png.empty()) << "no screenshot from " << browser;
    // The live image area (top left, 640 x 480 below the title) shows the scene's colours, not a
    // blank page: many distinct colours and a wide range of brightness.
    const cv::Mat view = png(cv::Rect(16, 50, 640, 480) & cv::Rect(0, 0, png.cols, png.rows));
    cv::Mat grey;
    cv::cvtColor(view, grey, cv::COLOR_BGR2GRAY);
    double lo, hi;
    cv::minMaxLoc(grey, &lo, &hi);
    EXPECT_GT(hi - lo, 100.0);
    cv::Scalar mean, stddev;
    cv::meanStdDev(grey, mean, stddev);
    EXPECT_GT(stddev[0], 10.0);
}

// The viewer's visual-camera choice: each fusion mode through the settings API, a screenshot each
// (written to <build>/test-pictures/ to be looked at).
TEST(NordacamServer, BrowserShowsTheFusionModes) {
    if (!norda::test::haveTool("chromium"))
        GTEST_SKIP() << "no chromium installed (tools/install-deps.sh with NORDA_WITH_BROWSER=1)";
    norda::test::TempDir dir;
    LiveServer live(dir.file("out"));
    live.waitForFrames();
    const std::string folder = std::string(NORDA_BINARY_DIR) + "/test-pictures";
    std::filesystem::create_directories(folder);
    std::map<std::string, cv::Mat> views;
    for (const char* mode : {"Off", "PictureInPicture", "AlphaBlend", "Edges"}) {
        auto c = live.client();
        auto put = c.Put("/api/settings/Fusion.Mode", std::string("\"") + mode + "\"", "application/json");
        ASSERT_TRUE(put && put->status == 200) << mode;
        const std::string shot = folder + "/viewer-" + mode + ".png";
        std::filesystem::remove(shot);
        norda::test::runCommand("timeout 60 chromium --headless --no-sandbox --disable-gpu --no-first-run "
                                "--disable-background-networking --user-data-dir=" +
                                dir.file(std::string("p") + mode) +
                                " --window-size=1100,700 --virtual-time-budget=3000 --screenshot=" + shot +
                                " http://127.0.0.1:" + std::to_string(live.port) + "/");
        const cv::Mat png = cv::imread(shot, cv::IMREAD_COLOR);
        ASSERT_FALSE(png.empty()) << mode;
        views[mode] = png(cv::Rect(16, 50, 640, 480) & cv::Rect(0, 0, png.cols, png.rows)).clone();
    }
    // Picture in picture shows the visual view: the beige wall around the infrared image.
    const cv::Vec3b corner = views["PictureInPicture"].at<cv::Vec3b>(20, 20);
    EXPECT_NEAR(corner[2], 196, 25); // red of the wall's colour (BGR)
    EXPECT_NEAR(corner[0], 176, 25);
    for (const char* mode : {"PictureInPicture", "AlphaBlend", "Edges"})
        EXPECT_GT(cv::norm(views[mode], views["Off"], cv::NORM_L1) / views["Off"].total(), 3.0) << mode;
    auto get = live.client().Get("/api/measurements");
    ASSERT_TRUE(get && get->status == 200);
    const auto m = nlohmann::json::parse(get->body);
    EXPECT_EQ(m["fusion"], "Edges");
    EXPECT_TRUE(m.contains("laser") && m.contains("marker"));
    auto bad = live.client().Put("/api/settings/Fusion.Mode", "\"Sepia\"", "application/json");
    EXPECT_EQ(bad->status, 400);
}
#endif
