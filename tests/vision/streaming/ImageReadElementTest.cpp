#include "nordalib/vision/streaming/ImageReadElement.h"
#include "nordalib/core/dataproxy/DataProxy.h"
#include "nordalib/core/keys/DefaultParameters.h"
#include "nordalib/core/keys/Keys.h"
#include "nordalib/core/logging/Logger.h"
#include "nordalib/vision/rix/Rix.h"
#include "tests/vision/TestSupport.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

using namespace norda::exp;
using namespace norda::exp::streaming;
using norda::logging::Logger;
using norda::logging::LogLevel;
using norda::vision::Rix;
namespace fs = std::filesystem;
using Temp = quantity::Temperature<MarkedFloat>;

namespace {

class ImageReadTest : public ::testing::Test {
protected:
    void SetUp() override { setDefaultParameters(proxy); }
    // A stored image with settings, a generic entry and a visual image.
    Rix storedImage(uint16_t level) {
        Rix rix;
        cv::Mat_<uint16_t> rad(48, 64);
        cv::RNG(level).fill(rad, cv::RNG::UNIFORM, level, level + 500);
        rix.setRadiometricImage(rad);
        rix.setPreviewImageRgb(cv::Mat_<cv::Vec3b>(48, 64, cv::Vec3b(1, 2, 3)));
        rix.setVisualImageYuv2(cv::Mat_<cv::Vec2b>(768, 1024, cv::Vec2b(128, 77)), 0.25f, false);
        rix.setGeneric(Id::Environment::Humidity,
                       makeVariant(quantity::Relation<MarkedFloat>(MarkedFloat(0.61f))));
        rix.setGeneric(Id::ActiveLens::Serial, makeVariant(std::string("L25-000007")));
        rix.setScalingMax(Temp(MarkedFloat(44.0f)));
        rix.setScalingMin(Temp(MarkedFloat(11.0f)));
        rix.setEmissivityOriginal(0.87f);
        rix.setReflectedTempOriginal(Temp(MarkedFloat(23.0f)));
        return rix;
    }
    void show(const std::string& name) {
        proxy.setValue(Id::Gallery::ActiveFilename, name, true);
        proxy.flush();
    }
    // Error records of the element's logger.
    std::vector<std::string> errors() const {
        std::vector<std::string> out;
        for (const auto& r : logs.records())
            if (r.logger == "READ" && r.level >= LogLevel::error)
                out.push_back(r.message);
        return out;
    }

    DataProxy<std::string> proxy;
    norda::test::TempDir dir;
    std::string folder = dir.path().string();
    norda::test::LogCapture logs;
};

} // namespace

TEST_F(ImageReadTest, DeliversTheStoredImageWithItsSettingsEveryCycle) {
    ImageReadElement reader(&proxy, folder, {}, 4, STREAMING_DATATYPE_YUV422);

    FrameMap in, out;
    EXPECT_FALSE(reader.process(in, out)) << "nothing to show yet";
    EXPECT_TRUE(out.empty());

    const Rix stored = storedImage(30000);
    stored.save(folder + "/IR000007.RIX", false);
    show("IR000007.RIX");
    for (int cycle = 0; cycle < 2; ++cycle) {
        ASSERT_TRUE(reader.process(in, out));
        auto& rad = out[STREAMING_DATATYPE_RAD];
        ASSERT_TRUE(rad);
        EXPECT_EQ(cv::norm(rad->getFrameData(), stored.getRadiometricImage(), cv::NORM_INF), 0);
        const auto& meta = rad->getMetaData();
        EXPECT_EQ(meta.get<std::string>(Id::Gallery::ActiveFilename), "IR000007.RIX");
        EXPECT_EQ(meta.get<float>(Id::Environment::EmissivityValue), 0.87f);
        EXPECT_EQ(meta.get<std::string>(Id::ActiveLens::Serial), "L25-000007");
        EXPECT_EQ(out[STREAMING_DATATYPE_YUV422]->getFrameData().size(), cv::Size(1024, 768));
        rad->getFrameData().setTo(0); // a later element working in place must not spoil the next cycle
    }
    EXPECT_EQ(reader.getLoadedFilename(), "IR000007.RIX");

    // The file was rewritten: a forced update reloads it.
    storedImage(20000).save(folder + "/IR000007.RIX", false);
    proxy.setValue(Id::Gallery::ForceUpdate, true, true);
    proxy.flush();
    ASSERT_TRUE(reader.process(in, out));
    EXPECT_LT(cv::norm(out[STREAMING_DATATYPE_RAD]->getFrameData(), cv::NORM_INF), 20500);

    // An empty name ends the display.
    show("");
    EXPECT_FALSE(reader.process(in, out));
    EXPECT_EQ(errors().size(), 0u);
}

TEST_F(ImageReadTest, MissingOrDamagedFilesAreReportedOnceAndGiveNoFrames) {
    ImageReadElement reader(&proxy, folder, {}, 0, STREAMING_DATATYPE_YUV422);
    FrameMap in, out;
    show("IR000099.RIX");
    for (int cycle = 0; cycle < 3; ++cycle)
        EXPECT_FALSE(reader.process(in, out));
    EXPECT_TRUE(out.empty());
    ASSERT_EQ(errors().size(), 1u);
    EXPECT_NE(errors()[0].find(folder + "/IR000099.RIX"), std::string::npos) << errors()[0];

    // A good file afterwards (absolute path) shows again.
    storedImage(30000).save(folder + "/IR000101.RIX", false);
    show(folder + "/IR000101.RIX");
    EXPECT_TRUE(reader.process(in, out));
}

TEST_F(ImageReadTest, SelectedEntriesAndSuperResolutionFiles) {
    ImageReadElement reader(&proxy, folder, {Id::Environment::Humidity}, 0, STREAMING_DATATYPE_YUV422_HIRES);
    Rix stored = storedImage(30000);
    cv::Mat_<uint16_t> scene(48, 64);
    cv::RNG(1).fill(scene, cv::RNG::UNIFORM, 29000, 31000);
    ASSERT_GT(stored.calculateSuperResolutionImage({scene, scene, scene, scene, scene}), 0.0f);
    stored.save(folder + "/SR000007.RIX", true);
    show("SR000007.RIX");
    FrameMap in, out;
    ASSERT_TRUE(reader.process(in, out));
    EXPECT_EQ(out[STREAMING_DATATYPE_RAD]->getFrameData().size(), cv::Size(128, 96)) << "the fused image";
    const auto& meta = out[STREAMING_DATATYPE_RAD]->getMetaData();
    EXPECT_TRUE(meta.contains(Id::Environment::Humidity));
    EXPECT_FALSE(meta.contains(Id::ActiveLens::Serial)) << "not among the selected entries";
    EXPECT_TRUE(out[STREAMING_DATATYPE_YUV422_HIRES]);
}
