#ifdef NORDACAM_CORE
// The laser position element on frames of the simulated visual camera (the scene and rig of
// nordacam's simulator), against the simulator's truth.
#include "nordalib/vision/streaming/DetectLaserPositionElement.h"

#include "apps/nordacam/RigRegistration.h"
#include "apps/nordacam/sim/SceneSimulator.h"
#include "apps/nordacam/sim/VisualCamera.h"

#include "nordalib/core/keys/DefaultParameters.h"
#include "nordalib/core/keys/Keys.h"
#include "tests/vision/TestSupport.h"

#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>

#include <fstream>

using namespace norda::exp;
using namespace norda::exp::streaming;
using namespace nordacam::sim;

namespace {

struct LaserFixture {
    LaserFixture() {
        setDefaultParameters(store);
        nordacam::rigRegistration(config.rig, config.lens, {640, 480}).save(dir.file("registration.json"));
        store.setValue(Id::Registration::CalibrationFile, dir.file("registration.json"), false);
    }
    // The element's status for one frame (beside a temperature frame of `ir`).
    std::string run(cv::Mat uyvy, unsigned long long timestamp, cv::Size ir = {640, 480}) {
        DataStorage<std::string> meta;
        meta.setValue(Id::Viscam::Timestamp, timestamp);
        FrameMap in, out;
        in[STREAMING_DATATYPE_YUV422] = std::make_unique<Frame>(uyvy, std::move(meta));
        in[STREAMING_DATATYPE_RAD] =
            std::make_unique<Frame>(cv::Mat(ir, CV_16UC1, cv::Scalar(29515)), DataStorage<std::string>());
        element.process(in, out);
        EXPECT_TRUE(in[STREAMING_DATATYPE_YUV422]); // passed on untouched
        return store.getValue<std::string>(Id::Laser::Status);
    }
    norda::test::TempDir dir;
    DataProxy<std::string> store;
    SimulatorConfig config;
    Scene scene{cv::Size(640, 480), config.lens, config.temperatures(), config.rig};
    VisualCamera camera{store, scene, VisualConfig{}};
    DetectLaserPositionElement element{&store, STREAMING_DATATYPE_YUV422};
};

} // namespace

TEST(DetectLaserPositionElement, FindsTheSpotWithinTwoInfraredPixelsFromHalfAMetreToTenMetres) {
    LaserFixture f;
    unsigned long long t = 1;
    // One frame per board distance (0.5 ... 7.5 m), then the wall at 10 m.
    for (int step = 0; step < 9; ++step) {
        const double time = (step + 0.5) * Scene::kBoardStepS;
        const auto truth = f.scene.laser(time);
        ASSERT_EQ(f.run(VisualCamera::toUyvy(f.camera.render({640, 480}, time)), t++), "Found")
            << truth.surface;
        EXPECT_TRUE(f.store.getValue<bool>(Id::MeasPoints::LaserSpot::Visible));
        const auto p = f.store.getValue<cv::Point_<int>>(Id::MeasPoints::LaserSpot::Position);
        const double error = cv::norm(cv::Point2d(p) - truth.infrared);
        std::cout << "[ quality  ] laser at " << truth.distance << " m: infrared error " << error
                  << " px, distance " << f.store.getValue<float>(Id::Laser::Distance) << " m\n";
        EXPECT_LT(error, 2.0) << truth.distance;
        EXPECT_NEAR(f.store.getValue<float>(Id::Laser::Distance), truth.distance, 0.15 * truth.distance);
        // At another resolution of the same sensor the spot lies at the same infrared pixel.
        if (step == 2) {
            ASSERT_EQ(f.run(VisualCamera::toUyvy(f.camera.render({1024, 768}, time)), t++), "Found");
            EXPECT_LT(
                cv::norm(cv::Point2d(f.store.getValue<cv::Point_<int>>(Id::MeasPoints::LaserSpot::Position)) -
                         truth.infrared),
                2.0);
        }
    }
}

// A spot drawn at the sub-pixel place OpenCV projects the laser's point to, for several distances
// and temperature frame sizes: the infrared position is the laser's point at the distance found,
// not a whole pixel, both within the detector's accuracy (its centroid of a UYVY frame's clipping
// pixels is off by up to a fifth of a pixel), and the measurement point is the pixel it lies on.
TEST(DetectLaserPositionElement, SubPixelPositionAndTheDistanceFromIt) {
    LaserFixture f;
    const auto r = norda::test::testRig();
    r.save(f.dir.file("rig.json"));
    f.store.setValue(Id::Registration::CalibrationFile, f.dir.file("rig.json"), false);
    const cv::Vec3d tvec = -(r.rotation.t() * r.translation);
    cv::Vec3d rvec;
    cv::Rodrigues(r.rotation.t(), rvec);
    unsigned long long t = 1;
    for (const cv::Size ir : {cv::Size(640, 480), cv::Size(1024, 768)})
        for (double d : {1.3, 4.1, 7.7}) {
            const cv::Vec3d l =
                r.laserOrigin + (d - r.laserOrigin[2]) / r.laserDirection[2] * r.laserDirection;
            std::vector<cv::Point2d> v, i;
            cv::projectPoints(
                std::vector<cv::Point3d>{{l[0], l[1], l[2]}}, rvec, tvec,
                norda::test::cameraMatrixAt(r.visual, {640, 480}),
                std::vector<double>{r.visual.k1, r.visual.k2, r.visual.p1, r.visual.p2, r.visual.k3}, v);
            cv::projectPoints(std::vector<cv::Point3d>{{l[0], l[1], l[2]}}, cv::Vec3d(), cv::Vec3d(),
                              norda::test::cameraMatrixAt(r.infrared, ir), cv::noArray(), i);
            // A clipping white core in a red halo, drawn with 1/256 pixel precision.
            cv::Mat rgb(480, 640, CV_8UC3, cv::Scalar(90, 100, 110));
            const cv::Point at(int(std::lround((v[0].x) * 256)), int(std::lround(v[0].y * 256)));
            cv::circle(rgb, at, 5 * 256, cv::Scalar(255, 60, 50), -1, cv::LINE_AA, 8);
            cv::circle(rgb, at, 3 * 256, cv::Scalar(255, 250, 245), -1, cv::LINE_AA, 8);
            ASSERT_EQ(f.run(norda::test::rgbToUyvy(rgb), t++, ir), "Found") << d;
            const auto position = f.store.getValue<std::vector<double>>(Id::Laser::InfraredPosition);
            ASSERT_EQ(position.size(), 2u);
            const double found = f.store.getValue<float>(Id::Laser::Distance);
            const cv::Vec3d p =
                r.laserOrigin + (found - r.laserOrigin[2]) / r.laserDirection[2] * r.laserDirection;
            std::vector<cv::Point2d> there;
            cv::projectPoints(std::vector<cv::Point3d>{{p[0], p[1], p[2]}}, cv::Vec3d(), cv::Vec3d(),
                              norda::test::cameraMatrixAt(r.infrared, ir), cv::noArray(), there);
            EXPECT_LT(cv::norm(cv::Point2d(position[0], position[1]) - there[0]), 0.01) << d;
            EXPECT_LT(cv::norm(cv::Point2d(position[0], position[1]) - i[0]), 0.4 * ir.width / 640) << d;
            EXPECT_NEAR(found, d, 0.05 * d);
            EXPECT_EQ(f.store.getValue<cv::Point_<int>>(Id::MeasPoints::LaserSpot::Position),
                      cv::Point_<int>(int(std::lround(position[0])), int(std::lround(position[1]))));
        }
}

TEST(DetectLaserPositionElement, NoFalseSpotAndOneMessagePerEpisodeOfBadInput) {
    LaserFixture f;
    // The mask's shortcut against a plain per-pixel conversion (BT.601 as ColorConvert).
    const cv::Mat frame = VisualCamera::toUyvy(f.camera.render({640, 480}, 0.5));
    cv::Mat fast;
    norda::vision::LaserSpotDetector::mask(frame, fast);
    for (int y = 0; y < frame.rows; ++y)
        for (int x = 0; x < frame.cols; ++x) {
            const uint8_t* p = frame.ptr<uint8_t>(y) + 4 * (x / 2);
            const int c = 298 * (p[1 + 2 * (x % 2)] - 16);
            const int r = (c + 409 * (p[2] - 128) + 128) >> 8;
            const int g = std::clamp((c - 100 * (p[0] - 128) - 208 * (p[2] - 128) + 128) >> 8, 0, 255);
            ASSERT_EQ(fast.at<uint8_t>(y, x), r >= 250 ? std::clamp(r - g, 1, 255) : 0) << x << "," << y;
        }
    norda::test::LogCapture log;
    // The laser off: white print, a red object, a label -- no spot.
    VisualConfig off;
    off.laser = false;
    VisualCamera dark(f.store, f.scene, off);
    unsigned long long t = 100;
    for (double time : {0.2, 3.3, 6.1})
        EXPECT_EQ(f.run(VisualCamera::toUyvy(dark.render({640, 480}, time)), t++), "NotFound");
    EXPECT_FALSE(f.store.getValue<bool>(Id::MeasPoints::LaserSpot::Visible));
    // A spot cut by the frame's border is none.
    cv::Mat rgb = dark.render({640, 480}, 0.2);
    cv::circle(rgb, {1, 300}, 3, cv::Scalar(255, 240, 230), -1);
    cv::circle(rgb, {1, 300}, 5, cv::Scalar(255, 60, 50), 2);
    EXPECT_EQ(f.run(VisualCamera::toUyvy(rgb), t++), "NotFound");

    const cv::Mat good = VisualCamera::toUyvy(f.camera.render({640, 480}, 0.5));
    EXPECT_EQ(f.run(good, t), "Found");
    // A frame not newer than the last, twice: one message, no spot.
    EXPECT_EQ(f.run(good, t), "StaleFrame");
    EXPECT_EQ(f.run(good, t - 5), "StaleFrame");
    EXPECT_FALSE(f.store.getValue<bool>(Id::MeasPoints::LaserSpot::Visible));
    EXPECT_EQ(f.run(good, ++t), "Found");
    // Frames of another type or aspect: one episode.
    EXPECT_EQ(f.run(cv::Mat(480, 640, CV_8UC3, cv::Scalar(0)), ++t), "BadFrame");
    EXPECT_EQ(f.run(cv::Mat(400, 640, CV_8UC2, cv::Scalar(0)), ++t), "BadFrame");
    // A missing, then a damaged calibration.
    f.store.setValue(Id::Registration::CalibrationFile, f.dir.file("missing.json"), false);
    EXPECT_EQ(f.run(good, ++t), "NoCalibration");
    EXPECT_EQ(f.run(good, ++t), "NoCalibration");
    std::ofstream(f.dir.file("broken.json")) << "{\"infrared\": {}}";
    f.store.setValue(Id::Registration::CalibrationFile, f.dir.file("broken.json"), false);
    EXPECT_EQ(f.run(good, ++t), "NoCalibration");
    EXPECT_FALSE(f.store.getValue<bool>(Id::MeasPoints::LaserSpot::Visible));
    EXPECT_EQ(log.countPrefix("no laser spot: visual frame of"), 1);
    EXPECT_EQ(log.countPrefix("no laser spot: a visual frame must be UYVY"), 1);
    EXPECT_EQ(log.countPrefix("no laser spot: registration file"), 1);
    EXPECT_EQ(log.countPrefix("no laser spot: registration " + f.dir.file("broken.json")), 0); // same episode
    EXPECT_EQ(log.countPrefix("laser spot search works again"), 1);
    EXPECT_EQ(
        norda::test::messageOf([] { DetectLaserPositionElement e(nullptr, STREAMING_DATATYPE_YUV422); }),
        "Pointer to DataProxy is mandatory for this element!");
}
#endif
