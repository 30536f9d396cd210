#pragma once
// OverlayText: legible text on an overlay canvas (CV_8UC4, B, G, R, A in memory, as the JPEG
// blending of the image writer expects).
//
// Text is drawn with OpenCV's Hershey font over a dark outline, so it reads on any palette colour,
// and the canvas is enlarged afterwards (2x for a saved picture), so strokes stay thick enough to
// survive the interpolation. "°" (UTF-8), which the Hershey font lacks, is drawn as a small ring.
// Temperatures are formatted with their validity mark: a value outside the tolerance band of the
// measurement range in brackets, one beyond the range with "<" or ">".

#include <opencv2/core.hpp>

#include <string>

namespace norda::vision {

// A measured value with the validity mark of the measurement stage (0 valid, 1 outside the
// tolerance band, 3 under range, 5 over range); a relative humidity (surface moisture) in %.
struct OverlayValue {
    float value = 0.0f;
    unsigned mark = 0;
    bool percent = false;
    bool valid() const { return mark == 0; }
};

class OverlayText {
public:
    enum class Align { Left, Right, Centre };

    // Text height in canvas pixels of one line at `scale`, without the outline.
    static int lineHeight(double scale);
    static cv::Size size(const std::string& text, double scale);
    // Draws `text` with its baseline at `origin` (aligned as asked), over a dark outline. Returns
    // the box it covers, outline included.
    static cv::Rect draw(cv::Mat& canvas, const std::string& text, cv::Point origin, const cv::Scalar& colour,
                         double scale, Align align = Align::Left);

    // Texts are copied from the last time the drawing thread drew them over the same pixels, the
    // same to the byte as drawn afresh; false draws each afresh, the reference the copies are held
    // against. For tests and diagnosis.
    static void copyDrawnTexts(bool on);

    // "23.4°C", "(23.4°C)" outside tolerance, "<-20.3°C" under range, ">151.2°C" over range;
    // "87 %" for a humidity. One decimal.
    static std::string format(const OverlayValue& v);
    // White for valid values, amber for marked ones.
    static cv::Scalar colourOf(const OverlayValue& v);
};

} // namespace norda::vision
