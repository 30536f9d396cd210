#pragma once
// The bad-pixel calibration file ("badpixel.pxm"): one 8-bit PXM image of the sensor's size in
// which 0 marks a good pixel and any other value a bad one. Values 1..4 record how the pixel was
// found (BadPixelOrigin + 1: 1 factory, 2 dead, 3 stuck, 4 outlier); other non-zero values, as a
// hand-edited mask may hold (255), count as factory. Being a Netpbm grey image, the file can be
// viewed and edited with standard image tools.

#include "nordalib/vision/imgproc/BadPixel.h"

#include <opencv2/core.hpp>

#include <string>

namespace norda::vision {

class BadPixelMap {
public:
    // Throws a norda::Exception naming the file when it cannot be read or is not an 8-bit mask.
    static BadPixelList read(const std::string& file, cv::Size* size = nullptr);
    // Pixels outside `size` are an error.
    static void write(const std::string& file, const BadPixelList& list, cv::Size size);

    static cv::Mat toMask(const BadPixelList& list, cv::Size size);
    static BadPixelList fromMask(const cv::Mat& mask);
};

} // namespace norda::vision
