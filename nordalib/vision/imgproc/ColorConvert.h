#pragma once
// ColorConvert: packed YUV 4:2:2 frames of the visual camera to 8-bit RGB or BGR images.
//
// Source: a CV_8UC2 matrix of W x H pixels holding pairs of pixels as the byte sequence
// U, Y0, V, Y1 ("UYVY"); W must be even. Target: a W x H three-channel 8-bit image, (re)allocated
// as needed. Colour equations: ITU-R BT.601 with video-range levels (Y 16..235, U/V 16..240),
// evaluated in 16-bit integer fixed point (six fraction bits) with rounding and saturation:
//   R = 1.164 (Y - 16) + 1.596 (V - 128)
//   G = 1.164 (Y - 16) - 0.813 (V - 128) - 0.391 (U - 128)
//   B = 1.164 (Y - 16) + 2.018 (U - 128)
//
// convertUY1VY0ToRGB / convertUY1VY0ToBGR give both pixels of a pair the pair's chroma (the
// camera's native sampling; the fast path, identical to common library conversions).
// convertUYVYToRGB treats chroma as co-sited with the even pixel, as UYVY defines it, and gives
// each odd pixel the mean chroma of its two neighbouring pairs: softer colour edges at a small
// extra cost. Rows are converted in parallel with the widest vectors the processor has (chosen at
// run time, see VectorDispatch.h); every path gives identical bytes. Wrong types
// or odd widths throw norda::Exception.

#include <opencv2/core.hpp>

namespace norda::vision {

class ColorConvert {
public:
    static void convertUY1VY0ToRGB(const cv::Mat& source, cv::Mat_<cv::Vec3b>& target);
    static void convertUY1VY0ToBGR(const cv::Mat& source, cv::Mat_<cv::Vec3b>& target);
    static void convertUYVYToRGB(const cv::Mat& source, cv::Mat_<cv::Vec3b>& target);
};

} // namespace norda::vision
