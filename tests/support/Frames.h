#pragma once
// Frames for element tests: an image with one metadata entry ("Origin") to follow through.

#include "nordalib/core/datatypes/Frame.h"

#include <memory>
#include <string>

namespace norda::test {

inline std::unique_ptr<exp::Frame> makeFrame(const cv::Mat& image, const std::string& origin = "tag") {
    exp::DataStorage<std::string> meta;
    meta.setValue("Origin", origin);
    return std::make_unique<exp::Frame>(image, std::move(meta));
}

} // namespace norda::test
