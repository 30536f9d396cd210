#include "nordalib/vision/streaming/OffsetElement.h"
#include "nordalib/core/keys/DefaultParameters.h"
#include "nordalib/vision/imageio/PxmImage.h"
#include "nordalib/vision/imgproc/BadPixelMap.h"
#include "tests/vision/TestSupport.h"

#include <gtest/gtest.h>

#include <atomic>
#include <fstream>
#include <thread>

using namespace norda;
using namespace norda::exp;
using namespace norda::exp::streaming;

namespace {
struct OffsetElementTest : ::testing::Test {
    OffsetElementTest() { setDefaultParameters(proxy); }

    bool run(OffsetElement& e, const cv::Mat& raw, const std::string& state) {
        DataStorage<std::string> meta;
        meta.setValue(Id::Shutter::State, state);
        meta.setValue(Id::Environment::EmissivityValue, 0.95f);
        in.clear();
        in[STREAMING_DATATYPE_RAW] = std::make_unique<Frame>(raw, std::move(meta));
        return e.process(in, out);
    }
    bool run(OffsetElement& e, uint16_t value, const std::string& state) {
        return run(e, cv::Mat(6, 8, CV_16U, cv::Scalar(value)), state);
    }
    void capture(OffsetElement& e, std::initializer_list<uint16_t> values) {
        for (auto v : values)
            EXPECT_FALSE(run(e, v, Id::Shutter::StateCaptureOffsetFrame));
    }
    cv::Mat offsetInStore() { return proxy.getValue<cv::Mat>(Id::Shutter::OffsetFrame); }

    test::TempDir dir;
    DataProxy<std::string> proxy;
    test::LogCapture logs;
    FrameMap in, out;
};
} // namespace

TEST_F(OffsetElementTest, ConstructionWithoutBadPixelFileAndWithABufferPool) {
    proxy.setValue(Id::Streaming::DisableOffset, true, false);
    OffsetElement e(&proxy, test::slashed(dir), nullptr);
    EXPECT_FALSE(proxy.getValue<bool>(Id::Streaming::DisableOffset));
    EXPECT_TRUE(logs.has(logging::LogLevel::warning,
                         "BadPixel File: " + test::slashed(dir) + "badpixel.pxm is missing!"));
    EXPECT_TRUE(proxy.getValue<vision::BadPixelList>(Id::IrSensor::BadPixelList).empty());

    // A buffer pool cannot be used: the first frame to correct throws at its fixed location.
    int poolStandIn = 0;
    OffsetElement pooled(&proxy, test::slashed(dir), reinterpret_cast<BufferPool*>(&poolStandIn));
    capture(pooled, {10, 10, 10, 10});
    EXPECT_EQ(test::failureOf([&] { run(pooled, 20, Id::Shutter::StateIdle); }),
              std::make_pair(std::string("BufferPool not available with this configuration!"),
                             std::string("nordalib/vision/streaming/OffsetElement: 145: "
                                         "norda::exp::streaming::OffsetElement::process(..)")));
}

TEST_F(OffsetElementTest, CaptureStateMachineAndRounding) {
    OffsetElement e(&proxy, test::slashed(dir), nullptr);
    // No offset yet: no output, output map untouched.
    EXPECT_FALSE(run(e, 500, Id::Shutter::StateIdle));
    EXPECT_TRUE(out.empty());

    capture(e, {1000, 1001, 1001});
    EXPECT_EQ(proxy.getValue<std::string>(Id::Shutter::State), Id::Shutter::StateIdle);
    capture(e, {1002});
    EXPECT_EQ(proxy.getValue<std::string>(Id::Shutter::State), Id::Shutter::StateOpening);
    EXPECT_EQ(cv::countNonZero(offsetInStore() != 1001), 0);
    EXPECT_EQ(logs.count("OffsetElement: Detect 0 extra bad Pixel"), 1);

    // Rounding half up of the mean: sums 4, 5, 6, 7 -> 1, 1, 2, 2.
    const uint16_t lastFrame[] = {1, 2, 3, 4};
    for (int sum = 4; sum <= 7; ++sum) {
        run(e, 0, Id::Shutter::StateClosing); // leaves capture: counter back to 0
        capture(e, {1, 1, 1, lastFrame[sum - 4]});
        EXPECT_EQ(offsetInStore().at<uint16_t>(2, 3), (sum + 2) >> 2) << "sum " << sum;
    }

    // An interrupted capture is abandoned and the old offset stays in use.
    run(e, 0, Id::Shutter::StateIdle);
    capture(e, {900, 900, 900});
    ASSERT_TRUE(run(e, 2102, Id::Shutter::StateIdle));
    EXPECT_EQ(out[STREAMING_DATATYPE_CORRECTED]->getFrameData().at<int16_t>(0, 0), 2100);
    capture(e, {300, 300, 300});
    EXPECT_EQ(offsetInStore().at<uint16_t>(0, 0), 2); // still not replaced
    capture(e, {300});
    EXPECT_EQ(offsetInStore().at<uint16_t>(0, 0), 300);
}

TEST_F(OffsetElementTest, WrapAroundSubtractionMetadataAndDisable) {
    OffsetElement e(&proxy, test::slashed(dir), nullptr);
    cv::Mat dark(6, 8, CV_16U, cv::Scalar(200));
    dark.at<uint16_t>(0, 1) = 0; // will be detected as a dead pixel
    for (int i = 0; i < 4; ++i)
        run(e, dark, Id::Shutter::StateCaptureOffsetFrame);
    cv::Mat raw(6, 8, CV_16U, cv::Scalar(100));
    raw.at<uint16_t>(0, 1) = 65535;
    raw.at<uint16_t>(1, 0) = 40000;
    ASSERT_TRUE(run(e, raw, Id::Shutter::StateIdle));
    const cv::Mat& c = out[STREAMING_DATATYPE_CORRECTED]->getFrameData();
    ASSERT_EQ(c.type(), CV_16SC1);
    EXPECT_EQ(c.at<int16_t>(0, 0), -100);
    EXPECT_EQ(c.at<int16_t>(0, 1), -1);                           // 65535 - 0 wraps
    EXPECT_EQ(c.at<int16_t>(1, 0), static_cast<int16_t>(-25736)); // 39800 wraps into the negative range
    EXPECT_TRUE(in[STREAMING_DATATYPE_RAW]->getMetaData().empty());

    EXPECT_EQ(proxy.getValue<vision::BadPixelList>(Id::IrSensor::BadPixelList),
              (vision::BadPixelList{{1, 0, vision::BadPixelOrigin::Dead}}));

    // Disabled: idle frames give nothing while captures still update the offset.
    proxy.setValue(Id::Streaming::DisableOffset, true);
    proxy.flush();
    out.clear();
    EXPECT_FALSE(run(e, raw, Id::Shutter::StateIdle));
    EXPECT_TRUE(out.empty());
    capture(e, {7, 7, 7, 7});
    EXPECT_EQ(offsetInStore().at<uint16_t>(3, 3), 7);
    proxy.setValue(Id::Streaming::DisableOffset, false);
    proxy.flush();
    ASSERT_TRUE(run(e, raw, Id::Shutter::StateIdle));
    EXPECT_EQ(out[STREAMING_DATATYPE_CORRECTED]->getFrameData().at<int16_t>(3, 3), 93);

    // A frame of another size (sensor mode change): no output until a new capture.
    EXPECT_FALSE(run(e, cv::Mat(3, 4, CV_16U, cv::Scalar(50)), Id::Shutter::StateIdle));
}

TEST_F(OffsetElementTest, BadPixelFileLoadReloadAndDamage) {
    const std::string file = test::slashed(dir) + "badpixel.pxm";
    vision::BadPixelMap::write(file, {{3, 2, vision::BadPixelOrigin::Factory}}, {8, 6});
    OffsetElement e(&proxy, test::slashed(dir), nullptr);
    EXPECT_TRUE(logs.has(logging::LogLevel::info, "Load BadPixel from file."));
    EXPECT_EQ(proxy.getValue<vision::BadPixelList>(Id::IrSensor::BadPixelList),
              (vision::BadPixelList{{3, 2, vision::BadPixelOrigin::Factory}}));

    // A detected pixel survives a reload of the file; the file's new content replaces the old.
    cv::Mat dark(6, 8, CV_16U, cv::Scalar(300));
    dark.at<uint16_t>(5, 7) = 65535;
    for (int i = 0; i < 4; ++i)
        run(e, dark, Id::Shutter::StateCaptureOffsetFrame);
    cv::Mat mask(6, 8, CV_8U, cv::Scalar(0));
    mask.at<uint8_t>(1, 1) = 255; // hand-edited mask
    vision::writePxmImage(file, mask);
    proxy.setValue(Id::Streaming::UpdateValues, false); // false: nothing to reload
    proxy.flush();
    EXPECT_EQ(e.badPixels().size(), 2u);
    proxy.setValue(Id::Streaming::UpdateValues, true);
    proxy.flush();
    EXPECT_EQ(proxy.getValue<vision::BadPixelList>(Id::IrSensor::BadPixelList),
              (vision::BadPixelList{{1, 1, vision::BadPixelOrigin::Factory},
                                    {7, 5, vision::BadPixelOrigin::Stuck}}));

    // A damaged file is reported and the camera keeps running with the detected pixels.
    std::ofstream(file) << "P5\n8 6\n255\nshort";
    proxy.setValue(Id::Streaming::UpdateValues, true);
    proxy.flush();
    EXPECT_EQ(e.badPixels(), (vision::BadPixelList{{7, 5, vision::BadPixelOrigin::Stuck}}));
    EXPECT_EQ(logs.countPrefix("BadPixel File: " + file + " could not be read", logging::LogLevel::error), 1);
}

TEST_F(OffsetElementTest, StoreNotificationsDuringCyclesAreSerialised) {
    const std::string file = test::slashed(dir) + "badpixel.pxm";
    vision::BadPixelMap::write(file, {{3, 2, vision::BadPixelOrigin::Factory}}, {8, 6});
    OffsetElement e(&proxy, test::slashed(dir), nullptr);
    std::atomic<bool> done{false};
    std::thread host([&] {
        for (int i = 0; !done; ++i) {
            proxy.setValue(Id::Streaming::DisableOffset, i % 2 == 0);
            proxy.setValue(Id::Streaming::UpdateValues, true);
            std::this_thread::yield();
        }
    });
    for (int cycle = 0; cycle < 400; ++cycle) {
        const bool capturing = cycle % 20 < 4;
        run(e, static_cast<uint16_t>(100 + cycle % 7),
            capturing ? Id::Shutter::StateCaptureOffsetFrame : Id::Shutter::StateIdle);
        out.clear();
    }
    done = true;
    host.join();
    proxy.setValue(Id::Streaming::DisableOffset, false);
    proxy.flush();
    EXPECT_EQ(e.badPixels().front(), (vision::BadPixel{3, 2, vision::BadPixelOrigin::Factory}));
    capture(e, {50, 50, 50, 50});
    ASSERT_TRUE(run(e, 80, Id::Shutter::StateIdle));
    EXPECT_EQ(out[STREAMING_DATATYPE_CORRECTED]->getFrameData().at<int16_t>(0, 0), 30);
}
