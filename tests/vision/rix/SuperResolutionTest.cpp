#include "nordalib/vision/rix/SuperResolution.h"
#include "nordalib/core/exception/Exception.h"
#include "nordalib/vision/rix/Rix.h"

#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>

#include <cmath>

using norda::vision::Rix;
using norda::vision::SuperResolution;

namespace {

// A thermal-looking scene on the fine grid: warm and cold objects with sharp outlines, fine
// periodic structure (a radiator's fins) that aliases at sensor resolution, and the blur of
// good optics. Levels in the 16-bit temperature encoding around 27 °C.
cv::Mat makeScene(cv::Size size, uint64_t seed) {
    cv::RNG rng(seed);
    cv::Mat scene(size, CV_32F, cv::Scalar(30000));
    for (int i = 0; i < 40; ++i) {
        const cv::Point c(rng.uniform(0, size.width), rng.uniform(0, size.height));
        const double level = rng.uniform(-1500.0, 1500.0);
        if (i % 2)
            cv::ellipse(scene, c, cv::Size(rng.uniform(4, 40), rng.uniform(4, 40)), rng.uniform(0, 180), 0,
                        360, cv::Scalar(30000 + level), cv::FILLED);
        else
            cv::rectangle(scene, cv::Rect(c, cv::Size(rng.uniform(4, 50), rng.uniform(4, 50))),
                          cv::Scalar(30000 + level), cv::FILLED);
    }
    cv::Mat fins = scene(cv::Rect(size.width / 8, size.height / 8, size.width / 3, size.height / 3));
    for (int y = 0; y < fins.rows; ++y)
        for (int x = 0; x < fins.cols; ++x)
            fins.at<float>(y, x) += 600.0f * static_cast<float>(std::sin(2 * CV_PI * x / 5.0));
    cv::GaussianBlur(scene, scene, cv::Size(0, 0), 0.6);
    return scene;
}

// What the sensor sees when the scene's content is moved by `shift` sensor pixels: the fine
// scene moved by twice that, integrated over each sensor pixel (2 x 2 fine pixels), plus noise.
cv::Mat_<uint16_t> sense(const cv::Mat& scene, cv::Point2d shift, double noise, cv::RNG& rng) {
    cv::Mat m = (cv::Mat_<double>(2, 3) << 1, 0, -2 * shift.x, 0, 1, -2 * shift.y);
    cv::Mat moved, lr;
    cv::warpAffine(scene, moved, m, scene.size(), cv::INTER_CUBIC | cv::WARP_INVERSE_MAP,
                   cv::BORDER_REFLECT101);
    cv::resize(moved, lr, scene.size() / 2, 0, 0, cv::INTER_AREA);
    cv::Mat n(lr.size(), CV_32F);
    rng.fill(n, cv::RNG::NORMAL, 0, noise);
    cv::Mat_<uint16_t> out;
    cv::Mat(lr + n).convertTo(out, CV_16U);
    return out;
}

double psnr(const cv::Mat& a, const cv::Mat& truth, int border) {
    const cv::Rect r(border, border, truth.cols - 2 * border, truth.rows - 2 * border);
    cv::Mat af;
    a.convertTo(af, CV_32F);
    double mn, mx;
    cv::minMaxLoc(truth(r), &mn, &mx);
    cv::Mat d = af(r) - truth(r);
    const double mse = d.dot(d) / static_cast<double>(d.total());
    return 10 * std::log10((mx - mn) * (mx - mn) / mse);
}

std::vector<cv::Mat_<uint16_t>> senseAll(const cv::Mat& scene, const std::vector<cv::Point2d>& shifts,
                                         double noise, uint64_t seed) {
    cv::RNG rng(seed);
    std::vector<cv::Mat_<uint16_t>> frames;
    for (const auto& s : shifts)
        frames.push_back(sense(scene, s, noise, rng));
    return frames;
}

} // namespace

TEST(SuperResolution, FusedImageBeatsBicubicEnlargement) {
    struct Case {
        const char* name;
        std::vector<cv::Point2d> shifts;
        double noise;
        double opticsBlur = 0; // extra blur of the scene before sensing, in fine pixels
    };
    const std::vector<Case> cases = {
        {"hand tremor, noise 8", {{0, 0}, {0.62, -0.31}, {-0.47, 0.58}, {1.33, 0.21}, {-0.18, -1.12}}, 8.0},
        // Softer optics than the calculation assumes (it models only the pixel area).
        {"soft optics, noise 8",
         {{0, 0}, {0.29, -0.64}, {-0.71, 0.18}, {0.55, 0.93}, {-1.02, -0.47}},
         8.0,
         1.2},
    };
    uint64_t seed = 11;
    for (const auto& c : cases) {
        const cv::Mat scene = makeScene({640, 480}, seed++);
        cv::Mat seen = scene;
        if (c.opticsBlur > 0)
            cv::GaussianBlur(scene, seen, cv::Size(0, 0), c.opticsBlur);
        const auto frames = senseAll(seen, c.shifts, c.noise, seed++);
        Rix rix;
        const float quality = rix.calculateSuperResolutionImage(frames);
        ASSERT_GT(quality, 0.0f) << c.name << ": " << rix.getSuperResolutionFailure();
        const auto& sr = rix.getSuperResolutionImage();
        ASSERT_EQ(sr.size(), scene.size());
        cv::Mat bicubic;
        cv::resize(frames[0], bicubic, scene.size(), 0, 0, cv::INTER_CUBIC);
        EXPECT_GE(psnr(sr, scene, 16), psnr(bicubic, scene, 16) + 1.0) << c.name;
    }
}

TEST(SuperResolution, RejectsLargeOrInconsistentMotion) {
    const cv::Mat scene = makeScene({320, 240}, 3);
    // A pan of 20 pixels between frames: more than hand tremor.
    {
        const auto frames = senseAll(scene, {{0, 0}, {5, 0}, {10, 0}, {15, 0}, {20, 0}}, 4.0, 5);
        Rix rix;
        EXPECT_LE(rix.calculateSuperResolutionImage(frames), 0.0f);
        EXPECT_NE(rix.getSuperResolutionFailure().find("motion too large"), std::string::npos)
            << rix.getSuperResolutionFailure();
        EXPECT_TRUE(rix.getSuperResolutionImage().empty());
    }
    // One frame shows another scene (the camera was swung away).
    {
        auto frames = senseAll(scene, {{0, 0}, {0.5, 0}, {0, 0.5}, {0.5, 0.5}}, 4.0, 6);
        frames.push_back(senseAll(makeScene({320, 240}, 99), {{0, 0}}, 4.0, 7)[0]);
        Rix rix;
        EXPECT_LE(rix.calculateSuperResolutionImage(frames), 0.0f) << "accepted an unrelated frame";
        EXPECT_FALSE(rix.getSuperResolutionFailure().empty());
    }
    // An object moves through an otherwise still scene.
    {
        auto frames = senseAll(scene, {{0, 0}, {0.5, 0}, {0, 0.5}, {0.5, 0.5}, {0.25, 0.25}}, 4.0, 8);
        for (size_t i = 0; i < frames.size(); ++i)
            cv::rectangle(frames[i], cv::Rect(20 + 25 * static_cast<int>(i), 40, 60, 80), cv::Scalar(34000),
                          cv::FILLED);
        Rix rix;
        EXPECT_LE(rix.calculateSuperResolutionImage(frames), 0.0f) << "accepted a moving object";
    }
    // Bad input is an error, not a rejection.
    Rix rix;
    EXPECT_THROW(rix.calculateSuperResolutionImage({cv::Mat_<uint16_t>(240, 320, uint16_t(1))}),
                 norda::Exception);
    EXPECT_THROW(
        rix.calculateSuperResolutionImage({cv::Mat_<uint16_t>(240, 320), cv::Mat_<uint16_t>(240, 321)}),
        norda::Exception);
}
