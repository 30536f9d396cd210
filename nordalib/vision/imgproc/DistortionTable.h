#pragma once
// DistortionTable: the resampling table that removes a lens's distortion, one 10-byte entry per
// output pixel in row-major order:
//
//   offset  int16   source pixel index relative to the output pixel's own index
//   w00     uint16  weight of the source pixel (top left)
//   w10     uint16  weight of the pixel one row below
//   w01     uint16  weight of the pixel to the right
//   w11     uint16  weight of the pixel below and to the right
//
// Weights are fractions of 65536 and add up to 65536 at most (65535 where one weight would be the
// whole). Every table guarantees that the four source pixels lie inside the image.
//
// File ("distort.pxm", one per lens): a PXM image of the frame's size and type CV_16UC5 whose five
// channels are the entry's fields (the offset as its 16-bit two's complement pattern).
//
// Tables are built from a lens's pinhole camera matrix and Brown-Conrady coefficients
// (k1, k2, p1, p2[, k3...]) with OpenCV's initUndistortRectifyMap, or from any pair of float maps
// of source coordinates; positions outside the sensor take the nearest edge pixel.

#include <opencv2/core.hpp>

#include <cstdint>
#include <string>
#include <vector>

namespace norda::vision {

#pragma pack(push, 1)
struct DistortionEntry {
    int16_t offset;
    uint16_t w00;
    uint16_t w10;
    uint16_t w01;
    uint16_t w11;
};
#pragma pack(pop)
static_assert(sizeof(DistortionEntry) == 10, "a table entry is five 16-bit fields");

class DistortionTable {
public:
    DistortionTable() = default;
    // Checks every entry (source pixels inside the image, weights at most 65536 in total).
    DistortionTable(std::vector<DistortionEntry> entries, uint16_t rows, uint16_t cols);

    // Reads a table file for a frame of rows x cols; throws a norda::Exception naming the file when
    // it is missing, damaged, of another size or holds an entry that would read outside the image.
    static DistortionTable load(const std::string& file, uint16_t rows, uint16_t cols);
    void save(const std::string& file) const;

    // Bilinear table from maps of source coordinates (CV_32FC1, one per output pixel).
    static DistortionTable fromMaps(const cv::Mat& mapX, const cv::Mat& mapY);
    // Undistortion of a lens: camera matrix (3x3) and distortion coefficients as OpenCV takes them.
    // `newCameraMatrix` defaults to the camera matrix (same focal length and centre).
    static DistortionTable fromCameraModel(const cv::Mat& cameraMatrix, const cv::Mat& distCoeffs,
                                           cv::Size size, const cv::Mat& newCameraMatrix = cv::Mat());

    bool empty() const { return m_entries.empty(); }
    uint16_t rows() const { return m_rows; }
    uint16_t cols() const { return m_cols; }
    const std::vector<DistortionEntry>& entries() const { return m_entries; }

private:
    static void check(const std::vector<DistortionEntry>& entries, uint16_t rows, uint16_t cols,
                      const std::string& source);

    std::vector<DistortionEntry> m_entries;
    uint16_t m_rows = 0;
    uint16_t m_cols = 0;
};

} // namespace norda::vision
