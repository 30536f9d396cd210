// The GStreamer plugin through gst-launch-1.0 and gst-inspect-1.0, as a camera maker runs it: the
// simulated camera through every element to PNG files, checked against the simulator's own truth
// (posted by the source), and the refusals of what the chain cannot take (run by an application's
// bus loop, tools/RunPipeline.cpp).
#ifdef NORDA_GST_PLUGIN_DIR

#include "tests/support/Shell.h"
#include "tests/support/TempDir.h"

#include <gtest/gtest.h>
#include <opencv2/imgcodecs.hpp>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sys/wait.h>

namespace {

using norda::test::countOf;
using norda::test::runCommand;
using norda::test::TempDir;

const std::string kCalibration = std::string(NORDA_SOURCE_DIR) + "/data/calibration";

// gst-launch-1.0 with the built plugin and a registry of the test's own; standard error too.
std::string launch(const TempDir& dir, const std::string& pipeline, int* exitCode) {
    int status = 0;
    const std::string out =
        runCommand("(GST_PLUGIN_PATH=" NORDA_GST_PLUGIN_DIR " GST_REGISTRY=" + dir.file("registry.bin") +
                       " timeout 120 gst-launch-1.0 -m " + pipeline + " 2>&1)",
                   &status);
    *exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return out;
}

// The pipeline run to its end by the tests' runner (errors printed as gst-launch-1.0 prints them).
std::string run(const TempDir& dir, const std::string& pipeline, int* exitCode) {
    int status = 0;
    const std::string out =
        runCommand("(GST_PLUGIN_PATH=" NORDA_GST_PLUGIN_DIR " GST_REGISTRY=" + dir.file("registry.bin") +
                       " timeout 120 " NORDA_GST_RUN_PIPELINE " '" + pipeline + "' 2>&1)",
                   &status);
    *exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return out;
}

// The last message of `name` from the output of gst-launch-1.0 -m (its fields as text).
std::string lastMessage(const std::string& out, const std::string& name) {
    const auto at = out.rfind(": " + name + ", ");
    return at == std::string::npos ? std::string() : out.substr(at, out.find('\n', at) - at);
}

double field(const std::string& message, const std::string& name) {
    const auto at = message.find(" " + name + "=(");
    if (at == std::string::npos)
        return NAN;
    return std::stod(message.substr(message.find(')', at) + 1));
}

TEST(GstPlugin, SimulatedCameraThroughEveryElementMatchesTheScene) {
    TempDir dir;
    int rc = 0;
    const std::string c = " calibration-dir=" + kCalibration;
    const std::string out = launch(dir,
                                   "nordasimsrc num-buffers=45 post-truth=true" + c + " ! nordacorrect" + c +
                                       " ! nordaradiometry" + c +
                                       " ! nordameasure ! nordapalette ! pngenc ! "
                                       "multifilesink location=" +
                                       dir.file("frame%03d.png"),
                                   &rc);
    ASSERT_EQ(rc, 0) << out;
    // The shutter's frames at the start become the offset and are not shown.
    const auto frames = countOf(out, ": norda-measurement, ");
    EXPECT_GE(frames, 30u);
    EXPECT_LT(frames, 45u);

    const std::string measured = lastMessage(out, "norda-measurement");
    const auto frame = static_cast<unsigned long long>(field(measured, "frame"));
    // The spots are found anew every 20th frame: the moving hot object was where one of the last 20
    // frames' truths puts it.
    std::string truth;
    double offHot = INFINITY;
    for (auto at = out.find(": norda-scene-truth, "); at != std::string::npos;
         at = out.find(": norda-scene-truth, ", at + 1)) {
        const std::string m = out.substr(at, out.find('\n', at) - at);
        const auto n = static_cast<unsigned long long>(field(m, "frame"));
        if (n == frame)
            truth = m;
        if (n <= frame && n + 20 > frame)
            offHot = std::min(offHot, std::hypot(field(measured, "hot-x") - field(m, "hot-x"),
                                                 field(measured, "hot-y") - field(m, "hot-y")));
    }
    ASSERT_FALSE(truth.empty()) << measured;
    EXPECT_NEAR(field(measured, "hot-c"), field(truth, "hot-c"), 1.0) << measured << "\n" << truth;
    EXPECT_NEAR(field(measured, "cold-c"), field(truth, "cold-c"), 1.0) << measured << "\n" << truth;
    const cv::Point2d hot(field(truth, "hot-x"), field(truth, "hot-y"));
    const double radius = field(truth, "hot-radius");
    EXPECT_LE(offHot, radius + 2.0) << measured;

    // The last picture: 640 x 480 RGB, the hot disc in the palette's hottest colour (white), the
    // wall around it not.
    const cv::Mat picture =
        cv::imread(dir.file("frame" + std::to_string(1000 + frames - 1).substr(1) + ".png"));
    ASSERT_FALSE(picture.empty());
    EXPECT_EQ(picture.size(), cv::Size(640, 480));
    int inside = 0, insideWhite = 0, ring = 0, ringWhite = 0;
    for (int y = 0; y < picture.rows; ++y)
        for (int x = 0; x < picture.cols; ++x) {
            const double d = std::hypot(x - hot.x, y - hot.y);
            const auto& p = picture.at<cv::Vec3b>(y, x);
            const bool white = p[0] > 200 && p[1] > 200 && p[2] > 200;
            if (d < 0.8 * radius)
                ++inside, insideWhite += white;
            else if (d > 1.5 * radius && d < 2.0 * radius)
                ++ring, ringWhite += white;
        }
    EXPECT_GT(insideWhite, 0.6 * inside); // the hot spot's label may lie over part of the disc
    EXPECT_LT(ringWhite, 0.1 * ring);
}

TEST(GstPlugin, RefusesWhatTheChainCannotTakeWithOneNamedError) {
    TempDir dir;
    const std::string c = " calibration-dir=" + kCalibration;
    struct Case {
        std::string pipeline, element, message;
    };
    const std::vector<Case> cases = {
        // 8-bit frames (as from a detector's 8-bit mode)
        {"filesrc location=" + dir.file("gray8.raw") +
             " ! rawvideoparse format=gray8 width=64 height=48 ! nordacorrect" + c + " ! fakesink",
         "nordacorrect0", "nordacorrect0 takes GRAY16_LE frames (16 bits a pixel), not GRAY8"},
        // another size mid-stream
        {"multifilesrc location=" + dir.file("size%d.png") +
             " caps=image/png,framerate=30/1 stop-index=1 ! pngdec ! videoconvert ! "
             "video/x-raw,format=GRAY16_LE ! "
             "nordacorrect" +
             c + " ! fakesink",
         "nordacorrect0", "the frame size changed from 64x48 to 80x60 mid-stream"},
        // raw frames where offset-corrected ones belong
        {"nordasimsrc num-buffers=10" + c + " ! nordaradiometry" + c + " ! fakesink", "nordaradiometry0",
         "nordaradiometry0 takes offset-corrected frames (put nordacorrect before it), but got a raw "
         "detector frame"},
        // no calibration
        {"nordasimsrc num-buffers=10" + c + " ! nordacorrect" + c +
             " ! nordaradiometry calibration-dir=" + dir.file("none") + " ! fakesink",
         "nordaradiometry0", "no radiometric calibration"},
        // settings the library cannot use
        {"nordasimsrc num-buffers=10" + c + " ! nordacorrect" + c + " ! nordaradiometry" + c +
             " ! nordameasure points=\"10,10;700,20\" ! fakesink",
         "nordameasure0", "the point (700, 20, 1 x 1) does not lie inside the 640 x 480 image"},
    };
    std::ofstream(dir.file("gray8.raw")) << std::string(64 * 48 * 3, '\x40');
    cv::imwrite(dir.file("size0.png"), cv::Mat(48, 64, CV_16UC1, cv::Scalar(30000)));
    cv::imwrite(dir.file("size1.png"), cv::Mat(60, 80, CV_16UC1, cv::Scalar(30000)));
    for (const auto& t : cases) {
        int rc = 0;
        const std::string out = run(dir, t.pipeline, &rc);
        EXPECT_EQ(rc, 1) << t.pipeline << "\n" << out;
        EXPECT_NE(out.find(t.message), std::string::npos) << t.pipeline << "\n" << out;
        // One error from the element: "ERROR: from element /GstPipeline:pipeline0/GstNordaX:<name>: ..."
        EXPECT_EQ(countOf(out, ":" + t.element + ": "), 1u) << t.pipeline << "\n" << out;
    }
}

TEST(GstPlugin, InspectListsTheElementsAndTheirRanges) {
    TempDir dir;
    const std::string env =
        "GST_PLUGIN_PATH=" NORDA_GST_PLUGIN_DIR " GST_REGISTRY=" + dir.file("registry.bin") +
        " gst-inspect-1.0 ";
    const std::string plugin = runCommand(env + "norda");
    for (const char* e : {"nordasimsrc", "nordacorrect", "nordaradiometry", "nordameasure", "nordapalette"})
        EXPECT_NE(plugin.find(std::string(e) + ": "), std::string::npos) << plugin;
    const std::string radiometry = runCommand(env + "nordaradiometry");
    EXPECT_TRUE(std::regex_search(radiometry,
                                  std::regex("emissivity .*\n.*\n.*Range: +0\\.01 - +1 Default: +0\\.95")))
        << radiometry;
    EXPECT_NE(radiometry.find("format: GRAY16_LE"), std::string::npos) << radiometry;
}

} // namespace

#endif
