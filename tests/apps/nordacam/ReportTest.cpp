#ifdef NORDACAM_CORE
#include "apps/nordacam/Report.h"
#include "apps/nordacam/Server.h"
#include "tests/apps/nordacam/ServerSupport.h"

#include "tests/support/TempDir.h"

#include <gtest/gtest.h>
#include <httplib.h>
#include <nlohmann/json.hpp>
#include <opencv2/imgcodecs.hpp>

#include <filesystem>
#include <fstream>

using namespace nordacam;
using json = nlohmann::json;
using nordacam::test::call;
using nordacam::test::testPicturesFolder;
using nordacam::test::ViewerInBrowser;

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

    EXPECT_EQ(call(server, "GET", "/api/gallery/note/" + name).body["note"], "");
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
    ASSERT_EQ(res.status, 200) << res.text;
    EXPECT_NE(res.text.find("Roof &lt;north&gt; edge"), std::string::npos); // the note, escaped
    EXPECT_NE(res.text.find("IR000077.RIX: not a radiometric image file"), std::string::npos);
    EXPECT_NE(res.text.find("below 200.0 °C"), std::string::npos);
    EXPECT_NE(res.text.find("1 images, 1 could not be read"), std::string::npos);

    EXPECT_EQ(call(server, "POST", "/api/report", {{"files", json::array()}}).status, 400);
    EXPECT_EQ(call(server, "POST", "/api/report", {{"files", {"../" + name}}}).status, 400);
    EXPECT_EQ(call(server, "POST", "/api/report", {{"files", {name}}, {"format", "doc"}}).status, 400);
    EXPECT_EQ(call(server, "PUT", "/api/gallery/note/" + name, {{"note", 5}}).status, 400);
    EXPECT_EQ(call(server, "GET", "/api/gallery/note/settings.json").status, 400);
}

// The viewer's Report and Trend panels used as a person does: write a note into a saved image, tick
// the images and make a report (kept from the page's download), and watch the trend chart draw the
// hot spot above the cold spot. Screenshots of both panels go to <build>/test-pictures/.
TEST(NordacamReport, BrowserMakesAReportEditsANoteAndDrawsTheTrend) {
    ViewerInBrowser viewer(2);
    auto& page = viewer.page;
    auto c = viewer.live.client();
    const std::string pictures = testPicturesFolder();
    ASSERT_TRUE(page.waitFor("document.querySelectorAll('.repfile').length === 2 && "
                             "document.getElementById('notefile').value"));
    page.script("window.reports = [];"
                "URL.createObjectURL = blob => { window.reports.push(blob); return 'about:blank'; };"
                "HTMLAnchorElement.prototype.click = function () {};");
    auto screenshot = [&](const std::string& panel, const std::string& file) {
        page.script("document.getElementById(arguments[0]).scrollIntoView({block: 'center'});", {panel});
        const std::string png = page.screenshot();
        std::ofstream(pictures + "/" + file, std::ios::binary) << png;
        const auto box =
            page.script("const r = document.getElementById(arguments[0]).getBoundingClientRect();"
                        "return [Math.round(r.left), Math.round(r.top), Math.round(r.width), "
                        "Math.round(r.height)];",
                        {panel});
        const cv::Mat shot = cv::imdecode(std::vector<uchar>(png.begin(), png.end()), cv::IMREAD_COLOR);
        return shot.empty()
                   ? shot
                   : shot(cv::Rect(box[0], box[1], box[2], box[3]) & cv::Rect(0, 0, shot.cols, shot.rows))
                         .clone();
    };

    const std::string noted = page.script("return document.getElementById('notefile').value;");
    std::this_thread::sleep_for(std::chrono::milliseconds(500)); // its note (none) loaded
    page.type("#notetext", "Valve 3 hot: check the seal");
    page.click("#notesave");
    ASSERT_TRUE(page.waitFor("document.getElementById('msg').textContent === 'note saved in " + noted + "'"));
    EXPECT_EQ(json::parse(c.Get(("/api/gallery/note/" + noted).c_str())->body)["note"],
              "Valve 3 hot: check the seal");

    page.click("#repall");
    page.click("#repformat option[value=html]");
    page.type("#repalarm", "50");
    page.click("#repmake");
    ASSERT_TRUE(page.waitFor("document.getElementById('msg').textContent === 'report of 2 images made'", 60));
    const std::string html = page.script("return window.reports[0].text();");
    EXPECT_NE(html.find("Valve 3 hot: check the seal"), std::string::npos);
    EXPECT_NE(html.find("2 images, 0 could not be read"), std::string::npos);
    EXPECT_NE(html.find("above 50.0 °C"), std::string::npos); // the scene's hot object is 85 °C
    EXPECT_FALSE(screenshot("reportpanel", "viewer-report.png").empty());

    // Samples a second apart over the last minute until the hot spot's line has some length.
    page.click("#trendspan option[value='60']");
    ASSERT_TRUE(
        page.waitFor("(() => { const c = document.getElementById('trendchart');"
                     "const d = c.getContext('2d').getImageData(0, 0, c.width - 90, c.height).data;"
                     "let n = 0; for (let i = 0; i < d.length; i += 4)"
                     "  n += Math.abs(d[i] - 255) + Math.abs(d[i + 1] - 107) + Math.abs(d[i + 2] - 90) < 30;"
                     "return n > 60; })()",
                     30));
    const cv::Mat chart = screenshot("trendchart", "viewer-trend.png");
    ASSERT_FALSE(chart.empty());
    auto rowsOf = [&](cv::Vec3b bgr) {
        cv::Mat mask;
        cv::inRange(chart, cv::Scalar(bgr[0] - 20, bgr[1] - 20, bgr[2] - 20),
                    cv::Scalar(bgr[0] + 20, bgr[1] + 20, bgr[2] + 20), mask);
        std::vector<cv::Point> at;
        cv::findNonZero(mask.colRange(0, mask.cols - 90), at); // not the legend
        double rows = 0;
        for (const auto& p : at)
            rows += p.y;
        return std::pair<size_t, double>(at.size(), rows / std::max<size_t>(1, at.size()));
    };
    const auto [hotPixels, hotRow] = rowsOf({90, 107, 255});    // #ff6b5a
    const auto [coldPixels, coldRow] = rowsOf({255, 184, 107}); // #6bb8ff
    EXPECT_GT(hotPixels, 20u) << "the hot spot's line";
    EXPECT_GT(coldPixels, 20u) << "the cold spot's line";
    EXPECT_LT(hotRow, coldRow) << "hot above cold";
}

#endif
