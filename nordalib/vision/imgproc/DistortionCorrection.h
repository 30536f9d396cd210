#pragma once
// DistortionCorrection<T>: removes lens distortion by resampling a frame through a DistortionTable
// (see DistortionTable.h): one pass over the table, four reads, integer multiply-adds and a shift
// per pixel, no coordinates computed per frame.
//
//   out[i] = (in[s] w00 + 32768 + in[b+1] w11 + in[s+1] w01 + in[b] w10) >> 16
//   with s = i + offset, b = s + cols, in unsigned 32-bit arithmetic (bilinear, rounding half up).
//
// The table is kept in planes rather than as 10-byte records (still 10 bytes a pixel): the offsets,
// then the weights of each row's pixel pair packed as w00 | w01 << 16 and w10 | w11 << 16. A pair of
// 16-bit source pixels read as one 32-bit word lines up with its packed weights, so a vector of
// output pixels takes two gathers and a handful of 16-bit multiplies (vector kernel for 16-bit
// pixels, see VectorDispatch.h; 8-bit images take the plain loop).
//
// T is the unsigned pixel type (unsigned short for temperature frames, unsigned char for display
// images). An empty correction is not ready() and must not be asked to process.

#include "nordalib/vision/imgproc/DistortionTable.h"

#include <opencv2/core.hpp>

#include <cstdint>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

namespace norda::vision {

template <typename T = unsigned short> class DistortionCorrection {
    static_assert(std::is_unsigned_v<T> && sizeof(T) <= 2,
                  "the weights' arithmetic needs unsigned 8/16-bit pixels");

public:
    DistortionCorrection() = default;
    // Loads a table file for frames of rows x cols (throws, naming the file, when that fails).
    DistortionCorrection(const std::string& path, uint16_t rows, uint16_t cols);
    explicit DistortionCorrection(const DistortionTable& table);

    bool ready() const { return m_planes && !m_planes->offset.empty(); }
    uint16_t rows() const { return m_rows; }
    uint16_t cols() const { return m_cols; }

    // Resamples `in` (continuous, type of T) into `out`, which is (re)created when it does not
    // already have the input's size and type. Throws when the table does not fit the frame.
    void processImpl(const cv::Mat& in, cv::Mat& out) const;

private:
    struct Planes {
        std::vector<int16_t> offset;
        std::vector<uint32_t> top;    // w00 | w01 << 16
        std::vector<uint32_t> bottom; // w10 | w11 << 16
    };
    void prepare(const cv::Mat& in, cv::Mat& out) const;

    // Shared between copies: tables are large and never change once built.
    std::shared_ptr<const Planes> m_planes;
    uint16_t m_rows = 0;
    uint16_t m_cols = 0;
};

extern template class DistortionCorrection<unsigned short>;
extern template class DistortionCorrection<unsigned char>;

} // namespace norda::vision
