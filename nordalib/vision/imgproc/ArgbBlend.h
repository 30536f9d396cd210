#pragma once
// ArgbBlend: an overlay of 32-bit ARGB words (B, G, R, A in memory) laid over an image of the same
// words by the overlay's own alpha, in integers dividing by 256:
//   out = (over * a + under * (255 - a)) >> 8 for B, G and R;  out alpha = a
// (an opaque overlay pixel comes out one step darker, 255 * 255 >> 8 = 254).
// Rows run through a vector kernel of the widest vectors the processor has (see VectorDispatch.h)
// and the plain loop for the rest; both give identical bytes.

#include <opencv2/core.hpp>

namespace norda::vision {

class ArgbBlend {
public:
    // Empty when the images are empty or of different sizes.
    static cv::Mat_<cv::Vec4b> blend(const cv::Mat_<cv::Vec4b>& over, const cv::Mat_<cv::Vec4b>& under);
};

} // namespace norda::vision
