#include "nordalib/vision/streaming/DistortionElement.h"
#include "nordalib/core/keys/DefaultParameters.h"
#include "tests/vision/TestSupport.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

using namespace norda;
using namespace norda::exp;
using namespace norda::exp::streaming;

namespace {
// A table shifting every pixel one column to the left (reads its right neighbour; last column keeps
// the pixel before it).
vision::DistortionTable shiftTable(uint16_t rows, uint16_t cols) {
    std::vector<vision::DistortionEntry> e(size_t(rows) * cols);
    for (int y = 0; y < rows; ++y)
        for (int x = 0; x < cols; ++x) {
            const int y0 = std::min(y, rows - 2), x0 = std::min(x + 1, cols - 2);
            e[size_t(y) * cols + x] = {static_cast<int16_t>(y0 * cols + x0 - (y * cols + x)), 65535, 0, 0, 0};
        }
    return vision::DistortionTable(e, rows, cols);
}

struct DistortionElementTest : ::testing::Test {
    DistortionElementTest() {
        setDefaultParameters(proxy);
        proxy.setValue<unsigned short>(Id::IrImage::Cols, 6, false);
        proxy.setValue<unsigned short>(Id::IrImage::Rows, 4, false);
    }
    bool run(DistortionElement& e, unsigned char lens) {
        cv::Mat f(4, 6, CV_16U);
        for (int i = 0; i < 24; ++i)
            f.at<uint16_t>(i / 6, i % 6) = static_cast<uint16_t>(100 + i);
        DataStorage<std::string> meta;
        meta.setValue<unsigned char>(Id::ActiveLens::Index, lens);
        in.clear();
        in[STREAMING_DATATYPE_RAD] = std::make_unique<Frame>(f, std::move(meta));
        return e.process(in, out);
    }
    uint16_t first() { return out[STREAMING_DATATYPE_RAD]->getFrameData().at<uint16_t>(0, 0); }
    bool active() { return proxy.getValue<bool>("DistortionElement.Active"); }

    test::TempDir dir;
    DataProxy<std::string> proxy;
    test::LogCapture logs;
    FrameMap in, out;
};
} // namespace

TEST_F(DistortionElementTest, FixedTableCorrectsFrames) {
    {
        DistortionElement none(&proxy, test::slashed(dir), vision::RadiometricCamTypeA);
        EXPECT_FALSE(none.ready());
        ASSERT_TRUE(run(none, 1));
        EXPECT_EQ(first(), 100); // passed on uncorrected
        EXPECT_FALSE(active());
    }
    shiftTable(4, 6).save(test::slashed(dir) + "distort.pxm");
    DistortionElement e(&proxy, test::slashed(dir), vision::RadiometricCamTypeA);
    ASSERT_TRUE(e.ready());
    ASSERT_TRUE(run(e, 1));
    EXPECT_EQ(first(), 101);
    EXPECT_TRUE(out[STREAMING_DATATYPE_RAD]->getMetaData().contains(Id::ActiveLens::Index));
    EXPECT_TRUE(in[STREAMING_DATATYPE_RAD]->getMetaData().empty());
    // A frame of another size than the table raises the size exception.
    in[STREAMING_DATATYPE_RAD] = std::make_unique<Frame>(cv::Mat(5, 6, CV_16U, cv::Scalar(0)));
    EXPECT_EQ(test::messageOf([&] { e.process(in, out); }),
              "Input image size does not fit to distortion data size!");
}

TEST_F(DistortionElementTest, TypeBReloadsPerLens) {
    std::filesystem::create_directories(test::slashed(dir) + "lens2");
    shiftTable(4, 6).save(test::slashed(dir) + "lens2/distort.pxm");
    std::filesystem::create_directories(test::slashed(dir) + "lens4");
    std::ofstream(test::slashed(dir) + "lens4/distort.pxm") << "P5\n1 1\n255\n"; // damaged
    DistortionElement e(&proxy, test::slashed(dir), vision::RadiometricCamTypeB);
    ASSERT_TRUE(run(e, 2));
    EXPECT_EQ(first(), 101);
    EXPECT_TRUE(active());
    EXPECT_EQ(logs.count("Load distortion data: " + test::slashed(dir) + "lens2/distort.pxm for lens 2"), 1);
    ASSERT_TRUE(run(e, 2)); // same lens: no reload
    EXPECT_EQ(logs.count("Load distortion data: " + test::slashed(dir) + "lens2/distort.pxm for lens 2"), 1);

    // A lens without a table: frames go uncorrected and the activity key reads false.
    ASSERT_TRUE(run(e, 3));
    EXPECT_EQ(first(), 100);
    EXPECT_FALSE(active());
    EXPECT_EQ(logs.count("No distortion data available for lens 3"), 1);
    // A damaged table is reported and treated like a missing one.
    ASSERT_TRUE(run(e, 4));
    EXPECT_EQ(first(), 100);
    EXPECT_EQ(
        logs.countPrefix("Distortion data not usable: PXM file '" + test::slashed(dir) + "lens4/distort.pxm'",
                         logging::LogLevel::error),
        1);
    ASSERT_TRUE(run(e, 2));
    EXPECT_EQ(first(), 101);
}
