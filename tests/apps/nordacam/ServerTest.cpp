#ifdef NORDACAM_CORE
#include "apps/nordacam/Server.h"
#include "tests/apps/nordacam/ServerSupport.h"

#include "nordalib/core/keys/Keys.h"
#include "tests/support/ExclusiveRun.h"
#include "tests/support/LoopbackStream.h"
#include "tests/support/TempDir.h"

#include "nordalib/vision/imageio/ImageDecoderPxM.h"

#include <gtest/gtest.h>
#include <httplib.h>
#include <nlohmann/json.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <map>
#include <thread>

using namespace norda::exp;
using namespace nordacam;
using json = nlohmann::json;
using norda::test::openStream;
using nordacam::test::LiveServer;
using nordacam::test::testPicturesFolder;
using nordacam::test::ViewerInBrowser;

namespace {

// A stalled viewer backs up into the server at once.
constexpr int kSmallReceiveBuffer = 8192;

// Reads whatever arrives for `seconds`; false as soon as the server has ended the connection.
bool readFor(int fd, double seconds) {
    char buf[65536];
    const auto until = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    while (std::chrono::steady_clock::now() < until) {
        const ssize_t n = ::recv(fd, buf, sizeof buf, 0);
        if (n == 0 || (n < 0 && errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR))
            return false;
    }
    return true;
}

// The answer's status, -1 when there was none (a request that timed out on a busy machine).
int statusOf(const httplib::Result& r) {
    return r ? r->status : -1;
}

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
    const auto notFound = ask("DELETE", "/api/settings");
    EXPECT_EQ(notFound.status, 404);
    EXPECT_NE(notFound.body.find("\"error\""), std::string::npos);
    EXPECT_EQ(ask("GET", "/snapshot.jpg").status, 503); // no frame yet
    // The key schema as the page reads it.
    const auto schema = nlohmann::json::parse(ask("GET", "/api/keys").body);
    EXPECT_EQ(schema["deltaTResults"].size(), 13u);
    nlohmann::json emissivity;
    for (const auto& k : schema["keys"])
        if (k["name"] == "Environment.EmissivityValue")
            emissivity = k;
    EXPECT_EQ(emissivity["range"]["low"], 0.0);
    EXPECT_EQ(emissivity["range"]["lowOpen"], true);
    EXPECT_EQ(emissivity["default"], 0.95);

    // Materials: the user's file beside the settings overrides the library's value; chosen by name
    // for the image or one mark; an unknown name or an unusable file is an error naming it.
    camera.settings().setPath(dir.file("settings.json"));
    std::ofstream(dir.file("materials.txt")) << "brick, red; 0.91; measured on site\n";
    const auto list = nlohmann::json::parse(ask("GET", "/api/materials").body)["materials"];
    EXPECT_TRUE(std::any_of(list.begin(), list.end(), [](const nlohmann::json& m) {
        return m["name"] == "brick, red" && m["emissivity"] == 0.91 && m["source"] == "measured on site";
    }));
    EXPECT_EQ(ask("POST", "/api/material", R"({"name": "Brick, Red"})").status, 200);
    EXPECT_FLOAT_EQ(camera.store().getValue<float>(Id::Environment::EmissivityValue), 0.91f);
    EXPECT_EQ(ask("POST", "/api/material", R"({"name": "water", "mark": "UserArea2"})").status, 200);
    EXPECT_FLOAT_EQ(camera.store().getValue<float>(Id::MeasAreas::UserArea2::Emissivity), 0.96f);
    EXPECT_TRUE(camera.store().getValue<bool>(Id::MeasAreas::UserArea2::LocalParameters));
    EXPECT_EQ(camera.store().getValue<std::string>(Id::MeasAreas::UserArea2::Material), "water");
    // The image's material stays while its emissivity does; typed in by hand, it is forgotten.
    camera.settings().apply({{Id::Environment::EmissivityValue, 0.91}}, "test");
    EXPECT_EQ(camera.store().getValue<std::string>(Id::Environment::Material), "brick, red");
    camera.settings().apply({{Id::Environment::EmissivityValue, 0.9}}, "test");
    EXPECT_EQ(camera.store().getValue<std::string>(Id::Environment::Material), "");
    const auto unknown = ask("POST", "/api/material", R"({"name": "unobtainium"})");
    EXPECT_EQ(unknown.status, 404);
    EXPECT_NE(nlohmann::json::parse(unknown.body)["error"].get<std::string>().find(
                  "unknown material \"unobtainium\""),
              std::string::npos);
    std::ofstream(dir.file("materials.txt")) << "brick, red; 1.5; measured\n";
    EXPECT_EQ(ask("GET", "/api/materials").status, 422);

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

    // Bytes that are not UTF-8, quoted in the answer, still give valid JSON (found by fuzzing; the
    // finds are kept in fuzz/corpus/fuzz_http_api/regression-*).
    const auto badName = ask("GET", "/files/\xff\xfe.rix");
    EXPECT_EQ(badName.status, 400);
    EXPECT_TRUE(nlohmann::json::parse(badName.body, nullptr, false).contains("error")) << badName.body;
}

TEST(NordacamServer, StreamsAndApiAnswerRealClients) {
    norda::test::TempDir dir;
    LiveServer live(dir.file("out"));
    live.waitForFrames();
    auto c = live.client();

    // The JSON API.
    auto m = c.Get("/api/measurements");
    ASSERT_TRUE(m);
    ASSERT_EQ(m->status, 200);
    const auto measurements = json::parse(m->body);
    EXPECT_EQ(measurements["spots"].size(), 3u);
    auto t = c.Get("/api/temperature?x=320&y=240");
    ASSERT_TRUE(t);
    EXPECT_EQ(t->status, 200);
    EXPECT_NEAR(json::parse(t->body)["celsius"].get<double>(), 22.0, 1.5);
    EXPECT_EQ(statusOf(c.Get("/api/temperature?x=640&y=1")), 400);

    // Settings through the store; bad keys and JSON are refused with 4xx.
    auto set = c.Post("/api/settings", R"({"Palette.ActivePalette": "rainbow"})", "application/json");
    ASSERT_TRUE(set);
    EXPECT_EQ(set->status, 200);
    EXPECT_EQ(live.camera->store().getValue<std::string>(Id::Palette::ActivePalette), "rainbow");
    for (const char* bad : {R"({"No.Such": 1})", R"({"Palette.ActivePalette": "plaid"})",
                            R"({"ActiveMeasRange.Name": 9})", R"({"Palette.ActivePalette": )"})
        EXPECT_EQ(statusOf(c.Post("/api/settings", bad, "application/json")), 400) << bad;
    EXPECT_EQ(live.camera->store().getValue<std::string>(Id::Palette::ActivePalette), "rainbow");
    EXPECT_EQ(statusOf(c.Get("/api/settings/No.Such")), 404);
    EXPECT_EQ(statusOf(c.Put("/api/settings/Environment.EmissivityValue", "0.93", "application/json")), 200);

    // Commands of the elements through the command registry.
    const auto commands = c.Get("/api/commands");
    ASSERT_TRUE(commands);
    EXPECT_TRUE(json::parse(commands->body).contains(kMjpegStreamName));
    auto call =
        c.Post(("/api/commands/" + Cmd::ApplicationControlGroup + "/" + Cmd::SaveUserSettings).c_str(), "[]",
               "application/json");
    ASSERT_TRUE(call);
    EXPECT_EQ(call->status, 200) << call->body;
    EXPECT_TRUE(std::filesystem::exists(dir.file("out/settings.json")));
    EXPECT_EQ(statusOf(c.Post("/api/commands/Nobody/Start", "[]", "application/json")), 404);
    for (const char* escape : {"/files/..%2Fsettings.json", "/files/%2E%2E", "/files/.settings"}) {
        auto r = c.Get(escape);
        ASSERT_TRUE(r);
        EXPECT_TRUE(r->status == 400 || r->status == 404) << escape << " " << r->status;
        EXPECT_EQ(r->body.find("Miscellaneous"), std::string::npos);
    }
    EXPECT_EQ(statusOf(c.Get("/files/nothing.rix")), 404);

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
    ASSERT_TRUE(capture);
    EXPECT_EQ(capture->status, 200);
    EXPECT_GT(capture->body.size(), 600000u);
}

// A viewer that stops reading holds up neither the pipeline nor the other viewers: the server drops
// it after its send timeout (5 s), and stops with such a viewer still connected.
TEST(NordacamServer, StalledViewerIsDroppedWithoutHoldingUpTheOthers) {
    norda::test::ExclusiveRun exclusive; // times the server: no browser beside it
    norda::test::TempDir dir;
    LiveServer live(dir.file("out"));
    live.waitForFrames();
    // 0.6 MB a frame: the buffers fill at once.
    const int stalled = openStream(live.port, "/stream.pxm", kSmallReceiveBuffer);
    ASSERT_GE(stalled, 0);
    ASSERT_TRUE(readFor(stalled, 0.5));
    const auto stalledSince = std::chrono::steady_clock::now();
    // Frames keep coming to a steady viewer; one held up by the stalled viewer would wait out the
    // send timeout.
    std::vector<double> times;
    ASSERT_EQ(live.readParts("/stream.mjpg", 120, &times).size(), 120u);
    double longest = times[0];
    for (size_t i = 1; i < times.size(); ++i)
        longest = std::max(longest, times[i] - times[i - 1]);
    EXPECT_LT(longest, 2.5);
    // Well past the send timeout the server has hung up: what is left drains, then the end.
    std::this_thread::sleep_until(stalledSince + std::chrono::seconds(12)); // more on a busy machine
    EXPECT_FALSE(readFor(stalled, 10.0)) << "the server kept a stalled viewer";
    ::close(stalled);

    const int another = openStream(live.port, "/stream.pxm", kSmallReceiveBuffer);
    ASSERT_TRUE(readFor(another, 0.5));
    const auto start = std::chrono::steady_clock::now();
    live.stop(); // at most the send timeout for the stalled viewer's write in progress
    EXPECT_LT(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count(), 8.0);
    ::close(another);
}

// The thermographer's page driven like a person: set the emissivity (a bad one is refused with the
// setting's name in the page), add a point by clicking and an area by dragging, open a saved image
// from the gallery and re-analyse it; the API agrees with what the page did, and the screenshot
// shows the colour scale and the image.
TEST(NordacamServer, BrowserDrivesTheThermographersPage) {
    ViewerInBrowser viewer(1);
    auto& page = viewer.page;
    auto c = viewer.live.client();
    auto api = [&](const std::string& path) { return json::parse(c.Get(path.c_str())->body); };

    ASSERT_TRUE(page.waitFor("document.getElementById('scalemax').textContent.includes('C')"));

    page.type("#emissivity", "0.9");
    page.click("#applyObject");
    ASSERT_TRUE(page.waitFor("document.getElementById('msg').textContent === 'object parameters applied'"));
    EXPECT_FLOAT_EQ(api("/api/settings/Environment.EmissivityValue")["value"].get<float>(), 0.9f);
    page.type("#emissivity", "1.5");
    page.click("#applyObject");
    EXPECT_TRUE(
        page.waitFor("document.getElementById('msg').textContent.includes('Environment.EmissivityValue')"));
    EXPECT_FLOAT_EQ(api("/api/settings/Environment.EmissivityValue")["value"].get<float>(), 0.9f);
    ASSERT_TRUE(page.waitFor("document.getElementById('material').options.length > 0"));
    page.click("#useMaterial"); // the table's first material, its name shown and kept
    ASSERT_TRUE(page.waitFor("document.getElementById('matname').textContent === 'aluminium, anodised'"));
    EXPECT_EQ(api("/api/settings/Environment.Material")["value"], "aluminium, anodised");

    // The image is shown 640 x 480 at its own scale; gestures are given from its centre.
    page.click("#toolmode option[value=point]");
    page.mouse("#overlay", {{"down", -220, -160}, {"up", -220, -160}});
    page.click("#toolmode option[value=area]");
    page.mouse("#overlay", {{"down", -100, -60}, {"move", -40, 0}, {"up", 0, 40}});
    ASSERT_TRUE(page.waitFor("document.querySelectorAll('#tools tr[data-key]').length === 2"));
    const auto thermo = api("/api/thermography");
    EXPECT_EQ(thermo["points"][0]["x"], 100);
    EXPECT_EQ(thermo["points"][0]["y"], 80);
    EXPECT_TRUE(thermo["points"][0]["visible"].get<bool>());
    EXPECT_EQ(thermo["areas"][0]["rect"], json({{"x", 220}, {"y", 180}, {"width", 100}, {"height", 100}}));
    EXPECT_TRUE(thermo["areas"][0]["mean"].contains("celsius"));

    // The image saved before the page opened is in the gallery the page loaded.
    ASSERT_TRUE(page.waitFor(
        "document.querySelector('.thumb img') && document.querySelector('.thumb img').complete"));
    page.click(".thumb");
    ASSERT_TRUE(page.waitFor("document.getElementById('galstate').textContent.startsWith('showing IR')"));
    page.type("#reE", "0.8");
    page.click("#reanalyse");
    ASSERT_TRUE(
        page.waitFor("document.getElementById('galstate').textContent.includes('re-analysed: e 0.80')"));
    const auto state = api("/api/gallery")["state"];
    EXPECT_TRUE(state["reanalysed"].get<bool>());
    EXPECT_FLOAT_EQ(state["emissivity"].get<float>(), 0.8f);
    page.script("window.scrollTo(0, 0);");
    std::this_thread::sleep_for(std::chrono::milliseconds(800)); // the re-analysed image on screen

    const std::string png = page.screenshot();
    std::ofstream("browser-thermography.png", std::ios::binary) << png; // beside the test program
    const cv::Mat shot = cv::imdecode(std::vector<uchar>(png.begin(), png.end()), cv::IMREAD_COLOR);
    ASSERT_FALSE(shot.empty());
    const auto bar = page.script(
        "const r = document.getElementById('scalebar').getBoundingClientRect();"
        "return [Math.round(r.left), Math.round(r.top), Math.round(r.width), Math.round(r.height)];");
    const cv::Rect scale(bar[0].get<int>() + 3, bar[1].get<int>() + 3, bar[2].get<int>() - 6,
                         bar[3].get<int>() - 6);
    cv::Scalar mean, spread;
    cv::meanStdDev(shot(scale & cv::Rect(0, 0, shot.cols, shot.rows)), mean, spread);
    EXPECT_GT(spread[0] + spread[1] + spread[2], 60.0) << "the colour scale shows the palette";
}

// The viewer's visual-camera choice: each fusion mode set through the API and shown by the page,
// a screenshot each (written to <build>/test-pictures/ to be looked at).
TEST(NordacamServer, BrowserShowsTheFusionModes) {
    ViewerInBrowser viewer;
    auto& page = viewer.page;
    const std::string folder = testPicturesFolder();
    ASSERT_TRUE(page.waitFor("document.getElementById('live').naturalWidth > 0"));
    const auto box = page.script("const r = document.getElementById('live').getBoundingClientRect();"
                                 "return [Math.round(r.left), Math.round(r.top), Math.round(r.width), "
                                 "Math.round(r.height)];");
    const cv::Rect view(box[0].get<int>(), box[1].get<int>(), box[2].get<int>(), box[3].get<int>());
    std::map<std::string, cv::Mat> views;
    for (const char* mode : {"Off", "PictureInPicture", "AlphaBlend", "Edges"}) {
        auto put = viewer.live.client().Put("/api/settings/Fusion.Mode", std::string("\"") + mode + "\"",
                                            "application/json");
        ASSERT_TRUE(put && put->status == 200) << mode;
        ASSERT_TRUE(page.waitFor(std::string("document.getElementById('fusion').value === '") + mode + "'"));
        // The stream catches up within a second on an idle machine; a loaded one may take longer.
        const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(15);
        do {
            std::this_thread::sleep_for(std::chrono::milliseconds(700));
            const std::string png = page.screenshot();
            std::ofstream(folder + "/viewer-" + mode + ".png", std::ios::binary) << png;
            const cv::Mat shot = cv::imdecode(std::vector<uchar>(png.begin(), png.end()), cv::IMREAD_COLOR);
            ASSERT_FALSE(shot.empty()) << mode;
            views[mode] = shot(view & cv::Rect(0, 0, shot.cols, shot.rows)).clone();
        } while (std::string(mode) != "Off" && std::chrono::steady_clock::now() < until &&
                 cv::norm(views[mode], views["Off"], cv::NORM_L1) / views["Off"].total() <= 3.0);
    }
    // Picture in picture shows the visual view: the beige wall around the infrared image.
    const cv::Vec3b corner = views["PictureInPicture"].at<cv::Vec3b>(20, 20);
    EXPECT_NEAR(corner[2], 196, 25); // red of the wall's colour (BGR)
    EXPECT_NEAR(corner[0], 176, 25);
    for (const char* mode : {"PictureInPicture", "AlphaBlend", "Edges"})
        EXPECT_GT(cv::norm(views[mode], views["Off"], cv::NORM_L1) / views["Off"].total(), 3.0) << mode;
    auto get = viewer.live.client().Get("/api/measurements");
    ASSERT_TRUE(get && get->status == 200);
    const auto m = nlohmann::json::parse(get->body);
    EXPECT_EQ(m["fusion"], "Edges");
    EXPECT_TRUE(m.contains("laser") && m.contains("marker"));
    auto bad = viewer.live.client().Put("/api/settings/Fusion.Mode", "\"Sepia\"", "application/json");
    EXPECT_EQ(bad->status, 400);
}
#endif
