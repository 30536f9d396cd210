#include "nordalib/vision/streaming/FileReaderElement.h"
#include "nordalib/core/exception/Exception.h"
#include "nordalib/vision/imageio/ImageIO.h"
#include "tests/support/TempDir.h"

#include <gtest/gtest.h>

#include <chrono>
#include <fstream>

using namespace norda;
using namespace norda::exp;
using namespace norda::exp::streaming;

namespace {
void writeSequence(const std::string& path, int count) {
    vision::ImageIO writer(0);
    writer.open(path);
    for (int i = 0; i < count; ++i)
        writer.write(cv::Mat(4, 5, CV_16UC1, cv::Scalar(100 + i)), "");
}
} // namespace

TEST(FileReaderElement, PlaysFromFrameOneLoopingCountingAndPaced) {
    test::TempDir dir;
    writeSequence(dir.file("three.pxm"), 3);
    FileReaderElement reader(dir.file("three.pxm"));
    EXPECT_EQ(reader.getFrameCount(), 3u);

    FrameMap in, out;
    auto previous = std::chrono::steady_clock::now();
    const int expected[] = {1, 2, 0, 1, 2, 0, 1};
    for (int i = 0; i < 7; ++i) {
        ASSERT_TRUE(reader.process(in, out));
        const auto now = std::chrono::steady_clock::now();
        EXPECT_GE(now - previous, std::chrono::milliseconds(30));
        previous = now;
        Frame& frame = *out[STREAMING_DATATYPE_RAW];
        EXPECT_EQ(frame.getFrameData().at<uint16_t>(0, 0), 100 + expected[i]) << i;
        EXPECT_EQ(frame.getMetaData().get<unsigned long long>("FrameCnt"), unsigned(i));
        EXPECT_EQ(frame.getMetaData().size(), 1u);
        // Downstream elements may write into their input; the recording must not change.
        frame.getFrameData().setTo(cv::Scalar(7));
    }

    writeSequence(dir.file("one.pxm"), 1);
    FileReaderElement single(dir.file("one.pxm"));
    for (int i = 0; i < 3; ++i) {
        ASSERT_TRUE(single.process(in, out));
        EXPECT_EQ(out[STREAMING_DATATYPE_RAW]->getFrameData().at<uint16_t>(3, 4), 100);
    }
}

TEST(FileReaderElement, UnusableFilesFailConstruction) {
    // Missing and empty files: see ElementContract.
    test::TempDir dir;
    std::ofstream(dir.file("junk.pxm")) << "not a frame at all";
    EXPECT_THROW(FileReaderElement reader(dir.file("junk.pxm")), Exception);

    // Frames before a damaged one are still played.
    writeSequence(dir.file("damaged.pxm"), 2);
    std::ofstream(dir.file("damaged.pxm"), std::ios::app) << "P5\n-1 4\n65535\n";
    FileReaderElement reader(dir.file("damaged.pxm"));
    EXPECT_EQ(reader.getFrameCount(), 2u);
}
