#include "nordalib/vision/imgproc/DistortionTable.h"

#include "nordalib/core/exception/Exception.h"
#include "nordalib/core/utils/FileUtils.h"
#include "nordalib/vision/imageio/PxmImage.h"

#include <opencv2/calib3d.hpp>

#include <algorithm>
#include <cmath>
#include <cstring>

namespace norda::vision {

DistortionTable::DistortionTable(std::vector<DistortionEntry> entries, uint16_t rows, uint16_t cols)
    : m_entries(std::move(entries)), m_rows(rows), m_cols(cols) {
    check(m_entries, rows, cols, "distortion table");
}

void DistortionTable::check(const std::vector<DistortionEntry>& entries, uint16_t rows, uint16_t cols,
                            const std::string& source) {
    const int64_t n = int64_t(rows) * cols;
    if (static_cast<int64_t>(entries.size()) != n)
        NORDA_THROW(source + " has " + std::to_string(entries.size()) + " entries for " +
                        std::to_string(cols) + "x" + std::to_string(rows) + " pixels",
                    "norda::vision::DistortionTable::check");
    for (int64_t i = 0; i < n; ++i) {
        const auto& e = entries[static_cast<size_t>(i)];
        const int64_t s = i + e.offset;
        const int64_t weights = int64_t(e.w00) + e.w10 + e.w01 + e.w11;
        // All four source pixels are read whatever their weight: s + cols + 1 must exist.
        const bool inside = s >= 0 && s + cols + 1 < n;
        if (!inside || weights > 65536)
            NORDA_THROW(source + ": entry " + std::to_string(i) + " (pixel " + std::to_string(i % cols) +
                            "," + std::to_string(i / cols) + ") " +
                            (inside ? "has weights adding up to " + std::to_string(weights) + " > 65536"
                                    : "reads outside the image"),
                        "norda::vision::DistortionTable::check");
    }
}

DistortionTable DistortionTable::load(const std::string& file, uint16_t rows, uint16_t cols) {
    if (!utils::existsFile(file))
        NORDA_THROW("distortion table " + file + " is missing", "norda::vision::DistortionTable::load");
    const cv::Mat image = readPxmImage(file);
    if (image.type() != CV_16UC(5))
        NORDA_THROW("distortion table " + file + " is not a five-channel 16-bit image",
                    "norda::vision::DistortionTable::load");
    if (image.rows != rows || image.cols != cols)
        NORDA_THROW("distortion table " + file + " is " + std::to_string(image.cols) + "x" +
                        std::to_string(image.rows) + ", the frame " + std::to_string(cols) + "x" +
                        std::to_string(rows),
                    "norda::vision::DistortionTable::load");
    std::vector<DistortionEntry> entries(image.total());
    const cv::Mat continuous = image.isContinuous() ? image : image.clone();
    std::memcpy(entries.data(), continuous.data, entries.size() * sizeof(DistortionEntry));
    check(entries, rows, cols, "distortion table " + file);
    DistortionTable t;
    t.m_entries = std::move(entries);
    t.m_rows = rows;
    t.m_cols = cols;
    return t;
}

void DistortionTable::save(const std::string& file) const {
    if (empty())
        NORDA_THROW("an empty distortion table can not be saved to " + file,
                    "norda::vision::DistortionTable::save");
    cv::Mat image(m_rows, m_cols, CV_16UC(5));
    std::memcpy(image.data, m_entries.data(), m_entries.size() * sizeof(DistortionEntry));
    writePxmImage(file, image);
}

DistortionTable DistortionTable::fromMaps(const cv::Mat& mapX, const cv::Mat& mapY) {
    if (mapX.type() != CV_32FC1 || mapY.type() != CV_32FC1 || mapX.size() != mapY.size())
        NORDA_THROW("distortion maps must be two CV_32FC1 matrices of one size",
                    "norda::vision::DistortionTable::fromMaps");
    const int rows = mapX.rows, cols = mapX.cols;
    if (rows < 2 || cols < 2 || rows > 65535 || cols > 65535)
        NORDA_THROW("distortion maps of " + std::to_string(cols) + "x" + std::to_string(rows) +
                        " are not usable",
                    "norda::vision::DistortionTable::fromMaps");
    std::vector<DistortionEntry> entries(static_cast<size_t>(rows) * cols);
    for (int y = 0; y < rows; ++y) {
        const float* mx = mapX.ptr<float>(y);
        const float* my = mapY.ptr<float>(y);
        for (int x = 0; x < cols; ++x) {
            const double sx = std::clamp(std::isfinite(mx[x]) ? double(mx[x]) : 0.0, 0.0, cols - 1.0);
            const double sy = std::clamp(std::isfinite(my[x]) ? double(my[x]) : 0.0, 0.0, rows - 1.0);
            const int x0 = std::min(static_cast<int>(sx), cols - 2);
            const int y0 = std::min(static_cast<int>(sy), rows - 2);
            const double fx = sx - x0, fy = sy - y0;
            auto q = [](double w) { return static_cast<int32_t>(std::lround(w * 65536.0)); };
            int32_t w01 = q(fx * (1 - fy)), w10 = q((1 - fx) * fy), w11 = q(fx * fy);
            int32_t w00 = 65536 - w01 - w10 - w11;
            if (w00 < 0) { // rounding took more than the whole: take it back from the largest
                int32_t* largest = w01 >= w10 && w01 >= w11 ? &w01 : (w10 >= w11 ? &w10 : &w11);
                *largest += w00;
                w00 = 0;
            }
            // A weight of exactly 65536 can not be stored; 65535 loses less than half a count.
            auto store = [](int32_t w) { return static_cast<uint16_t>(std::min(w, 65535)); };
            const int64_t index = int64_t(y) * cols + x;
            const int64_t offset = int64_t(y0) * cols + x0 - index;
            if (offset < -32768 || offset > 32767)
                NORDA_THROW("the lens moves pixel " + std::to_string(x) + "," + std::to_string(y) + " by " +
                                std::to_string(offset) + " pixels, beyond the table's reach of 32767",
                            "norda::vision::DistortionTable::fromMaps");
            entries[static_cast<size_t>(index)] = {static_cast<int16_t>(offset), store(w00), store(w10),
                                                   store(w01), store(w11)};
        }
    }
    return DistortionTable(std::move(entries), static_cast<uint16_t>(rows), static_cast<uint16_t>(cols));
}

DistortionTable DistortionTable::fromCameraModel(const cv::Mat& cameraMatrix, const cv::Mat& distCoeffs,
                                                 cv::Size size, const cv::Mat& newCameraMatrix) {
    if (cameraMatrix.rows != 3 || cameraMatrix.cols != 3)
        NORDA_THROW("camera matrix must be 3x3", "norda::vision::DistortionTable::fromCameraModel");
    cv::Mat mapX, mapY;
    cv::initUndistortRectifyMap(cameraMatrix, distCoeffs, cv::Mat(),
                                newCameraMatrix.empty() ? cameraMatrix : newCameraMatrix, size, CV_32FC1,
                                mapX, mapY);
    return fromMaps(mapX, mapY);
}

} // namespace norda::vision
