#include "nordalib/vision/registration/Registration.h"
#include "nordalib/vision/registration/EmissionMarkerFinder.h"

#include "tests/support/Messages.h"
#include "tests/support/TempDir.h"

#include <gtest/gtest.h>
#include <opencv2/calib3d.hpp>
#include <opencv2/imgproc.hpp>

#include <fstream>

using namespace norda::vision;

namespace {

// A rig like the simulator's: visual lens 45 mm beside, slightly turned, barrel distortion.
Registration rig() {
    Registration r;
    r.infrared = {cv::Size(640, 480), 560, 560, 319.5, 239.5};
    r.visual = {cv::Size(2592, 1944), 1852, 1852, 1301.3, 968.2, -0.115, 0.021, 0.0004, -0.0003, 0};
    cv::Rodrigues(cv::Vec3d(0.004, -0.007, 0.0026), r.rotation);
    r.translation = {0.045, -0.006, 0.004};
    r.laserOrigin = {0.02, 0.042, 0.01};
    r.laserDirection = {0, 0, 1};
    return r;
}

} // namespace

TEST(Registration, MapsBothWaysWithParallaxAndFindsTheLaserDistance) {
    const Registration r = rig();
    const cv::Size vga(640, 480);
    for (double d : {0.5, 1.0, 3.0, 10.0}) {
        for (cv::Point2d ir : {cv::Point2d(5, 7), cv::Point2d(320, 240), cv::Point2d(630, 470)}) {
            const cv::Point2d v = r.infraredToVisual(ir, d, vga);
            const cv::Point2d back = r.visualToInfrared(v, d, vga);
            EXPECT_LT(cv::norm(back - ir), 1e-6) << d;
        }
        // The laser seen where the rig puts it gives back its distance.
        const auto fix = r.laserTriangulation(r.laserInVisual(d, vga), vga);
        EXPECT_NEAR(fix.distance, d, 1e-6 * d);
        EXPECT_LT(fix.offLine, 1e-6);
    }
    // Parallax: the visual image's centre lands further left in the infrared image when near
    // (the visual lens sits to the right).
    const double near = r.visualToInfrared({320, 240}, 0.5, vga).x,
                 far = r.visualToInfrared({320, 240}, 10, vga).x;
    EXPECT_NEAR(near - far, 560 * 0.045 * (1 / 0.5 - 1 / 10.0), 2.0);
    // The fast maps equal the point mapping; a full-size frame is the same camera.
    cv::Mat mx, my;
    r.infraredToVisualMaps(2.0, {640, 480}, vga, mx, my);
    const cv::Point2d p = r.infraredToVisual({100, 400}, 2.0, vga);
    EXPECT_NEAR(mx.at<float>(400, 100), p.x, 1e-3);
    EXPECT_NEAR(my.at<float>(400, 100), p.y, 1e-3);
    const cv::Point2d full = r.infraredToVisual({100, 400}, 2.0, {2592, 1944});
    EXPECT_NEAR((full.x + 0.5) * 640 / 2592 - 0.5, p.x, 1e-9);
    EXPECT_EQ(norda::test::messageOf([&] {
                  r.visualAt({640, 400});
              }),
              "a 640x400 image is not a scaled readout of the calibrated 2592x1944 camera");
}

TEST(Registration, FileRoundTripAndDamagedFiles) {
    norda::test::TempDir dir;
    const std::string file = dir.file("registration.json");
    rig().save(file);
    const Registration loaded = Registration::load(file);
    EXPECT_LT(cv::norm(loaded.infraredToVisual({10, 20}, 1.0, {640, 480}) -
                       rig().infraredToVisual({10, 20}, 1.0, {640, 480})),
              1e-9);
    auto damaged = [&](const std::string& text) {
        std::ofstream(file) << text;
        return norda::test::messageOf([&] { Registration::load(file); });
    };
    EXPECT_EQ(norda::test::messageOf([&] { Registration::load(dir.file("none.json")); }),
              "registration file " + dir.file("none.json") + " is missing");
    EXPECT_NE(damaged("{\"infrared\": ").find("is not valid JSON"), std::string::npos);
    std::ifstream in(dir.file("registration.json"));
    rig().save(file);
    std::string good((std::istreambuf_iterator<char>(std::ifstream(file).rdbuf())), {});
    auto replaced = [&](const std::string& from, const std::string& to) {
        std::string t = good;
        t.replace(t.find(from), from.size(), to);
        return damaged(t);
    };
    EXPECT_EQ(replaced("\"fx\"", "\"fz\""), "registration " + file + ": infrared.fx is missing");
    EXPECT_EQ(replaced("\"direction\": [\n      0.0,\n      0.0,\n      1.0",
                       "\"direction\": [\n      0.0,\n      0.0,\n      -1.0"),
              "registration " + file + ": laser.direction must point forwards");
    EXPECT_NE(replaced("\"rotation\": [\n    0.99", "\"rotation\": [\n    1.99")
                  .find("rotation is not a rotation matrix"),
              std::string::npos);
}

TEST(EmissionMarkerFinder, FindsWholeLabelsOnlyAndMapsThemIntoTheInfraredImage) {
    const Registration r = rig();
    // A magenta 20 x 20 label on grey, drawn in RGB and converted like the camera does.
    auto frame = [](auto draw) {
        cv::Mat rgb(480, 640, CV_8UC3, cv::Scalar(120, 120, 120));
        draw(rgb);
        cv::Mat bgr, yuv, uyvy(480, 640, CV_8UC2);
        cv::cvtColor(rgb, bgr, cv::COLOR_RGB2BGR);
        cv::cvtColor(bgr, yuv, cv::COLOR_BGR2YUV);
        for (int y = 0; y < 480; ++y)
            for (int x = 0; x < 640; x += 2) {
                const auto a = yuv.at<cv::Vec3b>(y, x), b = yuv.at<cv::Vec3b>(y, x + 1);
                uyvy.at<cv::Vec2b>(y, x) = {uchar((a[1] + b[1]) / 2), a[0]};
                uyvy.at<cv::Vec2b>(y, x + 1) = {uchar((a[2] + b[2]) / 2), b[0]};
            }
        return uyvy;
    };
    const cv::Scalar magenta(230, 25, 160);
    EmissionMarkerFinder finder;
    EmissionMarkerFinder::Marker m;
    const cv::Mat whole =
        frame([&](cv::Mat& rgb) { cv::rectangle(rgb, cv::Rect(300, 200, 20, 20), magenta, -1); });
    ASSERT_EQ(finder.find(whole, r, {320, 240}, {640, 480}, 0.05, m), EmissionMarkerFinder::Result::Found);
    EXPECT_NEAR(m.distance, 457.3 * 0.05 / 20, 0.1); // focal length x size / side
    const cv::Point2d centre = r.visualToInfrared({309.5, 209.5}, m.distance, {640, 480});
    EXPECT_NEAR(m.infraredBox.x + m.infraredBox.width / 2.0, centre.x, 1.0);
    EXPECT_GT(m.label.size(), 100u);
    EXPECT_GT(m.surface.size(), m.label.size());
    const std::pair<std::function<void(cv::Mat&)>, EmissionMarkerFinder::Result> cases[] = {
        {[&](cv::Mat&) {}, EmissionMarkerFinder::Result::NotFound},
        {[&](cv::Mat& rgb) { cv::rectangle(rgb, cv::Rect(0, 200, 12, 20), magenta, -1); },
         EmissionMarkerFinder::Result::OutsideImage},
        {[&](cv::Mat& rgb) {
             cv::rectangle(rgb, cv::Rect(300, 200, 20, 20), magenta, -1);
             cv::rectangle(rgb, cv::Rect(295, 205, 30, 6), cv::Scalar(40, 40, 40), -1); // a cable across
         },
         EmissionMarkerFinder::Result::PartlyCovered},
        {[&](cv::Mat& rgb) {
             cv::rectangle(rgb, cv::Rect(300, 200, 20, 20), magenta, -1);
             cv::rectangle(rgb, cv::Rect(308, 200, 12, 9), cv::Scalar(40, 40, 40), -1); // a corner
         },
         EmissionMarkerFinder::Result::PartlyCovered},
        {[&](cv::Mat& rgb) { cv::rectangle(rgb, cv::Rect(630, 400, 8, 8), magenta, -1); },
         EmissionMarkerFinder::Result::OutsideInfrared},
    };
    for (const auto& [draw, expected] : cases)
        EXPECT_EQ(EmissionMarkerFinder::name(finder.find(frame(draw), r, {320, 240}, {640, 480}, 0.05, m)),
                  std::string(EmissionMarkerFinder::name(expected)));
}
