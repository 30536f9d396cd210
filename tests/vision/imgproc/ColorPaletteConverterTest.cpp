#include "nordalib/vision/imgproc/ColorPaletteConverter.h"

#include "nordalib/core/exception/Exception.h"
#include "nordalib/vision/climate/DewPoint.h"
#include "nordalib/vision/radiometry/RadiometricTools.h"

#include "tests/support/Messages.h"

#include <gtest/gtest.h>

#include <random>

using norda::vision::ColorPaletteConverter;
using norda::vision::DewPoint;
using norda::vision::RadiometricTools;
using Temp = ColorPaletteConverter::Temperature;
using Rel = ColorPaletteConverter::Relation;

namespace {

using norda::test::messageOf;

// n colours whose entry k can be recognised from the pixel: (k & 255, k >> 8, 7).
std::vector<uint8_t> indexTable(size_t n) {
    std::vector<uint8_t> t(3 * n);
    for (size_t k = 0; k < n; ++k) {
        t[3 * k] = static_cast<uint8_t>(k & 255);
        t[3 * k + 1] = static_cast<uint8_t>(k >> 8);
        t[3 * k + 2] = 7;
    }
    return t;
}

cv::Vec3b entry(const std::vector<uint8_t>& t, size_t k) {
    return {t[3 * k], t[3 * k + 1], t[3 * k + 2]};
}

// Colours one row of values.
std::vector<cv::Vec3b> paint(ColorPaletteConverter& c, const std::vector<uint16_t>& values, uint16_t lower,
                             uint16_t upper, const std::vector<uint8_t>& colours) {
    cv::Mat_<uint16_t> raw(1, static_cast<int>(values.size()));
    for (size_t i = 0; i < values.size(); ++i)
        raw(0, static_cast<int>(i)) = values[i];
    cv::Mat_<cv::Vec3b> rgb;
    c.palletize(raw, rgb, lower, upper, true, colours);
    return {rgb.begin(), rgb.end()};
}

struct RegionSetting {
    bool active;
    uint16_t lower, upper;
    uint32_t colour;
};

// The documented mapping, one pixel at a time.
cv::Vec3b reference(uint16_t v, uint16_t lower, uint16_t upper, const std::vector<uint8_t>& colours,
                    const std::array<RegionSetting, 3>& regions) {
    cv::Vec3b out;
    const int64_t n = static_cast<int64_t>(colours.size() / 3);
    const bool inverted = lower > upper;
    const int64_t lo = inverted ? upper : lower, hi = inverted ? lower : upper;
    int64_t k;
    if (v <= lo)
        k = 0;
    else if (v >= hi)
        k = n - 1;
    else
        k = std::min(n - 1, (v - lo) * n / (hi - lo));
    out = entry(colours, static_cast<size_t>(inverted ? n - 1 - k : k));
    for (const auto& r : regions)
        if (r.active && v >= r.lower && v <= r.upper)
            out = cv::Vec3b(static_cast<uint8_t>(r.colour >> 16), static_cast<uint8_t>(r.colour >> 8),
                            static_cast<uint8_t>(r.colour));
    return out;
}

} // namespace

TEST(ColorPaletteConverter, TableFastPathMatchesPerPixelReference) {
    std::mt19937 rng(42);
    cv::Mat_<uint16_t> raw(97, 131); // odd sizes, and a view with a row stride below
    for (auto& v : raw)
        v = static_cast<uint16_t>(rng() % 3 == 0 ? rng() & 0xFFFF : 29000 + rng() % 4000);
    raw(0, 0) = 0;
    raw(0, 1) = 65535;
    const cv::Mat_<uint16_t> view = raw(cv::Rect(3, 2, 120, 90));

    struct Case {
        uint16_t lower, upper;
        size_t colours;
        std::array<RegionSetting, 3> regions;
    };
    const std::vector<Case> cases{
        {29500, 32000, 256, {}},
        {32000, 29500, 256, {}},  // inverted
        {30000, 30000, 256, {}},  // zero span
        {0, 65535, 65536, {}},    // largest table over the full range
        {29990, 30017, 1000, {}}, // more colours than values
        {29000, 33000, 2, {}},    // smallest table
        {29000,
         33000,
         256, // overlapping regions: later ones win
         {RegionSetting{true, 30000, 31000, 0x00FF00}, RegionSetting{true, 30900, 65535, 0xFF0000},
          RegionSetting{true, 0, 30100, 0x0000FF}}},
        {29000,
         33000,
         256,
         {RegionSetting{false, 0, 0, 0}, RegionSetting{true, 31000, 31000, 0xABCDEF}, RegionSetting{}}},
        {1000, 1256, 256, {}}, // one value per colour
        {100, 200, 4, {}},     // bins of 25; only the upper limit itself reaches the last colour
    };
    for (size_t ci = 0; ci < cases.size(); ++ci) {
        const auto& k = cases[ci];
        const auto colours = indexTable(k.colours);
        ColorPaletteConverter c;
        for (uint32_t r = 1; r <= 3; ++r)
            if (k.regions[r - 1].active)
                c.createColorRegion(r, k.regions[r - 1].upper, k.regions[r - 1].lower,
                                    k.regions[r - 1].colour);
        for (const cv::Mat_<uint16_t>& img : {raw, view}) {
            cv::Mat_<cv::Vec3b> rgb;
            c.palletize(img, rgb, k.lower, k.upper, false, colours);
            ASSERT_EQ(rgb.size(), img.size());
            int wrong = 0;
            for (int y = 0; y < img.rows; ++y)
                for (int x = 0; x < img.cols; ++x)
                    wrong += rgb(y, x) != reference(img(y, x), k.lower, k.upper, colours, k.regions);
            EXPECT_EQ(wrong, 0) << "case " << ci;
        }
    }
    // B, G, R order on request.
    ColorPaletteConverter bgr(true);
    EXPECT_EQ(paint(bgr, {1001}, 1000, 1256, indexTable(256))[0], cv::Vec3b(7, 0, 1));
}

TEST(ColorPaletteConverter, RegionsAndColourTablesAreChecked) {
    ColorPaletteConverter c;
    EXPECT_EQ(messageOf([&] { c.createColorRegion(0, 10, 5, 0); }),
              "invalid colour region 0 (1 isotherm, 2 upper alarm, 3 lower alarm)");
    EXPECT_EQ(messageOf([&] { c.deleteColorRegion(4); }),
              "invalid colour region 4 (1 isotherm, 2 upper alarm, 3 lower alarm)");
    EXPECT_EQ(messageOf([&] { c.createColorRegion(2, 400, 401, 0); }),
              "colour region 2: upper limit 400 is below lower limit 401");
    EXPECT_FALSE(c.hasColorRegion(2));
    EXPECT_NO_THROW(c.deleteColorRegion(3));       // deleting an unset region is fine
    c.createColorRegion(3, 401, 401, 0xFF112233u); // one-value band; the top byte is ignored
    EXPECT_TRUE(c.hasColorRegion(3));
    EXPECT_FALSE(c.hasColorRegion(7));
    auto px = paint(c, {400, 401, 402}, 0, 1000, indexTable(256));
    EXPECT_EQ(px[1], cv::Vec3b(0x11, 0x22, 0x33));
    EXPECT_NE(px[0], px[1]);
    EXPECT_NE(px[2], px[1]);

    cv::Mat_<uint16_t> raw(2, 2, uint16_t(5));
    cv::Mat_<cv::Vec3b> rgb;
    EXPECT_EQ(messageOf([&] { c.palletize(raw, rgb, 0, 10, true, std::vector<uint8_t>(3)); }),
              "colour table must hold 2 to 65536 colours, not 1");
    EXPECT_EQ(messageOf([&] { c.palletize(raw, rgb, 0, 10, true, std::vector<uint8_t>(767)); }),
              "colour table of 767 bytes is not a whole number of RGB triples");
    EXPECT_EQ(messageOf([&] { c.palletize(raw, rgb, 0, 10, true, std::vector<uint8_t>(3 * 65537)); }),
              "colour table must hold 2 to 65536 colours, not 65537");
    EXPECT_EQ(messageOf([&] { c.palletize(cv::Mat_<uint16_t>(), rgb, 0, 10, true, indexTable(2)); }),
              "raw image is empty");
    EXPECT_EQ(
        messageOf([&] { c.palletizeHumid(cv::Mat_<uint16_t>(), rgb, Temp(20.0f), Rel(0.5f), true, {}); }),
        "raw image is empty");
}

TEST(ColorPaletteConverter, HumidityViewFollowsTheTrafficLight) {
    using C = ColorPaletteConverter;
    const std::pair<float, cv::Vec3b> fixed[] = {
        {0.0f, {0, 200, 0}},    {0.6399f, {0, 200, 0}}, {0.64f, {0, 200, 0}},
        {0.72f, {255, 255, 0}}, {0.80f, {255, 0, 0}},   {0.9999f, {255, 0, 0}},
        {1.0f, {0, 0, 255}},    {5.0f, {0, 0, 255}},    {std::nanf(""), {0, 200, 0}}};
    for (const auto& [ratio, colour] : fixed)
        EXPECT_EQ(C::humidityColour(ratio), colour) << ratio;
    EXPECT_NEAR(C::humidityColour(0.68f)[0], 128, 1); // half way from green to yellow

    // Every pixel as the climate library sees it: air 20 °C at 50 % has its dew point near 9.3 °C.
    const Temp air(20.0f);
    const Rel rh(0.5f);
    std::vector<uint16_t> values{0, 65535};
    for (int centi = -6000; centi <= 7000; ++centi)
        values.push_back(RadiometricTools::getUint16(centi / 100.0f));
    const cv::Mat_<uint16_t> raw(values, true);
    ColorPaletteConverter c(true);
    cv::Mat_<cv::Vec3b> rgb;
    c.palletizeHumid(raw, rgb, air, rh, false, {});
    int wrong = 0;
    for (int i = 0; i < raw.rows; ++i) {
        const Temp surface(RadiometricTools::getFloat(raw(i, 0)));
        const cv::Vec3b want = C::humidityColour(DewPoint::calcSurfaceMoisture(surface, air, rh).ratio());
        wrong += rgb(i, 0) != cv::Vec3b(want[2], want[1], want[0]);
    }
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(c.tableBuilds(), 1u);
    cv::Mat_<uint16_t> warm(1, 1, RadiometricTools::getUint16(20.0f));
    c.palletizeHumid(warm, rgb, air, Rel(0.9f), false, {}); // new climate: new table
    EXPECT_EQ(c.tableBuilds(), 2u);
    EXPECT_EQ(rgb(0, 0), cv::Vec3b(0, 0, 255)); // 90 % at the air's own temperature: red
}
