#include "nordalib/vision/imageio/ImageIO.h"
#include "nordalib/core/datatypes/MeasPoint.h"
#include "nordalib/core/datatypes/Quantity.h"
#include "nordalib/core/logging/Logger.h"
#include "nordalib/vision/imageio/ImageDecoderPxM.h"
#include "nordalib/vision/imageio/PxmImage.h"
#include "tests/vision/TestSupport.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

using namespace norda;
using namespace norda::vision;

namespace {

cv::Mat randomMat(int rows, int cols, int type, int seed) {
    cv::Mat m(rows, cols, type);
    cv::RNG rng(seed);
    // Fill raw bytes so that every bit pattern (NaN payloads included) must survive.
    for (int r = 0; r < rows; ++r)
        for (size_t i = 0; i < cols * m.elemSize(); ++i)
            m.ptr(r)[i] = uchar(rng.uniform(0, 256));
    return m;
}

bool sameBits(const cv::Mat& a, const cv::Mat& b) {
    if (a.type() != b.type() || a.size() != b.size())
        return false;
    for (int r = 0; r < a.rows; ++r)
        if (std::memcmp(a.ptr(r), b.ptr(r), a.cols * a.elemSize()) != 0)
            return false;
    return true;
}

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

void writeFile(const std::string& path, const std::string& bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << bytes;
}

std::vector<cv::Mat> readAll(const std::string& path, ImageDecoderPxM& decoder) {
    std::vector<cv::Mat> frames;
    EXPECT_TRUE(decoder.open(path));
    cv::Mat frame;
    while (decoder.grab(frame, nullptr))
        frames.push_back(frame);
    return frames;
}

// Whether f() throws a norda::Exception whose message holds `text`.
template <typename F> bool failsWith(F&& f, const std::string& text) {
    const std::string message = test::messageOf(f);
    return message.rfind("std: ", 0) == std::string::npos && message.find(text) != std::string::npos;
}

struct NoText {
    int v = 0;
};

} // namespace

TEST(PxmFormat, EveryTypeRoundTripsBitExactInOneSequence) {
    test::TempDir dir;
    const std::string path = dir.file("types.pxm");
    const std::vector<int> types = {CV_8UC1,  CV_16UC1, CV_8UC3, CV_16SC1, CV_8UC2, CV_32FC1,
                                    CV_64FC1, CV_16UC3, CV_8SC1, CV_32SC2, CV_8UC4, CV_16FC1};
    std::vector<cv::Mat> written;
    {
        ImageIO writer(2);
        writer.open(path);
        for (size_t i = 0; i < types.size(); ++i) {
            written.push_back(randomMat(7 + int(i), 5 + int(i) * 3, types[i], int(i)));
            writer.write(written.back(), "");
        }
        // A view into a larger matrix (rows not contiguous) is written as its own pixels.
        cv::Mat big = randomMat(40, 60, CV_16UC1, 99);
        written.push_back(big(cv::Rect(3, 5, 17, 11)));
        writer.write(written.back(), "");
        EXPECT_EQ(writer.framesWritten(), written.size());
    }
    ImageDecoderPxM decoder;
    auto frames = readAll(path, decoder);
    ASSERT_EQ(frames.size(), written.size());
    for (size_t i = 0; i < frames.size(); ++i)
        EXPECT_TRUE(sameBits(frames[i], written[i])) << "frame " << i << " type " << written[i].type();
    EXPECT_FALSE(decoder.wasTruncated());

    // Standard layouts: 16-bit grey as big-endian P5, 8-bit colour as P6, the rest as tagged PAM.
    const std::string bytes = readFile(path);
    EXPECT_EQ(bytes.rfind("P5\n5 7\n255\n", 0), 0u);
    EXPECT_NE(bytes.find("P5\n8 8\n65535\n"), std::string::npos);
    EXPECT_NE(bytes.find("P6\n11 9\n255\n"), std::string::npos);
    EXPECT_NE(bytes.find("DEPTH 2\nMAXVAL 65535\nTUPLTYPE CV_32FC1\n"), std::string::npos);

    const size_t p5 = bytes.find("P5\n8 8\n65535\n") + std::strlen("P5\n8 8\n65535\n");
    EXPECT_EQ(uint8_t(bytes[p5]), written[1].at<uint16_t>(0, 0) >> 8); // big-endian
}

TEST(PxmFormat, MetadataTravelsTypedWithItsOwnFrameOnly) {
    test::TempDir dir;
    const std::string path = dir.file("meta.pxm");
    test::LogCapture log;
    auto meta = std::make_shared<exp::DataStorage<std::string>>();
    meta->setValue("Shutter.Closed", true);
    meta->setValue("FrameCnt", 18446744073709551615ull);
    meta->setValue("u16", uint16_t(65535));
    meta->setValue("i32", -2147483647 - 1);
    meta->setValue("f", 0.1f);
    meta->setValue("d", -1.0e-300);
    meta->setValue("text", std::string("two words\nsecond line, \\ # done"));
    meta->setValue("key with blanks%", std::string(""));
    meta->setValue("T", exp::quantity::Temperature<exp::MarkedFloat>(
                            exp::MarkedFloat::withMark(36.6f, exp::MarkedFloat::MarkedFloatValidity(3))));
    meta->setValue("Point", exp::MeasPoint(3, 4, exp::makeVariant(1.5f)));
    meta->setValue("Unstorable", NoText{7});
    {
        ImageIO writer(0);
        writer.open(path);
        writer.setMetaData(meta);
        writer.write(cv::Mat(2, 3, CV_16UC1, cv::Scalar(5)), "");
        writer.write(cv::Mat(2, 3, CV_16UC1, cv::Scalar(6)), ""); // no metadata set for this one
        writer.setMetaData(meta);
        writer.write(cv::Mat(2, 3, CV_16SC1, cv::Scalar(-6)), "");
    }
    // The unstorable value is reported once (not per frame) and the frames are all there.
    size_t unstorable = 0;
    for (const auto& r : log.records())
        unstorable +=
            r.level >= logging::LogLevel::warning && r.message.find("Unstorable") != std::string::npos;
    EXPECT_EQ(unstorable, 1u);

    ImageDecoderPxM decoder;
    ASSERT_TRUE(decoder.open(path));
    cv::Mat frame;
    for (int i : {0, 2}) {
        if (i == 2) {
            ASSERT_TRUE(decoder.grab(frame, nullptr));
            EXPECT_TRUE(decoder.getMetaData().empty());
        }
        ASSERT_TRUE(decoder.grab(frame, nullptr));
        const auto& m = decoder.getMetaData();
        EXPECT_EQ(m.size(), meta->size() - 1); // all but the unstorable value
        for (const auto& [key, value] : m)
            EXPECT_TRUE(*value == *meta->getVariant(key)) << key;
    }
    EXPECT_FALSE(decoder.grab(frame, nullptr));

    // Lines of a type this build does not know are skipped with a warning; the frame stays.
    writeFile(path, "P5\n#meta future-type a 1\n#meta u16 b 7\n#plain comment\n1 1\n255\nx");
    ASSERT_TRUE(decoder.open(path));
    ASSERT_TRUE(decoder.grab(frame, nullptr));
    EXPECT_EQ(frame.at<uint8_t>(0, 0), 'x');
    EXPECT_EQ(decoder.getMetaData().size(), 1u);
    EXPECT_EQ(decoder.getMetaData().get<unsigned short>("b"), 7);
}

TEST(PxmFormat, CutOffRecordingKeepsEveryCompleteFrame) {
    test::TempDir dir;
    const std::string path = dir.file("cut.pxm");
    {
        ImageIO writer(0);
        writer.open(path);
        for (int i = 0; i < 3; ++i) {
            auto meta = std::make_shared<exp::DataStorage<std::string>>();
            meta->setValue("FrameCnt", uint64_t(i));
            writer.setMetaData(meta);
            writer.write(cv::Mat(4, 6, CV_16UC1, cv::Scalar(i)), "");
        }
    }
    const std::string full = readFile(path);
    const size_t third = full.find("P5", full.find("P5", 1) + 1);
    ASSERT_NE(third, std::string::npos);
    ImageDecoderPxM decoder;
    // Cut inside the samples, inside the header, right after the magic, after one byte.
    for (size_t cut : {full.size() - 1, third + 20, third + 2, third + 1}) {
        writeFile(path, full.substr(0, cut));
        auto frames = readAll(path, decoder);
        EXPECT_EQ(frames.size(), 2u) << "cut at " << cut;
        EXPECT_TRUE(decoder.wasTruncated());
        EXPECT_FALSE(decoder.grab(frames[0], nullptr)); // stays ended
    }
    // Zero-filled blocks left by a power loss end the sequence the same way.
    writeFile(path, full.substr(0, third) + std::string(4096, '\0'));
    EXPECT_EQ(readAll(path, decoder).size(), 2u);
    EXPECT_TRUE(decoder.wasTruncated());
}

TEST(PxmFormat, SkipIndexesAndSeekReturnsToEveryFrame) {
    test::TempDir dir;
    const std::string path = dir.file("index.pxm");
    std::vector<cv::Mat> written;
    {
        ImageIO writer(0);
        writer.open(path);
        for (int i = 0; i < 5; ++i) {
            writer.getEncoder().setOption(PxmEncoder::Option::Plain, i == 2 ? 1 : 0); // one plain frame
            auto meta = std::make_shared<exp::DataStorage<std::string>>();
            meta->setValue("FrameCnt", static_cast<unsigned long long>(i));
            writer.setMetaData(meta);
            written.push_back(randomMat(3 + i, 7, i == 3 ? CV_32FC2 : CV_16UC1, i));
            writer.write(written.back(), "");
        }
    }
    ImageDecoderPxM decoder;
    ASSERT_TRUE(decoder.open(path));
    std::vector<uint64_t> offsets;
    for (uint64_t start = decoder.position(); decoder.skip(); start = decoder.position())
        offsets.push_back(start);
    ASSERT_EQ(offsets.size(), written.size());
    EXPECT_FALSE(decoder.wasTruncated());
    cv::Mat frame;
    for (size_t i : {3u, 0u, 2u, 1u, 4u}) {
        ASSERT_TRUE(decoder.seek(offsets[i], i));
        ASSERT_TRUE(decoder.grab(frame, nullptr));
        EXPECT_TRUE(sameBits(frame, written[i])) << i;
        EXPECT_EQ(decoder.getMetaData().get<unsigned long long>("FrameCnt"), i);
        EXPECT_EQ(decoder.framesRead(), i + 1);
    }
    EXPECT_FALSE(decoder.grab(frame, nullptr)); // after the last frame
    EXPECT_FALSE(decoder.seek(readFile(path).size() + 1, 0));

    // Skipping stops where grabbing does: at the last complete frame of a cut-off file.
    writeFile(path, readFile(path).substr(0, offsets[4] + 10));
    ASSERT_TRUE(decoder.open(path));
    int skipped = 0;
    while (decoder.skip())
        ++skipped;
    EXPECT_EQ(skipped, 4);
    EXPECT_TRUE(decoder.wasTruncated());
}

TEST(PxmFormat, DamagedHeadersAreReportedWithFileAndProblem) {
    test::TempDir dir;
    const std::string path = dir.file("bad.pxm");
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"GIF89a", "wrong magic number"},
        {"P4\n1 1\n\x80", "wrong magic number"},
        {"P5\n20000 10\n255\n", "exceeds the limit of 16384 x 16384"},
        {"P5\n10 99999999999\n255\n", "more than 10 digits"},
        {"P5\n-3 10\n255\n", "negative width"},
        {"P5\n0 10\n255\n", "empty frame"},
        {"P5\n2 2\n70000\n", "maxval 70000"},
        {"P7\nWIDTH 16384\nHEIGHT 16384\nDEPTH 4\nMAXVAL 65535\nENDHDR\n",
         "exceeds the limit of 1073741824 bytes"},
        {"P7\nWIDTH 2\nHEIGHT 2\nMAXVAL 255\nENDHDR\n", "missing DEPTH"},
        {"P7\nWIDTH -2\nHEIGHT 2\nDEPTH 1\nMAXVAL 255\nENDHDR\n", "negative WIDTH"},
        {"P7\nWIDTH 2\nHEIGHT 2\nDEPTH 3\nMAXVAL 65535\nTUPLTYPE CV_32FC1\nENDHDR\n",
         "does not match DEPTH 3"},
        {"P7\nWIDTH 2\nHEIGHT 2\nDEPTH 1\nMAXVAL 255\nCOLOUR red\nENDHDR\n", "unknown PAM header line"},
        {"P2\n2 1\n100\n5 101\n", "sample 101 exceeds maxval 100"},
    };
    ImageDecoderPxM decoder;
    cv::Mat frame;
    for (const auto& [bytes, problem] : cases) {
        writeFile(path, bytes);
        ASSERT_TRUE(decoder.open(path));
        const std::string message = test::messageOf([&] { decoder.grab(frame, nullptr); });
        EXPECT_NE(message.find(problem), std::string::npos) << message;
        EXPECT_NE(message.find(path), std::string::npos) << message;
    }
    // A damaged second frame names its index; the first one was delivered.
    writeFile(path, "P5\n1 1\n255\nxP9");
    ASSERT_TRUE(decoder.open(path));
    EXPECT_TRUE(decoder.grab(frame, nullptr));
    EXPECT_TRUE(failsWith([&] { decoder.grab(frame, nullptr); }, "frame 1: wrong magic"));
    // A header promising more samples than the file holds ends cleanly, without allocating them.
    writeFile(path, "P5\n16384 16384\n65535\nab");
    EXPECT_EQ(readAll(path, decoder).size(), 0u);
    EXPECT_TRUE(decoder.wasTruncated());
}

TEST(PxmFormat, OpenFailuresRegionsAndPlainSamples) {
    test::TempDir dir;
    ImageDecoderPxM decoder;
    EXPECT_FALSE(decoder.open(dir.file("missing.pxm")));
    EXPECT_FALSE(decoder.open(dir.path().string()));
    cv::Mat frame;
    EXPECT_FALSE(decoder.grab(frame, nullptr));

    ImageIO writer(8);
    EXPECT_TRUE(failsWith([&] { writer.open(dir.file("no/such/dir/rec.pxm")); }, "no/such/dir/rec.pxm"));
    EXPECT_THROW(writer.write(cv::Mat(2, 2, CV_8UC1), ""), Exception);
    writer.open(dir.file("r.pxm"));
    EXPECT_THROW(writer.write(cv::Mat(), ""), Exception);

    // Regions are cut from the frame; one reaching outside is refused.
    cv::Mat image = randomMat(30, 40, CV_16UC1, 3);
    writer.write(image, "");
    writer.write(image, "");
    writer.close();
    ASSERT_TRUE(decoder.open(dir.file("r.pxm")));
    cv::Rect_<int> region(10, 5, 20, 7);
    ASSERT_TRUE(decoder.grab(frame, &region));
    EXPECT_TRUE(sameBits(frame, image(region)));
    cv::Rect_<int> outside(30, 5, 20, 7);
    EXPECT_THROW(decoder.grab(frame, &outside), Exception);

    // Plain samples for text-only tools; they read back identically.
    writer.getEncoder().setOption(PxmEncoder::Option::Plain, 1);
    cv::Mat colour = randomMat(9, 31, CV_8UC3, 4);
    writer.write(image, dir.file("plain16.pgm"));
    writer.write(colour, dir.file("plain8.ppm"));
    EXPECT_EQ(readFile(dir.file("plain16.pgm")).rfind("P2\n40 30\n65535\n", 0), 0u);
    std::istringstream plain8(readFile(dir.file("plain8.ppm")));
    for (std::string line; std::getline(plain8, line);)
        EXPECT_LE(line.size(), 70u);
    EXPECT_TRUE(sameBits(readPxmImage(dir.file("plain16.pgm")), image));
    EXPECT_TRUE(sameBits(readPxmImage(dir.file("plain8.ppm")), colour));
}
