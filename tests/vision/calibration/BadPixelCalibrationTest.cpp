#include "nordalib/vision/calibration/BadPixelCalibration.h"
#include "nordalib/vision/imgproc/BadPixelMap.h"
#include "tests/vision/TestSupport.h"

#include <gtest/gtest.h>

#include <cmath>

using namespace norda;
using namespace norda::vision;

namespace {
const cv::Size kSize(80, 60);

// A detector with a vignetted response, a fixed-pattern offset and planted defects.
struct Detector {
    cv::Mat gain{kSize, CV_64F}, offset{kSize, CV_64F}, noise{kSize, CV_64F, cv::Scalar(3.0)};
    std::vector<cv::Point> dead{{3, 4}, {70, 2}}, stuck{{12, 50}}, weak{{5, 40}}, hot{{60, 7}},
        noisy{{40, 30}};

    explicit Detector(cv::RNG& rng) {
        rng.fill(gain, cv::RNG::NORMAL, 1.0, 0.01);
        rng.fill(offset, cv::RNG::NORMAL, 9000.0, 25.0);
        for (int y = 0; y < kSize.height; ++y)
            for (int x = 0; x < kSize.width; ++x) {
                const double r2 = std::pow((x - 40.0) / 40.0, 2) + std::pow((y - 30.0) / 30.0, 2);
                gain.at<double>(y, x) *= 1.0 - 0.15 * r2; // vignetting
                offset.at<double>(y, x) += 4.0 * x;       // gradient across the sensor
            }
        for (auto p : dead)
            gain.at<double>(p) = 0.0;
        gain.at<double>(stuck[0]) = 0.0;
        offset.at<double>(stuck[0]) = 70000.0;
        gain.at<double>(weak[0]) *= 0.7;
        offset.at<double>(hot[0]) += 350.0; // 11 sigma in the coldest field, 4 in the warmest
        noise.at<double>(noisy[0]) = 40.0;
    }
    FlatFieldView view(double level, cv::RNG& rng, const std::string& name) const {
        FlatFieldView v{name, {}};
        cv::Mat n(kSize, CV_64F);
        for (int i = 0; i < 6; ++i) {
            rng.fill(n, cv::RNG::NORMAL, 0.0, 1.0);
            cv::Mat f;
            cv::Mat(offset + gain * level + n.mul(noise)).convertTo(f, CV_16U); // saturates at 65535
            v.frames.push_back(f);
        }
        return v;
    }
};
} // namespace

TEST(BadPixelCalibration, FindsThePlantedDefectsAndNothingElse) {
    cv::RNG rng(42);
    const Detector d(rng);
    const auto result = BadPixelCalibration().find(
        {d.view(2000.0, rng, "cold"), d.view(6000.0, rng, "warm"), d.view(9000.0, rng, "hot")});
    auto at = [](cv::Point p, BadPixelOrigin o) { return BadPixel{uint16_t(p.x), uint16_t(p.y), o}; };
    // Row-major order.
    const BadPixelList expected = {
        at(d.dead[1], BadPixelOrigin::Dead),    at(d.dead[0], BadPixelOrigin::Dead),
        at(d.hot[0], BadPixelOrigin::Outlier),  at(d.noisy[0], BadPixelOrigin::Outlier),
        at(d.weak[0], BadPixelOrigin::Outlier), at(d.stuck[0], BadPixelOrigin::Stuck)};
    EXPECT_EQ(result.pixels, expected);
    EXPECT_EQ(result.size, kSize);
    EXPECT_NEAR(result.responseSigma, 0.01, 0.003); // the planted spread, not the vignetting

    // The table file reads back through the reader the offset element uses.
    test::TempDir dir;
    BadPixelCalibration::write(result, dir.file("badpixel.pxm"));
    cv::Size size;
    EXPECT_EQ(BadPixelMap::read(dir.file("badpixel.pxm"), &size), expected);
    EXPECT_EQ(size, kSize);
}

TEST(BadPixelCalibration, RefusesUnusableFlatFields) {
    cv::RNG rng(3);
    const Detector d(rng);
    auto fails = [](const std::vector<FlatFieldView>& views) {
        return test::messageOf([&] { BadPixelCalibration().find(views); });
    };
    EXPECT_EQ(fails({d.view(2000.0, rng, "cold")}),
              "1 flat field(s) given, at least two at different temperatures needed");
    const auto close = fails({d.view(2000.0, rng, "a"), d.view(2050.0, rng, "b")});
    EXPECT_EQ(close.substr(0, 30), "flat fields a and b differ by ");
    EXPECT_NE(close.find("counts, at least 100 needed"), std::string::npos);
    EXPECT_NE(fails({d.view(2000.0, rng, "cold"), d.view(60000.0, rng, "glare")}).find("view glare: "),
              std::string::npos);                   // most of the sensor saturated
    auto notFlat = d.view(6000.0, rng, "textured"); // a textured object in part of the field
    cv::Mat texture(20, 20, CV_16U);
    rng.fill(texture, cv::RNG::UNIFORM, 0, 800);
    for (auto& f : notFlat.frames)
        f(cv::Rect(30, 20, 20, 20)) += texture;
    EXPECT_NE(fails({d.view(2000.0, rng, "cold"), notFlat}).find("the fields are not flat"),
              std::string::npos)
        << fails({d.view(2000.0, rng, "cold"), notFlat});
}
