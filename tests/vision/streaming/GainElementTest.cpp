#include "nordalib/vision/streaming/GainElement.h"
#include "nordalib/core/keys/DefaultParameters.h"
#include "nordalib/vision/imageio/PxmImage.h"
#include "tests/vision/TestSupport.h"

#include <gtest/gtest.h>

using namespace norda;
using namespace norda::exp;
using namespace norda::exp::streaming;

// A uniform scene 2000 counts above the shutter (and one 1500 below) seen through pixels of known
// gains must come out flat; without a usable table frames pass as they came.
TEST(GainElement, FlattensAKnownGainPatternAndPassesFramesWithoutATable) {
    test::TempDir dir;
    test::LogCapture logs;
    DataProxy<std::string> proxy;
    setDefaultParameters(proxy);
    const std::string file = test::slashed(dir) + "gain.pxm";
    GainElement e(&proxy, test::slashed(dir));
    EXPECT_FALSE(e.loaded());
    EXPECT_TRUE(logs.has(logging::LogLevel::info,
                         "Gain table " + file + " is missing: frames pass without gain correction"));

    cv::Mat gain(6, 8, CV_32F);
    for (int y = 0; y < gain.rows; ++y)
        for (int x = 0; x < gain.cols; ++x)
            gain.at<float>(y, x) = 1.0f + 0.004f * float((x * 7 + y * 3) % 11 - 5); // 0.98 .. 1.02
    FrameMap in, out;
    auto run = [&](double signal) {
        cv::Mat frame;
        cv::Mat(gain * signal).convertTo(frame, CV_16S); // rounds
        in[STREAMING_DATATYPE_CORRECTED] = std::make_unique<Frame>(frame, DataStorage<std::string>{});
        EXPECT_TRUE(e.process(in, out));
        return out[STREAMING_DATATYPE_CORRECTED]->getFrameData();
    };
    cv::Mat unchanged;
    cv::Mat(gain * 2000.0).convertTo(unchanged, CV_16S);
    EXPECT_EQ(cv::norm(run(2000), unchanged, cv::NORM_INF), 0.0);

    vision::writePxmImage(file, gain);
    proxy.setValue(Id::Streaming::UpdateValues, true);
    proxy.flush();
    ASSERT_TRUE(e.loaded());
    for (double signal : {2000.0, -1500.0}) {
        double lo, hi;
        cv::minMaxLoc(run(signal), &lo, &hi);
        EXPECT_GE(lo, signal - 1) << signal;
        EXPECT_LE(hi, signal + 1) << signal;
    }

    // A table of another size leaves frames alone, said once.
    vision::writePxmImage(file, cv::Mat(gain.t()));
    proxy.setValue(Id::Streaming::UpdateValues, true);
    proxy.flush();
    run(2000);
    EXPECT_EQ(cv::norm(run(2000), unchanged, cv::NORM_INF), 0.0);
    EXPECT_EQ(logs.countPrefix("Gain table " + file + " is 6x8, the frames 8x6", logging::LogLevel::warning),
              1);

    // A gain no pixel has is refused naming the pixel; the frames pass.
    gain.at<float>(2, 5) = 3.0f;
    vision::writePxmImage(file, gain);
    proxy.setValue(Id::Streaming::UpdateValues, true);
    proxy.flush();
    EXPECT_FALSE(e.loaded());
    EXPECT_EQ(logs.countPrefix("Gain table " + file + " could not be read: gain table " + file +
                                   ": gain 3 at pixel (5, 2) is outside [0.75, 1.5]",
                               logging::LogLevel::error),
              1);
}
