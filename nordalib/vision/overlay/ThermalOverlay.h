#pragma once
// ThermalOverlay: the overlay a thermal camera's screen shows over the palette image, drawn as one
// ARGB canvas (CV_8UC4, B, G, R, A in memory; alpha 0 where the image shows through), for any
// host: the colour scale with its span, the spot markers and measurement areas with their values,
// delta-T, and a status line with emissivity, reflected temperature and the date and time.
//
// The content is given in image pixels and mapped onto the canvas (through the image's placement
// when a fusion insets it), so one description serves the 320 x 240 overlay of saved pictures
// (enlarged 2x when blended) and any other canvas size. Values
// carry their validity marks and are shown as such (OverlayText).

#include "nordalib/vision/overlay/MeasurementMarks.h"
#include "nordalib/vision/overlay/ScaleBar.h"

#include <opencv2/core.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace norda::vision {

struct OverlaySpot {
    SpotKind kind = SpotKind::User;
    std::string label;  // short: "1", "Δ1" is not drawable, use "D1"
    cv::Point position; // image pixels
    OverlayValue value;
    std::string note; // "e 0.80 / 35.0°C" for local parameters, or empty
};

struct OverlayArea {
    std::string label;
    cv::Rect rect; // image pixels
    OverlayValue mean, hot, cold;
    cv::Point hotPosition, coldPosition;
    std::string note;
};

struct OverlayDeltaT {
    cv::Point from, to; // image pixels
    std::string text;   // "D 12.3 K"
};

struct OverlayContent {
    cv::Size imageSize{640, 480};
    std::vector<uint8_t> paletteColours; // 256 R, G, B triples
    OverlayValue scaleLow, scaleHigh;
    std::vector<ColourBand> bands;
    std::vector<OverlaySpot> spots;
    std::vector<OverlayArea> areas;
    std::optional<OverlayDeltaT> deltaT;
    std::string status; // bottom line: "e 0.95  Tr 20.0°C  2026-11-23 15:40:12"
    // Where the image sits in the picture when it is inset (picture-in-picture fusion): the display
    // positions of its first and last pixel centres, {left, top, right, bottom}, as
    // vision::Fusion::infraredPlacement gives them. Empty: the image fills the picture.
    std::vector<double> infraredPlacement;
};

// Where the overlay put its text: the boxes of the marks' labels and of the colour scale with its
// labels (empty when there was no room for it), in canvas pixels.
struct OverlayLayout {
    std::vector<cv::Rect> labels;
    cv::Rect scale;
};

class ThermalOverlay {
public:
    // A new canvas of `canvasSize` with the content drawn on it.
    static cv::Mat render(const OverlayContent& content, cv::Size canvasSize = cv::Size(320, 240),
                          OverlayLayout* layout = nullptr);
    // The same onto an existing CV_8UC4 canvas.
    static OverlayLayout draw(cv::Mat& canvas, const OverlayContent& content);
    // A canvas laid over an RGB picture of its size (R, G, B in memory, as video frames hold it),
    // in place, by the canvas's alpha: rgb = (over * a + rgb * (255 - a)) / 255. The picture may
    // be a view of a video buffer with padded rows.
    static void blendOntoRgb(const cv::Mat& canvas, cv::Mat& rgb);
    // Both at once, for a video frame: the content drawn over an RGB picture (of any row padding)
    // in place, with the canvas of the picture's size kept for the next frame.
    static void drawOntoRgb(const OverlayContent& content, cv::Mat& rgb);
};

} // namespace norda::vision
