#include "nordalib/vision/registration/Registration.h"
#include "nordalib/vision/registration/EmissionMarkerFinder.h"
#include "nordalib/vision/registration/RegistrationCache.h"

#include "tests/vision/TestSupport.h"

#include <gtest/gtest.h>
#include <opencv2/calib3d.hpp>
#include <opencv2/imgproc.hpp>

#include <fstream>

using namespace norda::vision;

namespace {

Registration rig() {
    return norda::test::testRig();
}

} // namespace

// Against OpenCV's projection of the same points (infrared camera coordinates) into both cameras,
// for frames of several sizes of each.
TEST(Registration, MapsLikeOpenCvAtEveryFrameSizeAndFindsTheLaserDistance) {
    const Registration r = rig();
    const cv::Vec3d tvec = -(r.rotation.t() * r.translation);
    cv::Vec3d rvec;
    cv::Rodrigues(r.rotation.t(), rvec);
    const std::vector<double> distortion{r.visual.k1, r.visual.k2, r.visual.p1, r.visual.p2, r.visual.k3};
    auto seen = [&](const cv::Point3d& p, cv::Size visual, cv::Size ir) {
        std::vector<cv::Point2d> v, i;
        cv::projectPoints(std::vector<cv::Point3d>{p}, rvec, tvec,
                          norda::test::cameraMatrixAt(r.visual, visual), distortion, v);
        cv::projectPoints(std::vector<cv::Point3d>{p}, cv::Vec3d(), cv::Vec3d(),
                          norda::test::cameraMatrixAt(r.infrared, ir), cv::noArray(), i);
        return std::make_pair(v[0], i[0]);
    };
    for (const cv::Size visual : {cv::Size(640, 480), cv::Size(2592, 1944)})
        for (const cv::Size ir : {cv::Size(640, 480), cv::Size(320, 240), cv::Size(1024, 768)})
            for (double d : {0.5, 3.0, 10.0}) {
                SCOPED_TRACE(std::to_string(visual.width) + " " + std::to_string(ir.width) + " " +
                             std::to_string(d));
                // Points seen at infrared pixels near the corners and the centre.
                const cv::Matx33d k = norda::test::cameraMatrixAt(r.infrared, ir);
                cv::Mat mx, my;
                r.infraredToVisualMaps(d, ir, visual, mx, my);
                for (const cv::Point pixel : {cv::Point(5, 7), cv::Point(ir.width / 2, ir.height / 2),
                                              cv::Point(ir.width - 9, ir.height - 3)}) {
                    const cv::Point3d p((pixel.x - k(0, 2)) / k(0, 0) * d, (pixel.y - k(1, 2)) / k(1, 1) * d,
                                        d);
                    const auto [v, i] = seen(p, visual, ir);
                    EXPECT_LT(cv::norm(r.infraredToVisual(i, d, visual, ir) - v), 1e-6);
                    EXPECT_LT(cv::norm(r.visualToInfrared(v, d, visual, ir) - i), 1e-6);
                    EXPECT_LT(cv::norm(cv::Point2d(mx.at<float>(pixel), my.at<float>(pixel)) - v),
                              1e-3 * visual.width / 640);
                }
                // The laser's spot where OpenCV sees it gives back its distance and infrared position.
                const cv::Vec3d l =
                    r.laserOrigin + (d - r.laserOrigin[2]) / r.laserDirection[2] * r.laserDirection;
                const auto [v, i] = seen({l[0], l[1], l[2]}, visual, ir);
                const auto fix = r.laserTriangulation(v, visual, ir);
                EXPECT_NEAR(fix.distance, d, 1e-6 * d);
                EXPECT_LT(fix.offLine, 1e-6);
                EXPECT_LT(cv::norm(fix.infrared - i), 1e-6);
            }
    // Parallax: the visual image's centre lands further left in the infrared image when near
    // (the visual lens sits to the right).
    const cv::Size vga(640, 480);
    const double near = r.visualToInfrared({320, 240}, 0.5, vga, vga).x,
                 far = r.visualToInfrared({320, 240}, 10, vga, vga).x;
    EXPECT_NEAR(near - far, 560 * 0.045 * (1 / 0.5 - 1 / 10.0), 2.0);
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
    EXPECT_LT(cv::norm(loaded.infraredToVisual({10, 20}, 1.0, {640, 480}, {640, 480}) -
                       rig().infraredToVisual({10, 20}, 1.0, {640, 480}, {640, 480})),
              1e-9);
    auto damaged = [&](const std::string& text) {
        std::ofstream(file) << text;
        return norda::test::messageOf([&] { Registration::load(file); });
    };
    EXPECT_EQ(norda::test::messageOf([&] { Registration::load(dir.file("none.json")); }),
              "registration file " + dir.file("none.json") + " is missing");
    EXPECT_NE(damaged("{\"infrared\": ").find("is not valid JSON"), std::string::npos);
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

// One read per file name: a file changed under the same name is not read again, another name is;
// a file that can not be read is reported and not tried again until the name changes.
TEST(RegistrationCache, ReadsOncePerNameAndKeepsWhyNot) {
    norda::test::TempDir dir;
    const std::string a = dir.file("a.json"), b = dir.file("b.json");
    Registration r = rig();
    r.save(a);
    RegistrationCache cache;
    const Registration* first = cache.get(a);
    ASSERT_TRUE(first);
    const double x = first->translation[0];
    r.translation[0] += 0.1;
    r.save(a);
    r.save(b);
    EXPECT_EQ(cache.get(a), first);
    EXPECT_EQ(cache.get(a)->translation[0], x);
    ASSERT_TRUE(cache.get(b));
    EXPECT_NEAR(cache.get(b)->translation[0], x + 0.1, 1e-9);
    std::ofstream(a) << "{";
    EXPECT_EQ(cache.get(a), nullptr);
    EXPECT_NE(cache.error().find("is not valid JSON"), std::string::npos) << cache.error();
    r.save(a);
    EXPECT_EQ(cache.get(a), nullptr);
    EXPECT_TRUE(cache.get(b));
    EXPECT_EQ(cache.error(), "");
    EXPECT_TRUE(cache.get(a));
}

TEST(EmissionMarkerFinder, FindsWholeLabelsOnlyAndMapsThemIntoTheInfraredImage) {
    const Registration r = rig();
    // A magenta 20 x 20 label on grey, drawn in RGB and converted like the camera does.
    auto frame = [](auto draw) {
        cv::Mat rgb(480, 640, CV_8UC3, cv::Scalar(120, 120, 120));
        draw(rgb);
        return norda::test::rgbToUyvy(rgb);
    };
    const cv::Scalar magenta(230, 25, 160);
    EmissionMarkerFinder finder;
    EmissionMarkerFinder::Marker m;
    const cv::Mat whole =
        frame([&](cv::Mat& rgb) { cv::rectangle(rgb, cv::Rect(300, 200, 20, 20), magenta, -1); });
    ASSERT_EQ(finder.find(whole, r, {320, 240}, {640, 480}, 0.05, m), EmissionMarkerFinder::Result::Found);
    EXPECT_NEAR(m.distance, 457.3 * 0.05 / 20, 0.1); // focal length x size / side
    const cv::Point2d centre = r.visualToInfrared({309.5, 209.5}, m.distance, {640, 480}, {640, 480});
    EXPECT_NEAR(m.infraredBox.x + m.infraredBox.width / 2.0, centre.x, 1.0);
    EXPECT_GT(m.label.size(), 100u);
    EXPECT_GT(m.surface.size(), m.label.size());
    const std::pair<std::function<void(cv::Mat&)>, EmissionMarkerFinder::Result> cases[] = {
        {[&](cv::Mat&) {}, EmissionMarkerFinder::Result::NotFound},
        {[&](cv::Mat& rgb) { cv::rectangle(rgb, cv::Rect(0, 200, 12, 20), magenta, -1); },
         EmissionMarkerFinder::Result::OutsideImage},
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
