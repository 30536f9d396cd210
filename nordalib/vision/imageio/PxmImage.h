#pragma once
// Single PXM images: calibration tables such as "badpixel.pxm" and "distort.pxm".
//
// A calibration file is a PXM file holding one frame (a Netpbm image, so it can be inspected and
// edited with standard tools); its metadata comments may carry the table's parameters.
//
//   cv::Mat table = norda::vision::readPxmImage(dir + "/badpixel.pxm");
//   norda::exp::DataStorage<std::string> meta;
//   cv::Mat map = norda::vision::readPxmImage(dir + "/distort.pxm", &meta);
//   norda::vision::writePxmImage(path, table, meta);
//
// readPxmImage returns the first frame with its exact type (CV_16UC1, CV_32FC2, ...) and throws a
// norda::Exception naming the file when it cannot be opened, holds no complete frame or is
// damaged. writePxmImage creates or replaces the file with one frame and throws on failure.

#include "nordalib/core/datatypes/DataStorage.h"

#include <opencv2/core.hpp>

#include <string>

namespace norda::vision {

cv::Mat readPxmImage(const std::string& fileName, exp::DataStorage<std::string>* metaData = nullptr);

void writePxmImage(const std::string& fileName, const cv::Mat& image,
                   const exp::DataStorage<std::string>& metaData = {});

} // namespace norda::vision
