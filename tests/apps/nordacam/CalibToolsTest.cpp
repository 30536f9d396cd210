#ifdef NORDACAM_CORE
#include "apps/nordacam/CalibTools.h"

#include "tests/support/Messages.h"
#include "tests/support/TempDir.h"

#include "nordalib/vision/imageio/PxmImage.h"
#include "nordalib/vision/imgproc/BadPixelMap.h"
#include "nordalib/vision/imgproc/DistortionTable.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>

using namespace nordacam;

TEST(NordacamTools, CalibrationFilesAreReadByTheLibrary) {
    norda::test::TempDir dir;
    std::ostringstream log;
    DistortionParameters p;
    ASSERT_EQ(calibDistortion(p, dir.file("lens1/distort.pxm"), log), 0);
    const auto table = norda::vision::DistortionTable::load(dir.file("lens1/distort.pxm"), 480, 640);
    EXPECT_EQ(table.entries().size(), 640u * 480u);
    p.fx = 0;
    EXPECT_THROW(calibDistortion(p, dir.file("bad.pxm"), log), std::exception);

    ASSERT_EQ(calibBadPixel(dir.file("badpixel.pxm"), log), 0);
    cv::Size size;
    const auto list = norda::vision::BadPixelMap::read(dir.file("badpixel.pxm"), &size);
    EXPECT_EQ(size, cv::Size(640, 480));
    EXPECT_EQ(list.size(), 12u); // the simulated detector's dead and stuck pixels
}

TEST(NordacamTools, CalibrationFitsReadAFolderOfViews) {
    norda::test::TempDir dir;
    std::ostringstream log;
    // Two flat fields of a 40 x 30 detector whose pixel (7, 3) does not respond and whose pixel
    // (2, 5) responds 1 % more than the others.
    cv::RNG rng(1);
    cv::Mat offset(30, 40, CV_64F);
    rng.fill(offset, cv::RNG::NORMAL, 9000.0, 20.0);
    for (double level : {0.0, 3000.0}) {
        cv::Mat f;
        cv::Mat(offset + level).convertTo(f, CV_16U);
        f.at<uint16_t>(3, 7) = 9000;
        f.at<uint16_t>(5, 2) = static_cast<uint16_t>(9000 + 1.01 * level);
        norda::vision::writePxmImage(dir.file(fmt::format("flat{}.pxm", level)), f);
    }
    std::ofstream(dir.file("views.json"))
        << R"({"views": [{"name": "cold", "file": "flat0.pxm"}, {"name": "warm", "file": "flat3000.pxm"}]})";
    ASSERT_EQ(calibFitBadPixel(dir.path().string(), dir.file("badpixel.pxm"), log), 0);
    EXPECT_EQ(norda::vision::BadPixelMap::read(dir.file("badpixel.pxm")),
              (norda::vision::BadPixelList{{7, 3, norda::vision::BadPixelOrigin::Dead}}));
    EXPECT_NE(log.str().find("1 bad pixels: 1 dead"), std::string::npos) << log.str();
    // Gains: mean 1 over the 1199 good pixels, the dead one at 1.
    ASSERT_EQ(calibFitGain(dir.path().string(), dir.file("gain.pxm"), log), 0);
    const cv::Mat gain = norda::vision::readPxmImage(dir.file("gain.pxm"));
    ASSERT_EQ(gain.type(), CV_32FC1);
    const double typical = 1199.0 / (1198.0 + 1.01);
    EXPECT_NEAR(gain.at<float>(5, 2), 1.01 * typical, 1e-6);
    EXPECT_NEAR(gain.at<float>(0, 0), typical, 1e-6);
    EXPECT_EQ(gain.at<float>(3, 7), 1.0f);

    // Grid views need their target described.
    EXPECT_EQ(norda::test::messageOf(
                  [&] { calibFitRegistration(dir.path().string(), dir.file("registration.json"), log); }),
              dir.file("views.json") + ": target must describe the grid target");

    // A view without its blackbody temperature is refused naming the key; nothing is written.
    std::ofstream(dir.file("views.json"))
        << R"({"views": [{"range": 1, "board": 25, "boardAtShutter": 25, "shutter": 22, "signal": 10}]})";
    EXPECT_EQ(norda::test::messageOf(
                  [&] { calibFitRadiometry(dir.path().string(), dir.file("radiometry.json"), "", log); }),
              dir.file("views.json") + ": views[0].blackbody is missing");
    EXPECT_FALSE(std::filesystem::exists(dir.file("radiometry.json")));
}
#endif
