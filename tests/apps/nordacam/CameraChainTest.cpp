#ifdef NORDACAM_CORE
#include "apps/nordacam/CalibTools.h"
#include "apps/nordacam/Camera.h"
#include "apps/nordacam/Measure.h"

#include "nordalib/core/keys/Keys.h"
#include "nordalib/vision/streaming/SnrElement.h"
#include "nordalib/vision/streaming/SprElement.h"
#include "tests/support/TempDir.h"

#include "nordalib/vision/imageio/ImageDecoderPxM.h"
#include "nordalib/vision/imgproc/BadPixelMap.h"

#include <gtest/gtest.h>

#include <opencv2/imgcodecs.hpp>

#include "nordalib/core/datatypes/MeasPoint.h"
#include "nordalib/core/datatypes/Quantity.h"
#include "nordalib/vision/rix/Rix.h"

#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <thread>

using namespace norda::exp;
using namespace nordacam;

namespace {

CameraOptions fastCamera(const std::string& out) {
    CameraOptions o;
    o.outputDir = out;
    o.settingsFile = out + "/settings.json";
    o.realTime = false;
    o.sim.uptimeStartMs = 130000; // warm from the start
    o.sim.shutterPeriodS = 60.0;
    return o;
}

} // namespace

TEST(NordacamCamera, ChainHoldsEveryStage) {
    norda::test::TempDir dir;
    Camera camera(fastCamera(dir.file("out")));
    // Streams are wired for the server only.
    EXPECT_FALSE(camera.has("SocketServerElement"));
    // The noise filters run the settings the store shows.
    auto& store = camera.store();
    const auto* spr =
        dynamic_cast<const norda::exp::streaming::SprElement*>(camera.pipeline().find("SprElement"));
    const auto* snr =
        dynamic_cast<const norda::exp::streaming::SnrElement*>(camera.pipeline().find("SnrElement"));
    ASSERT_TRUE(spr && snr);
    EXPECT_EQ(spr->filter().threshold(), store.getValue<short>(Id::SprElement::Threshold));
    EXPECT_EQ(spr->filter().lineLimit(), store.getValue<short>(Id::SprElement::LineLimit));
    EXPECT_EQ(spr->filter().frameLimit(), store.getValue<short>(Id::SprElement::FrameLimit));
    EXPECT_EQ(snr->filter().gain(), store.getValue<short>(Id::SprElement::FrameLimit));
    // What the camera cannot give yet says so instead of answering with made-up data.
    EXPECT_THROW(camera.temperatureAt(1, 1), NotAvailable); // no frame yet
    EXPECT_THROW(Camera([&] {
                     auto o = fastCamera(dir.file("out2"));
                     o.assignments = {"Bogus.Key=1"};
                     return o;
                 }()),
                 SettingsError);
}

TEST(NordacamCamera, SimulatedObjectsAreMeasuredAtTheirTrueTemperatures) {
    norda::test::TempDir dir;
    Camera camera(fastCamera(dir.file("out")));
    for (int i = 0; i < 30; ++i)
        camera.runCycle();
    const auto snap = camera.snapshot();
    ASSERT_FALSE(snap.rad.empty());
    ASSERT_TRUE(snap.truth);
    EXPECT_TRUE(warm(snap));
    const auto objects = measureObjects(snap);
    ASSERT_EQ(objects.size(), 3u);
    // The lens's blur over the small 85 °C disc (size of source) and the uncorrected air over its
    // 2.5 m take up to half a kelvin off it; the air alone, corrected, gives back less than 0.05 K.
    for (const auto& o : objects)
        EXPECT_NEAR(o.measuredC, o.trueC, 0.6f) << o.name;
    const auto spots = readSpots(camera.store());
    ASSERT_TRUE(spots[0].valid);
    EXPECT_NEAR(spots[0].celsius, snap.truth->hotC, 0.5f);
    EXPECT_NEAR(spots[1].celsius, snap.truth->coldC, 0.6f);
    // The hot spot lies on the hot object.
    EXPECT_LT(std::hypot(spots[0].x - snap.truth->hotCentre.x, spots[0].y - snap.truth->hotCentre.y),
              snap.truth->hotRadius + 3);
    EXPECT_NEAR(camera.temperatureAt(320, 240), snap.truth->centreC, 0.5f);
    EXPECT_GT(camera.rawAt(320, 240), 1000);
}

TEST(NordacamCamera, SavesImagesRecordsRawFramesAndPlaysThemBack) {
    norda::test::TempDir dir;
    const std::string out = dir.file("out");
    const std::string recording = out + "/rec.pxm";
    {
        Camera camera(fastCamera(out));
        camera.startRecording(recording, 12);
        for (int i = 0; i < 8; ++i)
            camera.runCycle();
        const auto name = camera.saveImage(std::chrono::seconds(10));
        EXPECT_EQ(std::filesystem::path(name).filename(), "IR000001.RIX");
        EXPECT_TRUE(std::filesystem::exists(out + "/IR000001.RIX"));
        const cv::Mat jpeg = cv::imread(out + "/TR000001.JPG");
        EXPECT_EQ(jpeg.size(), cv::Size(640, 480)); // the scene as the user saw it
        EXPECT_EQ(camera.store().getValue<unsigned int>(Id::Miscellaneous::ImageCounter), 2u);
        for (int i = 0; i < 8 && camera.recording(); ++i)
            camera.runCycle();
        EXPECT_FALSE(camera.recording());
        // SaveUserSettings ran after the save: the counter survives a restart.
        std::ifstream settings(out + "/settings.json");
        EXPECT_EQ(nlohmann::json::parse(settings)["Miscellaneous.ImageCounter"], 2);
    }

    norda::vision::ImageDecoderPxM decoder;
    ASSERT_TRUE(decoder.open(recording));
    cv::Mat frame;
    int frames = 0, shutterFrames = 0;
    while (decoder.grab(frame, nullptr)) {
        ++frames;
        EXPECT_EQ(frame.type(), CV_16UC1);
        if (decoder.getMetaData().get<bool>(Id::Shutter::Closed))
            ++shutterFrames;
    }
    EXPECT_EQ(frames, 12);
    EXPECT_GE(shutterFrames, 4); // the recording starts with the shutter: it can be played back alone

    // Playback: the same chain on the recording gives temperatures again.
    auto o = fastCamera(out);
    o.inputFile = recording;
    Camera player(o);
    EXPECT_TRUE(player.has("FileReaderElement"));
    // The file reader starts at its second frame: the shutter frames come round again after a loop.
    for (int i = 0; i < 26; ++i)
        player.runCycle();
    EXPECT_FALSE(player.snapshot().rad.empty());
    EXPECT_EQ(player.store().getValue<unsigned int>(Id::Miscellaneous::ImageCounter),
              2u); // from settings.json

    o.inputFile = dir.file("missing.pxm");
    EXPECT_THROW(Camera bad(o), SettingsError);
}
#endif

#ifdef NORDACAM_CORE
TEST(NordacamCamera, VisualCameraRunsBesideTheDetector) {
    using Rel = quantity::Relation<MarkedFloat>;
    norda::test::TempDir dir;
    Camera camera(fastCamera(dir.file("out")));
    for (const char* element : {"ImageBufferElement", "DetectLaserPositionElement", "EmissionMarkerElement"})
        EXPECT_TRUE(camera.has(element)) << element;
    // The emission marker on each plate's label in turn: the emissivity of the plate within 0.03,
    // told what the hall's surfaces really reflect.
    using Temp = quantity::Temperature<MarkedFloat>;
    camera.store().setValue(Id::Environment::ReflectedTemperature,
                            Temp(MarkedFloat(nordacam::sim::Scene::kReflectedC)), true);
    for (const auto& plate : camera.simulator()->scene().plates()) {
        const auto c = (plate.label.tl() + plate.label.br()) * 0.5f;
        camera.store().setValue(Id::EmissionMarker::SearchPoint, cv::Point_<int>(int(c.x), int(c.y)), true);
        std::string status;
        for (int i = 0; i < 40 && status != "Valid"; ++i) {
            camera.runCycle();
            status = camera.store().getValue<std::string>(Id::EmissionMarker::Status);
        }
        ASSERT_EQ(status, "Valid") << plate.name;
        const float e = camera.store().getValue<Rel>(Id::EmissionMarker::Emissivity).getValue().toFloat();
        std::cout << "[ quality  ] " << plate.name << ": emissivity from the label " << e << "\n";
        EXPECT_NEAR(e, plate.emissivity, 0.03) << plate.name;
    }
    // A surface at the reflected temperature tells nothing of its emissivity: invalid, with why.
    const auto reflected = camera.store().getValue<Temp>(Id::Environment::ReflectedTemperature);
    camera.store().setValue(Id::Environment::ReflectedTemperature,
                            camera.store().getValue<Temp>(Id::EmissionMarker::SurfaceTemperature), true);
    std::string contrast;
    for (int i = 0; i < 10 && contrast != "LowContrast"; ++i) {
        camera.runCycle();
        contrast = camera.store().getValue<std::string>(Id::EmissionMarker::Status);
    }
    EXPECT_EQ(contrast, "LowContrast");
    camera.store().setValue(Id::Environment::ReflectedTemperature, reflected, true);
    for (int i = 0; i < 40 && contrast != "Valid"; ++i) {
        camera.runCycle();
        contrast = camera.store().getValue<std::string>(Id::EmissionMarker::Status);
    }
    ASSERT_EQ(contrast, "Valid");
    // The laser spot goes to the measurement: the min/max element measures under it at its next
    // evaluation cycle (it reads the position through the store).
    auto snap = camera.snapshot();
    auto measured = [&] {
        return camera.store().getValue<MeasPoint>(Id::MeasPoints::LaserSpot::MeasPoint).getPos();
    };
    for (int i = 0; i < 40 && !(snap.laserVisible && measured() == cv::Point_<int>(snap.laser)); ++i) {
        camera.runCycle();
        snap = camera.snapshot();
    }
    ASSERT_TRUE(snap.laserVisible) << camera.store().getValue<std::string>(Id::Laser::Status);
    EXPECT_LT(cv::norm(cv::Point2d(snap.laser) - snap.truth->laser.infrared), 2.0);
    EXPECT_EQ(measured(), cv::Point_<int>(snap.laser));
    // A copy of the emissivity on command.
    camera.store().setValue(Id::EmissionMarker::Apply, true, true);
    camera.store().flush();
    EXPECT_NEAR(camera.store().getValue<float>(Id::Environment::EmissivityValue),
                camera.snapshot().markerEmissivity, 1e-6);
    EXPECT_FALSE(camera.store().getValue<bool>(Id::EmissionMarker::Apply));

    // Every saved image holds the visual image at 1024 x 768; the camera returns to its live size.
    // The JPEG shows the display's fusion on request (the wall's beige in the corner).
    camera.store().setValue(Id::Fusion::Mode, Id::Fusion::PictureInPicture, true);
    camera.store().setValue(Id::Fusion::InJpeg, true, true);
    const auto name = camera.saveImage(std::chrono::seconds(20));
    norda::vision::Rix rix;
    rix.load(name);
    EXPECT_EQ(rix.getVisualImageYuv2().size(), cv::Size(1024, 768));
    const cv::Mat jpeg = cv::imread(std::filesystem::path(name).replace_filename(
        "TR" + std::filesystem::path(name).filename().string().substr(2, 6) + ".JPG"));
    ASSERT_FALSE(jpeg.empty());
    EXPECT_LT(cv::norm(cv::Vec3d(jpeg.at<cv::Vec3b>(10, 10)) - cv::Vec3d(176, 190, 196)), 20.0);
    camera.runCycle();
    EXPECT_EQ(camera.store().getValue<std::string>(Id::Viscam::CurrentImageResolution), "VGA");
}

// Detectors of other sizes with the factory's registration (calibrated at 640 x 480): the laser,
// the label, the fusion, the overlay and the saved images work at the frames' size.
TEST(NordacamCamera, VisualResultsOnDetectorsOfOtherSizes) {
    namespace fs = std::filesystem;
    using Rel = quantity::Relation<MarkedFloat>;
    for (const cv::Size size : {cv::Size(320, 240), cv::Size(1024, 768)}) {
        SCOPED_TRACE(std::to_string(size.width) + "x" + std::to_string(size.height));
        norda::test::TempDir dir;
        auto o = fastCamera(dir.file("out"));
        const double s = size.width / 640.0;
        o.sim.width = size.width;
        o.sim.height = size.height;
        auto& lens = o.sim.lens; // the same lens on a sensor of another pitch
        lens.fx *= s, lens.fy *= s, lens.cx = (lens.cx + 0.5) * s - 0.5, lens.cy = (lens.cy + 0.5) * s - 0.5;
        // This detector's lens table and bad pixels beside the factory's radiometry and registration.
        o.calibrationDir = dir.file("calib/");
        fs::create_directories(o.calibrationDir);
        for (const char* file : {"radiometry.json", "registration.json"})
            fs::copy_file(defaultCalibrationDir() + file, o.calibrationDir + file);
        std::ostringstream quiet;
        calibDistortion({lens.fx, lens.fy, lens.cx, lens.cy, lens.k1, lens.k2, lens.p1, lens.p2, lens.k3,
                         size.width, size.height},
                        o.calibrationDir + "lens1/distort.pxm", quiet);
        norda::vision::BadPixelMap::write(o.calibrationDir + "badpixel.pxm", {}, size);
        Camera camera(o);
        camera.store().setValue(Id::Fusion::Mode, Id::Fusion::PictureInPicture, true);

        const auto& plate = camera.simulator()->scene().plates().front();
        const auto c = (plate.label.tl() + plate.label.br()) * 0.5f;
        camera.store().setValue(Id::EmissionMarker::SearchPoint, cv::Point_<int>(int(c.x), int(c.y)), true);
        std::string status;
        auto snap = camera.snapshot();
        for (int i = 0; i < 60 && !(status == "Valid" && snap.laserVisible); ++i) {
            camera.runCycle();
            status = camera.store().getValue<std::string>(Id::EmissionMarker::Status);
            snap = camera.snapshot();
        }
        ASSERT_EQ(status, "Valid") << plate.name;
        EXPECT_NEAR(camera.store().getValue<Rel>(Id::EmissionMarker::Emissivity).getValue().toFloat(),
                    plate.emissivity, 0.03);
        const cv::Rect label = camera.store().getValue<cv::Rect_<int>>(Id::EmissionMarker::Rect);
        EXPECT_LT(cv::norm(cv::Point2f(label.tl() + label.br()) * 0.5f - c), 2.0);
        ASSERT_TRUE(snap.laserVisible) << camera.store().getValue<std::string>(Id::Laser::Status);
        EXPECT_LT(cv::norm(snap.laserPosition - snap.truth->laser.infrared), 2.0 * std::max(1.0, s));
        EXPECT_EQ(snap.rgb.size(), size);
        // The fused display places the infrared image inside the visual view, centred near its middle.
        const auto placement = camera.store().getValue<std::vector<double>>(Id::Fusion::InfraredPlacement);
        ASSERT_EQ(placement.size(), 4u);
        EXPECT_NEAR((placement[0] + placement[2]) / 2, size.width / 2.0, 0.1 * size.width);

        norda::vision::Rix rix;
        const auto name = camera.saveImage(std::chrono::seconds(20));
        rix.load(name);
        EXPECT_EQ(rix.getRadiometricImage().size(), size);
        EXPECT_EQ(rix.getPreviewImageRgb().size(), size);
        // The picture is 640 x 480 whatever the detector; its overlay places the marks from the
        // detector's size.
        EXPECT_EQ(cv::imread(fs::path(name).replace_filename(
                                 "TR" + fs::path(name).filename().string().substr(2, 6) + ".JPG"))
                      .size(),
                  cv::Size(640, 480));
        EXPECT_EQ(cv::Size(camera.store().getValue<unsigned short>(Id::IrImage::Cols),
                           camera.store().getValue<unsigned short>(Id::IrImage::Rows)),
                  size);
        for (const auto& e : camera.pipeline().statistics().elements)
            EXPECT_EQ(e.failures, 0u) << e.name << ": " << e.lastError;
    }
}

TEST(NordacamCamera, HighResolutionStillsAndAVisualCameraThatStops) {
    norda::test::TempDir dir;
    auto o = fastCamera(dir.file("out"));
    o.highResolutionStills = true;
    Camera camera(o);
    for (int i = 0; i < 6; ++i)
        camera.runCycle();
    norda::vision::Rix rix;
    rix.load(camera.saveImage(std::chrono::seconds(30)));
    EXPECT_EQ(rix.getVisualImageYuv2().size(), cv::Size(2592, 1944));
    EXPECT_FLOAT_EQ(rix.getVisualPreviewFactor(), 1.0f / 12.0f);

    // A camera that delivers every second frame late by one (out of order), then none at all:
    // the marker reports frames of another moment, and images are saved without a visual image.
    auto broken = fastCamera(dir.file("out2"));
    broken.visualSim.swapEvery = 4;
    Camera late(broken);
    std::set<std::string> statuses;
    for (int i = 0; i < 30; ++i) {
        late.runCycle();
        statuses.insert(late.store().getValue<std::string>(Id::EmissionMarker::Status));
    }
    EXPECT_TRUE(statuses.count("NotAligned"));
    broken.visualSim.dropEvery = 1;
    broken.visualSim.swapEvery = 0;
    Camera dead(broken);
    for (int i = 0; i < 20; ++i)
        dead.runCycle();
    rix.load(dead.saveImage(std::chrono::seconds(20)));
    EXPECT_TRUE(rix.getVisualImageYuv2().empty());
}

// A host torn down while its chain runs: the destructor stops and joins the pipeline thread before
// anything the elements use goes away. ASan builds report a late cycle reading freed memory.
TEST(NordacamCamera, DestroyedWhileItsChainRuns) {
    norda::test::TempDir dir;
    auto o = fastCamera(dir.file("out"));
    o.visual = false;
    for (int i = 0; i < 100; ++i) {
        Camera camera(o);
        camera.start();
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
        while (camera.snapshot().cycle < 2 && std::chrono::steady_clock::now() < deadline)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        ASSERT_GE(camera.snapshot().cycle, 2u) << "round " << i;
    }
}
#endif
