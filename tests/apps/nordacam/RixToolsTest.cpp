#ifdef NORDACAM_CORE
#include "apps/nordacam/RixTools.h"
#include "apps/nordacam/Camera.h"

#include "tests/support/Messages.h"
#include "tests/support/TempDir.h"

#include "nordalib/core/datatypes/MeasPoint.h"
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
#endif
