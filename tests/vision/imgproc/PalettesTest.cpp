#include "nordalib/vision/imgproc/Palettes.h"

#include "tests/support/Messages.h"

#include <opencv2/imgproc.hpp>

#include <gtest/gtest.h>

#include <cmath>

using norda::vision::Palettes;

namespace {
// CIE L* of an sRGB colour.
double lightness(uint8_t r, uint8_t g, uint8_t b) {
    auto lin = [](uint8_t c) {
        const double v = c / 255.0;
        return v <= 0.04045 ? v / 12.92 : std::pow((v + 0.055) / 1.055, 2.4);
    };
    const double y = 0.2126 * lin(r) + 0.7152 * lin(g) + 0.0722 * lin(b);
    return y > 216.0 / 24389.0 ? 116.0 * std::cbrt(y) - 16.0 : y * 24389.0 / 27.0;
}

cv::Vec3b at(const std::vector<uint8_t>& t, size_t i) {
    return {t[3 * i], t[3 * i + 1], t[3 * i + 2]};
}
} // namespace

TEST(Palettes, NamesTablesAndUnknownName) {
    const std::vector<std::string> want{"iron",          "rainbow", "rainbow_hc", "grey",
                                        "grey_inverted", "inferno", "viridis"};
    EXPECT_EQ(Palettes::names(), want);
    for (const auto& name : want) {
        EXPECT_TRUE(Palettes::exists(name));
        EXPECT_EQ(Palettes::colors(name).size(), Palettes::kBytes) << name;
    }
    EXPECT_FALSE(Palettes::exists("Iron"));
    EXPECT_EQ(norda::test::messageOf([] { (void)Palettes::colors("sepia"); }),
              "unknown palette 'sepia' (available: iron, rainbow, rainbow_hc, grey, grey_inverted, "
              "inferno, viridis)");
}

TEST(Palettes, EndpointsAndMonotonicLightness) {
    struct End {
        std::string name;
        cv::Vec3b first, last;
        int direction; // +1 lightness rises, -1 falls
    };
    const std::vector<End> ends{
        {"grey", {0, 0, 0}, {255, 255, 255}, +1},    {"grey_inverted", {255, 255, 255}, {0, 0, 0}, -1},
        {"inferno", {0, 0, 4}, {252, 255, 164}, +1}, {"viridis", {68, 1, 84}, {253, 231, 37}, +1},
        {"iron", {0, 0, 0}, {255, 255, 255}, +1},
    };
    for (const auto& e : ends) {
        const auto& t = Palettes::colors(e.name);
        EXPECT_EQ(at(t, 0), e.first) << e.name;
        EXPECT_EQ(at(t, 255), e.last) << e.name;
        // Rounding to 8 bits may flatten a step but never turn the trend around.
        double previous = lightness(t[0], t[1], t[2]);
        for (size_t i = 1; i < Palettes::kEntries; ++i) {
            const double l = lightness(t[3 * i], t[3 * i + 1], t[3 * i + 2]);
            EXPECT_GE(e.direction * (l - previous), -0.05) << e.name << " entry " << i;
            previous = l;
        }
    }
}

// Our tables are the same published data OpenCV carries for its colour maps.
TEST(Palettes, PerceptualTablesAgreeWithOpenCv) {
    cv::Mat ramp(1, 256, CV_8UC1);
    for (int i = 0; i < 256; ++i)
        ramp.at<uint8_t>(i) = static_cast<uint8_t>(i);
    for (auto [name, map] :
         {std::pair{"inferno", cv::COLORMAP_INFERNO}, std::pair{"viridis", cv::COLORMAP_VIRIDIS}}) {
        cv::Mat bgr;
        cv::applyColorMap(ramp, bgr, map);
        const auto& t = Palettes::colors(name);
        int worst = 0;
        for (int i = 0; i < 256; ++i) {
            const auto c = bgr.at<cv::Vec3b>(i);
            for (int ch = 0; ch < 3; ++ch)
                worst = std::max(worst, std::abs(int(t[3 * i + ch]) - int(c[2 - ch])));
        }
        EXPECT_LE(worst, 1) << name;
    }
}
