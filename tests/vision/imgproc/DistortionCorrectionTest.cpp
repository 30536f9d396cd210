#include "nordalib/vision/imgproc/DistortionCorrection.h"
#include "tests/vision/TestSupport.h"

#include <gtest/gtest.h>

#include <opencv2/calib3d.hpp>
#include <opencv2/imgproc.hpp>

using namespace norda;
using namespace norda::vision;

namespace {
cv::Mat lensMatrix(cv::Size size) {
    return (cv::Mat_<double>(3, 3) << 0.9 * size.width, 0, size.width / 2.0 - 0.5, 0, 0.9 * size.width,
            size.height / 2.0 + 0.5, 0, 0, 1);
}
const cv::Mat kBarrel = (cv::Mat_<double>(1, 5) << -0.32, 0.11, 0.001, -0.0008, -0.02);

// A thermal-looking 16-bit scene with gradients a bilinear resampler sees as smooth.
cv::Mat thermalScene(cv::Size size) {
    cv::Mat s(size, CV_16U);
    for (int y = 0; y < size.height; ++y)
        for (int x = 0; x < size.width; ++x)
            s.at<uint16_t>(y, x) =
                static_cast<uint16_t>(29000 + 1500 * std::sin(x * 0.02) * std::cos(y * 0.03) + 8 * x + 3 * y);
    return s;
}
} // namespace

TEST(DistortionCorrection, EntriesFollowTheIntegerArithmetic) {
    // Single-entry style checks on a 2x3 frame: identity with 65535, the average of two pixels.
    std::vector<DistortionEntry> entries(6, DistortionEntry{0, 65535, 0, 0, 0});
    entries[1] = {0, 32768, 0, 32768, 0}; // pixel 1 and its right neighbour
    entries[2] = {-2, 0, 0, 0, 65535};    // pixel 2 reads pixel 4 (below right of pixel 0)
    for (int i = 3; i < 6; ++i)
        entries[i] = {static_cast<int16_t>(-i), 65535, 0, 0, 0}; // row 2 reads row 1 (stays inside)
    DistortionCorrection<> dc(DistortionTable(entries, 2, 3));
    ASSERT_TRUE(dc.ready());
    cv::Mat in = (cv::Mat_<uint16_t>(2, 3) << 1000, 7, 8, 100, 65535, 3), out;
    dc.processImpl(in, out);
    EXPECT_EQ(out.type(), CV_16UC1);
    EXPECT_EQ(out.at<uint16_t>(0, 0), 1000); // (1000 * 65535 + 32768) >> 16
    EXPECT_EQ(out.at<uint16_t>(0, 1), 8);    // (7 + 8) / 2 rounds half up
    EXPECT_EQ(out.at<uint16_t>(0, 2), 65534);
    EXPECT_EQ(out.at<uint16_t>(1, 0), 1000);

    cv::Mat wrong(3, 3, CV_16U, cv::Scalar(0));
    EXPECT_EQ(test::failureOf([&] { dc.processImpl(wrong, out); }),
              std::make_pair(std::string("Input image size does not fit to distortion data size!"),
                             std::string("nordalib/vision/imgproc/DistortionCorrection: 129: "
                                         "norda::vision::DistortionCorrection::processImpl(..)")));
    EXPECT_NE(test::messageOf([&] { dc.processImpl(cv::Mat(2, 3, CV_16S), out); }).find("type"),
              std::string::npos);
    EXPECT_FALSE(DistortionCorrection<>().ready());

    // Tables that would read outside the image or overflow are refused.
    auto bad = entries;
    bad[2] = {0, 65535, 0, 0, 0}; // its pixel below right, s + cols + 1, is just beyond the end
    EXPECT_NE(test::messageOf([&] { DistortionTable(bad, 2, 3); }).find("entry 2 (pixel 2,0) reads outside"),
              std::string::npos);
    bad = entries;
    bad[0] = {0, 65535, 65535, 0, 0};
    EXPECT_NE(test::messageOf([&] { DistortionTable(bad, 2, 3); }).find("weights adding up to 131070"),
              std::string::npos);
}

TEST(DistortionCorrection, AgreesWithOpenCvRemapAndSurvivesItsFile) {
    const cv::Size size(640, 480);
    cv::Mat mapX, mapY;
    cv::initUndistortRectifyMap(lensMatrix(size), kBarrel, cv::Mat(), lensMatrix(size), size, CV_32FC1, mapX,
                                mapY);
    const DistortionTable table = DistortionTable::fromCameraModel(lensMatrix(size), kBarrel, size);
    DistortionCorrection<> dc(table);
    const cv::Mat scene = thermalScene(size);
    cv::Mat ours, reference;
    dc.processImpl(scene, ours);
    cv::remap(scene, reference, mapX, mapY, cv::INTER_LINEAR, cv::BORDER_REPLICATE);
    // Compare where the lens maps inside the sensor (outside, both replicate an edge pixel, but
    // OpenCV's fixed-point border handling differs).
    cv::Mat inside = (mapX >= 0) & (mapX <= size.width - 1) & (mapY >= 0) & (mapY <= size.height - 1);
    cv::Mat diff;
    cv::absdiff(ours, reference, diff);
    double maxDiff;
    cv::minMaxLoc(diff, nullptr, &maxDiff, nullptr, nullptr, inside);
    EXPECT_LE(maxDiff, 1.0);
    EXPECT_GT(std::abs(mapX.at<float>(0, 0)), 10.0); // the lens does move pixels

    // The file keeps the table bit for bit; a file for another size is refused with its name.
    test::TempDir dir;
    const std::string file = test::slashed(dir) + "distort.pxm";
    table.save(file);
    DistortionCorrection<> loaded(file, 480, 640);
    cv::Mat again;
    loaded.processImpl(scene, again);
    EXPECT_EQ(cv::norm(again, ours, cv::NORM_INF), 0.0);
    EXPECT_EQ(test::messageOf([&] { DistortionCorrection<>(file, 240, 320); }),
              "distortion table " + file + " is 640x480, the frame 320x240");

    // 8-bit display images use the same table.
    DistortionCorrection<unsigned char> dc8(table);
    cv::Mat grey(size, CV_8U, cv::Scalar(77)), grey2;
    dc8.processImpl(grey, grey2);
    EXPECT_EQ(cv::countNonZero(grey2 != 77), 0);
}
