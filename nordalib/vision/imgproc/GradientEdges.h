#pragma once
// GradientEdges: thin edges of an 8-bit image in one pass, a cheaper stand-in for cv::Canny where
// edges are only shown (the edges fusion mode): a pixel is an edge where its 3 x 3 Sobel gradient
// (|gx| + |gy|, as Canny's default L1 norm) reaches the threshold and is the largest across the
// edge (along the gradient's dominant axis), which keeps lines one or two pixels wide. There is no
// hysteresis: weak stretches of an edge may break up, which a display can bear.

#include <opencv2/core.hpp>

namespace norda::vision {

class GradientEdges {
public:
    // `edges` (CV_8UC1, the size of `gray`): 255 on edges, 0 elsewhere; the one-pixel border is 0.
    static void detect(const cv::Mat& gray, cv::Mat& edges, int threshold);
};

} // namespace norda::vision
