#ifdef NORDACAM_CORE
// Fusion of a simulated visual frame onto an infrared display image; the pictures are written to
// <build>/test-pictures/ to be looked at.
#include "nordalib/vision/registration/Fusion.h"
#include "nordalib/vision/imgproc/ColorConvert.h"

#include "apps/nordacam/RigRegistration.h"
#include "apps/nordacam/sim/SceneSimulator.h"
#include "apps/nordacam/sim/VisualCamera.h"

#include "nordalib/core/keys/DefaultParameters.h"
#include "tests/support/Messages.h"

#include <gtest/gtest.h>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include <filesystem>

using namespace norda::vision;

TEST(Fusion, ModesAreRegisteredAtTheObjectsDistance) {
    norda::exp::DataProxy<std::string> store;
    norda::exp::setDefaultParameters(store);
    nordacam::sim::SimulatorConfig config;
    nordacam::sim::Scene scene(cv::Size(640, 480), config.lens, config.temperatures(), config.rig);
    nordacam::sim::VisualCamera camera(store, scene, {});
    const cv::Mat uyvy = nordacam::sim::VisualCamera::toUyvy(camera.render({640, 480}, 0.5));
    const Registration reg = nordacam::rigRegistration(config.rig, config.lens, {640, 480});
    // The infrared display: the scene's temperatures through a grey ramp.
    cv::Mat ir(480, 640, CV_8UC3);
    for (int y = 0; y < 480; ++y)
        for (int x = 0; x < 640; ++x) {
            const float t = scene.temperatureAt(float(x), float(y), 0.5);
            const auto v = cv::saturate_cast<uchar>((t - 0) * 3);
            ir.at<cv::Vec3b>(y, x) = {v, uchar(v / 2), uchar(255 - v)};
        }
    const std::string folder = std::string(NORDA_BINARY_DIR) + "/test-pictures";
    std::filesystem::create_directories(folder);
    Fusion fusion;
    for (const char* name : {"Off", "PictureInPicture", "AlphaBlend", "Edges"}) {
        const cv::Mat out = fusion.compose(Fusion::modeOf(name), ir, uyvy, reg, 3.0, 0.5f);
        ASSERT_EQ(out.size(), ir.size());
        cv::Mat bgr;
        cv::cvtColor(out, bgr, cv::COLOR_RGB2BGR);
        cv::imwrite(folder + "/fusion-" + name + ".png", bgr);
    }
    EXPECT_EQ(cv::norm(fusion.compose(FusionMode::AlphaBlend, ir, uyvy, reg, 3.0, 1.0f), ir, cv::NORM_INF),
              0);
    // Alpha blend: OpenCV's remap of the visual image through the registration's maps (those are
    // checked against projectPoints), mixed by addWeighted; the two round differently by a step.
    cv::Mat mx, my, warped, mixed;
    cv::Mat_<cv::Vec3b> rgb;
    reg.infraredToVisualMaps(3.0, ir.size(), uyvy.size(), mx, my);
    ColorConvert::convertUY1VY0ToRGB(uyvy, rgb);
    cv::remap(rgb, warped, mx, my, cv::INTER_LINEAR, cv::BORDER_CONSTANT, cv::Scalar::all(0));
    cv::addWeighted(ir, 0.25, warped, 0.75, 0, mixed);
    EXPECT_LE(
        cv::norm(fusion.compose(FusionMode::AlphaBlend, ir, uyvy, reg, 3.0, 0.25f), mixed, cv::NORM_INF), 1);
    // The warm object (3 m) has edges in both images: registered at 3 m, the visual edge lies on
    // the infrared edge (its footprint's left side) within a pixel.
    const cv::Mat edges =
        fusion.compose(FusionMode::Edges, cv::Mat(480, 640, CV_8UC3, cv::Scalar(0)), uyvy, reg, 3.0, 0);
    const auto& warm = scene.staticObjects();
    float left = 0;
    for (const auto& o : warm)
        if (o.name == "warm object")
            left = o.rect.x;
    const int row = 330; // below the print on the box
    int found = -1;
    for (int x = int(left) - 6; x <= int(left) + 6 && found < 0; ++x)
        if (edges.at<cv::Vec3b>(row, x)[0] == 255)
            found = x;
    ASSERT_GE(found, 0);
    EXPECT_NEAR(found, left, 1.5);
    // Another calibration loaded into the same object: the maps follow its content, not its address.
    Registration reloaded = reg;
    for (const char* name : {"AlphaBlend", "PictureInPicture", "Edges"}) {
        reloaded = reg;
        Fusion warm;
        (void)warm.compose(Fusion::modeOf(name), ir, uyvy, reloaded, 3.0, 0.5f);
        reloaded.translation[0] += 0.05; // five centimetres further apart: 9 pixels more parallax
        const cv::Mat expected = Fusion().compose(Fusion::modeOf(name), ir, uyvy, reloaded, 3.0, 0.5f);
        EXPECT_EQ(cv::norm(warm.compose(Fusion::modeOf(name), ir, uyvy, reloaded, 3.0, 0.5f), expected,
                           cv::NORM_INF),
                  0)
            << name;
    }
    EXPECT_EQ(norda::test::messageOf([] { Fusion::modeOf("Sepia"); }),
              "unknown fusion mode \"Sepia\" (Off, PictureInPicture, AlphaBlend, Edges)");
}
#endif
