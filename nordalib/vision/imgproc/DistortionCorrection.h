#pragma once
// DistortionCorrection<T>: removes lens distortion by resampling a frame through a DistortionTable
// (see DistortionTable.h): one pass over the table, four reads, integer multiply-adds and a shift
// per pixel, no coordinates computed per frame.
//
//   out[i] = (in[s] w00 + 32768 + in[b+1] w11 + in[s+1] w01 + in[b] w10) >> 16
//   with s = i + offset, b = s + cols, in unsigned 32-bit arithmetic (bilinear, rounding half up).
//
// T is the unsigned pixel type (unsigned short for temperature frames, unsigned char for display
// images). An empty correction is not ready() and must not be asked to process.

#include "nordalib/vision/imgproc/DistortionTable.h"

#include <opencv2/core.hpp>

#include <memory>
#include <string>
#include <type_traits>

namespace norda::vision {

template <typename T = unsigned short> class DistortionCorrection {
    static_assert(std::is_unsigned_v<T> && sizeof(T) <= 2,
                  "the weights' arithmetic needs unsigned 8/16-bit pixels");

public:
    DistortionCorrection() = default;
    // Loads a table file for frames of rows x cols (throws, naming the file, when that fails).
    DistortionCorrection(const std::string& path, uint16_t rows, uint16_t cols);
    explicit DistortionCorrection(DistortionTable table);

    bool ready() const { return m_table && !m_table->empty(); }
    const DistortionTable* table() const { return m_table.get(); }

    // Resamples `in` (continuous, type of T) into `out`, which is (re)created when it does not
    // already have the input's size and type. Throws when the table does not fit the frame.
    void processImpl(const cv::Mat& in, cv::Mat& out) const;

private:
    std::shared_ptr<const DistortionTable> m_table;
};

extern template class DistortionCorrection<unsigned short>;
extern template class DistortionCorrection<unsigned char>;

} // namespace norda::vision
