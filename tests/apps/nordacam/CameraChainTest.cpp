#ifdef NORDACAM_CORE
#include "apps/nordacam/Camera.h"
#include "apps/nordacam/Measure.h"

#include "nordalib/core/keys/Keys.h"
#include "nordalib/vision/streaming/SnrElement.h"
#include "nordalib/vision/streaming/SprElement.h"
#include "tests/support/TempDir.h"

#include "nordalib/vision/imageio/ImageDecoderPxM.h"

#include <gtest/gtest.h>

#include <opencv2/imgcodecs.hpp>

#include <filesystem>
#include <fstream>

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
    for (const auto& o : objects)
        EXPECT_NEAR(o.measuredC, o.trueC, 0.3f) << o.name;
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
