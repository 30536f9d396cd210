#ifdef NORDACAM_CORE
#include "apps/nordacam/Tools.h"
#include "apps/nordacam/Camera.h"

#include "tests/support/Messages.h"
#include "tests/support/TempDir.h"

#include "nordalib/core/datatypes/MeasPoint.h"
#include "nordalib/vision/imageio/PxmImage.h"
#include "nordalib/vision/imgproc/BadPixelMap.h"
#include "nordalib/vision/imgproc/DistortionTable.h"
#include "nordalib/vision/radiometry/RadiometricTools.h"
#include "nordalib/vision/rix/Rix.h"

#include <fmt/format.h>
#include <gtest/gtest.h>
#include <opencv2/imgcodecs.hpp>

#include <fstream>
#include <sstream>

using namespace nordacam;

TEST(NordacamTools, SavedImageIsDescribedAndExportedLosslessly) {
    norda::test::TempDir dir;
    CameraOptions o;
    o.outputDir = dir.file("out");
    o.settingsFile = dir.file("out/settings.json");
    o.realTime = false;
    o.sim.uptimeStartMs = 130000;
    std::string file;
    {
        Camera camera(o);
        for (int i = 0; i < 12; ++i)
            camera.runCycle();
        file = camera.saveImage(std::chrono::seconds(10));
    }
    norda::vision::Rix rix;
    rix.load(file);

    std::ostringstream info;
    EXPECT_EQ(rixInfo(file, info), 0);
    EXPECT_NE(info.str().find("640 x 480"), std::string::npos) << info.str();
    EXPECT_NE(info.str().find(rix.getFileUuidString()), std::string::npos);
    EXPECT_NE(info.str().find("ActiveLens.Serial"), std::string::npos);
    // Measurement points and areas as positions and temperatures with their validity.
    const auto hot = rix.getGenerics().get<norda::exp::MeasPoint>("MeasPoints.HotSpot.MeasPoint");
    const auto hotC =
        hot.getValue()->value<norda::exp::quantity::Temperature<norda::exp::MarkedFloat>>().celsius();
    EXPECT_NE(info.str().find(fmt::format("MeasPoints.HotSpot.MeasPoint = ({}, {}) {:.2f} °C, valid\n",
                                          hot.getX(), hot.getY(), hotC)),
              std::string::npos)
        << info.str();
    EXPECT_NE(info.str().find("MeasAreas.CenterArea.MeasArea = 320 x 240 at (160, 120): hot ("),
              std::string::npos);

    std::ostringstream log;
    ASSERT_EQ(rixExport(file, ExportFormat::Csv, dir.file("t.csv"), log), 0);
    std::ifstream csv(dir.file("t.csv"));
    std::string line;
    int rows = 0;
    while (std::getline(csv, line)) {
        if (rows == 240) {
            // Column 320 of row 240 is the centre pixel, to the hundredth of a degree.
            std::stringstream cells(line);
            std::string cell;
            for (int c = 0; c <= 320; ++c)
                std::getline(cells, cell, ';');
            EXPECT_NEAR(std::stod(cell),
                        norda::vision::RadiometricTools::getFloat(rix.getRadiometricImage()(240, 320)),
                        0.006);
        }
        EXPECT_EQ(std::count(line.begin(), line.end(), ';'), 639);
        ++rows;
    }
    EXPECT_EQ(rows, 480);

    for (auto [format, name] :
         {std::pair{ExportFormat::Png, "t.png"}, std::pair{ExportFormat::Tiff, "t.tiff"}}) {
        ASSERT_EQ(rixExport(file, format, dir.file(name), log), 0);
        const cv::Mat back = cv::imread(dir.file(name), cv::IMREAD_UNCHANGED);
        ASSERT_EQ(back.type(), CV_16UC1) << name;
        EXPECT_EQ(cv::norm(back, rix.getRadiometricImage(), cv::NORM_INF), 0.0) << name;
    }
    // Re-analysed for an air path (its temperatures against Python's: test_reanalysis.py), the air
    // named; a distance of zero is refused naming it.
    ReanalysisRequest far;
    far.distanceM = 30.0f;
    far.airC = 30.0f;
    far.humidityPercent = 80.0f;
    ASSERT_EQ(rixExport(file, ExportFormat::Png, dir.file("far.png"), log, far), 0);
    EXPECT_NE(log.str().find("air: 30.0 m at 30.0 °C, 80 % (taken with no air correction)"),
              std::string::npos)
        << log.str();
    far.distanceM = 0.0f;
    EXPECT_NE(norda::test::messageOf([&] {
                  rixExport(file, ExportFormat::Png, dir.file("bad.png"), log, far);
              }).find("object distance (0, 10000] m 0.0"),
              std::string::npos);
    const cv::Mat preview = cv::imread(dir.file("t-preview.png")); // B, G, R as the file holds it
    ASSERT_EQ(preview.size(), rix.getPreviewImageRgb().size());
    const cv::Vec3b shown = rix.getPreviewImageRgb()(0, 0);
    EXPECT_EQ(preview.at<cv::Vec3b>(0, 0), cv::Vec3b(shown[2], shown[1], shown[0]));
    EXPECT_THROW(rixInfo(dir.file("none.RIX"), log), std::exception);
    std::ofstream(dir.file("junk.RIX")) << "not an image";
    EXPECT_THROW(rixInfo(dir.file("junk.RIX"), log), std::exception);
}

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
    // Two flat fields of a 40 x 30 detector whose pixel (7, 3) does not respond.
    cv::RNG rng(1);
    cv::Mat offset(30, 40, CV_64F);
    rng.fill(offset, cv::RNG::NORMAL, 9000.0, 20.0);
    for (double level : {0.0, 3000.0}) {
        cv::Mat f;
        cv::Mat(offset + level).convertTo(f, CV_16U);
        f.at<uint16_t>(3, 7) = 9000;
        norda::vision::writePxmImage(dir.file(fmt::format("flat{}.pxm", level)), f);
    }
    std::ofstream(dir.file("views.json"))
        << R"({"views": [{"name": "cold", "file": "flat0.pxm"}, {"name": "warm", "file": "flat3000.pxm"}]})";
    ASSERT_EQ(calibFitBadPixel(dir.path().string(), dir.file("badpixel.pxm"), log), 0);
    EXPECT_EQ(norda::vision::BadPixelMap::read(dir.file("badpixel.pxm")),
              (norda::vision::BadPixelList{{7, 3, norda::vision::BadPixelOrigin::Dead}}));
    EXPECT_NE(log.str().find("1 bad pixels: 1 dead"), std::string::npos) << log.str();

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
