#ifdef NORDACAM_CORE
#include "apps/nordacam/Report.h"
#include "apps/nordacam/Server.h"

#include "tests/support/TempDir.h"

#include <gtest/gtest.h>
#include <httplib.h>
#include <nlohmann/json.hpp>

#include <fstream>

using namespace nordacam;
using json = nlohmann::json;

namespace {

httplib::Response call(const WebServer& server, const std::string& method, const std::string& path,
                       const json& body = {}) {
    httplib::Request req;
    httplib::Response res;
    req.method = method;
    req.path = path;
    if (!body.is_null())
        req.body = body.dump();
    server.handle(req, res);
    return res;
}

} // namespace

// The gallery's note goes into the image and comes out in its report (an HTML one here: the PDF is
// Chromium printing that page, read back in tests/python/test_report.py); a damaged image in the
// selection is listed and the rest reported; names outside the image folder and empty selections
// are refused.
TEST(NordacamReport, NotesAndReportsFromTheViewer) {
    norda::test::TempDir dir;
    CameraOptions o;
    o.outputDir = dir.file("out");
    o.settingsFile = o.outputDir + "/settings.json";
    o.realTime = false;
    o.visual = false;
    Camera camera(o);
    WebServer server(camera);
    for (int i = 0; i < 30; ++i)
        camera.runCycle();
    const std::string saved = camera.saveImage(std::chrono::seconds(10));
    const std::string name = std::filesystem::path(saved).filename().string();
    std::ofstream(dir.file("out/IR000077.RIX")) << "not an image";

    EXPECT_EQ(json::parse(call(server, "GET", "/api/gallery/note/" + name).body)["note"], "");
    const std::string note = "Roof <north> edge\nwet insulation?";
    EXPECT_EQ(call(server, "PUT", "/api/gallery/note/" + name, {{"note", note}}).status, 200);
    EXPECT_EQ(imageNote([&] {
                  norda::vision::Rix rix;
                  rix.load(saved);
                  return rix;
              }()),
              note);

    const auto res = call(server, "POST", "/api/report",
                          {{"files", {"IR000077.RIX", name}}, {"format", "html"}, {"alarm", 200}});
    ASSERT_EQ(res.status, 200) << res.body;
    EXPECT_NE(res.body.find("Roof &lt;north&gt; edge"), std::string::npos); // the note, escaped
    EXPECT_NE(res.body.find("IR000077.RIX: not a radiometric image file"), std::string::npos);
    EXPECT_NE(res.body.find("below 200.0 °C"), std::string::npos);
    EXPECT_NE(res.body.find("1 images, 1 could not be read"), std::string::npos);

    EXPECT_EQ(call(server, "POST", "/api/report", {{"files", json::array()}}).status, 400);
    EXPECT_EQ(call(server, "POST", "/api/report", {{"files", {"../" + name}}}).status, 400);
    EXPECT_EQ(call(server, "POST", "/api/report", {{"files", {name}}, {"format", "doc"}}).status, 400);
    EXPECT_EQ(call(server, "PUT", "/api/gallery/note/" + name, {{"note", 5}}).status, 400);
    EXPECT_EQ(call(server, "GET", "/api/gallery/note/settings.json").status, 400);
}

#endif
