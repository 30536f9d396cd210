#pragma once
// ScaleBar: the colour scale of a thermal picture: the palette as a vertical bar (hottest colour
// at the top) with the span's upper and lower temperature above and below it and the middle
// temperature beside it, and the colour bands of the isotherm and alarms at their place in the span.

#include "nordalib/vision/overlay/OverlayText.h"

#include <opencv2/core.hpp>

#include <cstdint>
#include <vector>

namespace norda::vision {

struct ColourBand {
    float lowC = 0.0f;
    float highC = 0.0f;
    uint32_t rgb = 0; // 0x00RRGGBB
};

class ScaleBar {
public:
    // `bar`: where the colours go; the labels are drawn above, below and left of it. `colours`:
    // the palette's 256 R, G, B triples (fewer: a grey ramp). Bands outside the span are clipped.
    // Returns the box the bar and its labels cover.
    static cv::Rect draw(cv::Mat& canvas, const cv::Rect& bar, const std::vector<uint8_t>& colours,
                         const OverlayValue& low, const OverlayValue& high,
                         const std::vector<ColourBand>& bands, double textScale);
};

} // namespace norda::vision
