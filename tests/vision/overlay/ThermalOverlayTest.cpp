#include "nordalib/vision/overlay/ThermalOverlay.h"

#include "nordalib/vision/imgproc/Palettes.h"
#include "nordalib/vision/streaming/ImageWriteElement.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

using namespace norda::vision;

TEST(OverlayText, ShowsValuesOutsideTheValidRangeAsSuch) {
    const struct {
        OverlayValue v;
        const char* text;
    } cases[] = {{{23.44f, 0, false},
                  "23.4\xC2\xB0"
                  "C"},
                 {{-3.06f, 1, false},
                  "(-3.1\xC2\xB0"
                  "C)"},
                 {{-20.0f, 3, false},
                  "<-20.0\xC2\xB0"
                  "C"},
                 {{151.2f, 5, false},
                  ">151.2\xC2\xB0"
                  "C"},
                 {{87.4f, 0, true}, "87 %"}};
    for (const auto& c : cases)
        EXPECT_EQ(OverlayText::format(c.v), c.text);
    EXPECT_NE(OverlayText::colourOf({1.0f, 5, false}), OverlayText::colourOf({1.0f, 0, false}));
}

// The overlay of a saved picture: drawn where the content says, transparent elsewhere, and
// blended into the picture the image writer makes (written to the build folder to be looked at).
TEST(ThermalOverlay, DrawsScaleMarksAndStatusForTheSavedPicture) {
    OverlayContent c;
    c.imageSize = {640, 480};
    c.paletteColours = Palettes::colors("iron");
    c.scaleLow = {12.3f, 0, false};
    c.scaleHigh = {151.0f, 5, false};
    c.bands.push_back({60.0f, 80.0f, 0x00FF00});
    c.spots.push_back({SpotKind::Hot, "", {500, 140}, {151.0f, 5, false}, ""});
    c.spots.push_back({SpotKind::Cold, "", {100, 400}, {12.3f, 0, false}, ""});
    c.spots.push_back({SpotKind::User,
                       "P1",
                       {320, 240},
                       {36.6f, 0, false},
                       "e 0.80 Tr 35.0\xC2\xB0"
                       "C"});
    c.areas.push_back({"A1",
                       {60, 60, 200, 140},
                       {25.0f, 0, false},
                       {30.0f, 0, false},
                       {20.0f, 1, false},
                       {100, 100},
                       {200, 150},
                       ""});
    c.deltaT = OverlayDeltaT{{320, 240}, {160, 130}, "dT +11.6 K"};
    c.status = "e 0.95  Tr 20.0\xC2\xB0"
               "C  2026-11-23 12:00:00";
    const cv::Mat overlay = ThermalOverlay::render(c);
    ASSERT_EQ(overlay.size(), cv::Size(320, 240));
    ASSERT_EQ(overlay.type(), CV_8UC4);

    std::vector<cv::Mat> ch;
    cv::split(overlay, ch);
    EXPECT_GT(cv::countNonZero(ch[3](cv::Rect(300, 20, 20, 150))), 1000) << "scale bar";
    EXPECT_GT(cv::countNonZero(ch[3](cv::Rect(0, 225, 320, 15))), 3000) << "status line";
    EXPECT_GT(cv::countNonZero(ch[3](cv::Rect(155, 115, 10, 10))), 5) << "user point";
    EXPECT_EQ(cv::countNonZero(ch[3](cv::Rect(180, 170, 60, 40))), 0) << "image shows through";
    // The green isotherm band takes its share (20 of 138.7 K) of the bar's rows.
    int green = 0;
    for (int r = 0; r < 240; ++r)
        green += overlay.at<cv::Vec4b>(r, 310) == cv::Vec4b(0, 255, 0, 255);
    EXPECT_NEAR(green, 20.0 / 138.7 * 185, 3); // the bar is 185 rows high

    cv::Mat_<cv::Vec3b> preview(480, 640, cv::Vec3b(60, 20, 120));
    const auto picture = norda::exp::streaming::ImageWriteElement::composeJpegImage(preview, overlay);
    ASSERT_FALSE(picture.empty());
    // Kept for a look, in the build folder.
    const std::string folder = std::string(NORDA_BINARY_DIR) + "/test-pictures";
    std::filesystem::create_directories(folder);
    cv::imwrite(folder + "/thermal-overlay-test.jpg", picture);
    OverlayContent empty;
    empty.imageSize = {0, 0};
    EXPECT_THROW(ThermalOverlay::render(empty), norda::Exception);

    // Over a video frame's RGB bytes (rows padded, as in a buffer): opaque red, clear, 20 % blue
    // over grey (hand-computed: 100 * 204 / 255 = 80, (250 * 51 + 100 * 204) / 255 = 130).
    cv::Mat_<cv::Vec4b> canvas(1, 3);
    canvas << cv::Vec4b(0, 0, 255, 255), cv::Vec4b(9, 9, 9, 0), cv::Vec4b(250, 0, 0, 51);
    cv::Mat_<cv::Vec3b> buffer(1, 4, cv::Vec3b(100, 100, 100));
    cv::Mat rgb = buffer(cv::Rect(0, 0, 3, 1));
    ThermalOverlay::blendOntoRgb(canvas, rgb);
    EXPECT_EQ(buffer(0, 0), cv::Vec3b(255, 0, 0));
    EXPECT_EQ(buffer(0, 1), cv::Vec3b(100, 100, 100));
    EXPECT_EQ(buffer(0, 2), cv::Vec3b(80, 80, 130));
    EXPECT_EQ(buffer(0, 3), cv::Vec3b(100, 100, 100));
    cv::Mat smaller = buffer(cv::Rect(0, 0, 2, 1));
    EXPECT_THROW(ThermalOverlay::blendOntoRgb(canvas, smaller), norda::Exception);
}

// A crowded picture: five points, three areas and delta-T close together, hot and cold spots by
// the colour scale. Every label stays inside the picture, off every other and off the scale.
TEST(ThermalOverlay, LabelsOfACrowdedPictureKeepClearOfEachOtherAndTheScale) {
    OverlayContent c;
    c.imageSize = {320, 240};
    c.paletteColours = Palettes::colors("iron");
    c.scaleLow = {-12.3f, 0, false};
    c.scaleHigh = {151.0f, 0, false};
    const OverlayValue v{36.6f, 0, false};
    for (int i = 0; i < 5; ++i)
        c.spots.push_back(
            {SpotKind::User, std::string(1, "12345"[i]), {190 + 9 * i, 95 + 7 * (i % 3)}, v, ""});
    c.spots.push_back({SpotKind::Hot, "", {292, 30}, {151.0f, 5, false}, ""});
    c.spots.push_back({SpotKind::Cold, "", {296, 205}, {-12.3f, 0, false}, ""});
    for (int i = 0; i < 3; ++i)
        c.areas.push_back({std::string(1, "123"[i]),
                           {180 + 14 * i, 85 + 6 * i, 24, 18},
                           {25.0f, 0, false},
                           {30.0f, 0, false},
                           {20.0f, 1, false},
                           {185 + 14 * i, 90 + 6 * i},
                           {195 + 14 * i, 98 + 6 * i},
                           ""});
    c.deltaT = OverlayDeltaT{{190, 95}, {230, 110}, "dT +11.6 K"};
    c.status = "e 0.95  Tr 20.0\xC2\xB0"
               "C  2026-11-23 12:00:00";
    OverlayLayout layout;
    const cv::Mat overlay = ThermalOverlay::render(c, {320, 240}, &layout);
    ASSERT_EQ(layout.labels.size(), 11u);
    ASSERT_FALSE(layout.scale.empty());
    const cv::Rect canvas(0, 0, 320, 240);
    for (size_t i = 0; i < layout.labels.size(); ++i) {
        const cv::Rect& a = layout.labels[i];
        EXPECT_EQ(a & canvas, a) << i << " outside";
        EXPECT_TRUE((a & layout.scale).empty()) << i << " on the scale";
        for (size_t j = i + 1; j < layout.labels.size(); ++j)
            EXPECT_TRUE((a & layout.labels[j]).empty()) << i << " on " << j;
    }
    // A spot's label that had to move away is tied to its mark by a line: the overlay is opaque
    // halfway between the mark and the label's nearest point. (Labels: areas, delta-T, spots.)
    int moved = 0;
    for (size_t i = 0; i < c.spots.size(); ++i) {
        const cv::Rect& box = layout.labels[c.areas.size() + 1 + i];
        const cv::Point at = c.spots[i].position;
        const cv::Point nearest(std::clamp(at.x, box.x, box.br().x - 1),
                                std::clamp(at.y, box.y, box.br().y - 1));
        if (cv::norm(nearest - at) < 20)
            continue;
        ++moved;
        EXPECT_GT(overlay.at<cv::Vec4b>((at + nearest) / 2)[3], 0) << "no leader from spot " << i;
    }
    EXPECT_GT(moved, 0);
    // Kept for a look, in the build folder.
    const std::string folder = std::string(NORDA_BINARY_DIR) + "/test-pictures";
    std::filesystem::create_directories(folder);
    cv::Mat_<cv::Vec3b> preview(240, 320, cv::Vec3b(60, 20, 120));
    cv::imwrite(folder + "/crowded-overlay.png",
                norda::exp::streaming::ImageWriteElement::composeJpegImage(preview, overlay));
}

// A video frame's overlay with every kind of mark, drawn straight onto the picture (the canvas kept
// and texts copied within and between frames), against the canvas with every text drawn afresh,
// blended by hand: (over * a + under * (255 - a)) / 255 in each byte. The second frame moves every
// mark and changes one area's mean, so the texts come again at other places and over other pixels
// (the line under the changed mean); its picture has an odd width in a padded buffer.
TEST(ThermalOverlay, DrawsVideoFramesAsTheCanvasBlendedByHand) {
    OverlayContent c;
    c.paletteColours = Palettes::colors("iron");
    c.scaleLow = {18.2f, 0, false};
    c.scaleHigh = {61.4f, 0, false};
    c.bands.push_back({40.0f, 45.0f, 0x00FF00});
    const SpotKind kinds[] = {SpotKind::Hot,   SpotKind::Cold,   SpotKind::Centre,
                              SpotKind::Laser, SpotKind::DeltaT, SpotKind::User};
    for (int i = 0; i < 6; ++i)
        c.spots.push_back({kinds[i],
                           i == 5 ? "1" : "",
                           {110 + 80 * i, 80 + 50 * (i % 3)},
                           {20.5f + i, i == 4 ? 1u : 0u, false},
                           i == 5 ? "e 0.80 Tr 35.0\xC2\xB0"
                                    "C"
                                  : ""});
    for (int i = 0; i < 2; ++i)
        c.areas.push_back({std::to_string(i + 1),
                           {60 + 200 * i, 280, 120, 140},
                           {25.0f, 0, false},
                           {31.0f, 0, false},
                           {20.0f, 3, false},
                           {80 + 200 * i, 300},
                           {150 + 200 * i, 400},
                           ""});
    c.deltaT = OverlayDeltaT{{110, 80}, {430, 130}, "dT -1.0 K"};
    c.status = "e 0.95  Tr 20.0\xC2\xB0"
               "C  2026-11-23 15:40:12";
    OverlayContent moved = c;
    for (auto& s : moved.spots)
        s.position += cv::Point(7, 5);
    for (auto& a : moved.areas)
        a.rect += cv::Point(7, 5);
    moved.areas[0].mean.value = 27.7f;

    const std::string folder = std::string(NORDA_BINARY_DIR) + "/test-pictures";
    std::filesystem::create_directories(folder);
    cv::Mat buffer(960, 1280, CV_8UC3);
    cv::randu(buffer, 0, 256);
    // Last, larger text (brackets reach farther beyond the line).
    for (const auto& [content, size] :
         {std::pair{c, cv::Size(640, 480)}, std::pair{moved, cv::Size(637, 479)},
          std::pair{c, cv::Size(1277, 957)}})
        for (int repeat = 0; repeat < 2; ++repeat) {
            OverlayText::copyDrawnTexts(false);
            const cv::Mat canvas = ThermalOverlay::render(content, size);
            OverlayText::copyDrawnTexts(true);
            cv::Mat expected = buffer.clone();
            for (int y = 0; y < size.height; ++y)
                for (int x = 0; x < size.width; ++x) {
                    const auto& o = canvas.at<cv::Vec4b>(y, x);
                    auto& u = expected.at<cv::Vec3b>(y, x);
                    for (int k = 0; k < 3; ++k)
                        u[k] = static_cast<uint8_t>((o[2 - k] * o[3] + u[k] * (255 - o[3])) / 255);
                }
            cv::Mat blended = buffer.clone(), picture = blended(cv::Rect({}, size));
            ThermalOverlay::blendOntoRgb(canvas, picture);
            EXPECT_EQ(cv::norm(blended, expected, cv::NORM_INF), 0) << size;
            cv::Mat drawn = buffer.clone();
            picture = drawn(cv::Rect({}, size));
            ThermalOverlay::drawOntoRgb(content, picture);
            EXPECT_EQ(cv::norm(drawn, expected, cv::NORM_INF), 0) << size << " repeat " << repeat;
            cv::Mat shown;
            cv::cvtColor(drawn, shown, cv::COLOR_RGB2BGR);
            cv::imwrite(folder + "/video-overlay-" + std::to_string(size.width) + ".png", shown);
        }
    cv::Mat grey(2, 2, CV_8UC1);
    EXPECT_THROW(ThermalOverlay::drawOntoRgb(c, grey), norda::Exception);
}
