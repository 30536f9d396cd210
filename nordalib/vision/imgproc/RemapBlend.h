#pragma once
// RemapBlend: an 8-bit RGB image resampled through maps of source coordinates and mixed with
// another image in the same pass, for putting one camera's image onto another's every frame.
//
// The maps are reduced once to a table, as cv::convertMaps reduces them for cv::remap: each
// coordinate rounded to 1/32 pixel (fx, fy), bilinear weights in 1/1024. Per pixel and channel,
// with p00, p01, p10, p11 the four source pixels and a = round(alpha * 32768):
//   h0 = 32 p00 + fx (p01 - p00),  h1 = 32 p10 + fx (p11 - p10)
//   warped = (32 h0 + fy (h1 - h0) + 512) >> 10
//   out = (base a + warped (32768 - a) + 16384) >> 15 = warped + ((base - warped) a + 16384) >> 15
// `warped` is cv::remap's INTER_LINEAR result with a black constant border, byte for byte; `out`
// is cv::addWeighted's up to its rounding (it rounds a float sum half to even, this an exact one
// half up: the two differ by one step where the sum lies at or within float error of a half).
//
// Source pixels outside the image read as black: the source lives in a buffer with a black frame
// of one pixel, so every table entry reads four pixels of the buffer. source() is the inside of
// that frame, to be written in place (otherwise apply() copies the source there).
// With `insideOnly`, only the pixels whose coordinates lie within the source image are written;
// the others keep what `out` holds (picture in picture).
//
// A table for the luma of UYVY frames (Source::UyvyLuma) resamples only that: warpLuma() is
// cv::extractChannel and cv::remap as above, byte for byte.
//
// Runs of pixels go through a vector kernel of the widest vectors the processor has (see
// VectorDispatch.h) and the plain loop; both give identical bytes.

#include <opencv2/core.hpp>

#include <cstdint>
#include <vector>

namespace norda::vision {

class RemapBlend {
public:
    enum class Source { Rgb, UyvyLuma };

    RemapBlend() = default;
    // `mapX`, `mapY`: CV_32FC1 of the output's size, source pixel coordinates of every output pixel.
    RemapBlend(const cv::Mat& mapX, const cv::Mat& mapY, cv::Size sourceSize, bool insideOnly = false,
               Source format = Source::Rgb);

    bool empty() const { return m_offset.empty(); }
    cv::Size size() const { return m_size; }
    cv::Size sourceSize() const { return m_source; }

    // The source's place in the framed buffer (CV_8UC3, or CV_8UC2 for UYVY, of the source size).
    cv::Mat source() const;

    // `source`: CV_8UC3 of the source size; `base`: CV_8UC3 of the output size; `alpha`: the
    // weight of `base`, clamped to 0..1 (NaN is 0). `out` is (re)created unless it has base's size and type;
    // it may be `base` itself. Throws norda::Exception for images of another size or type.
    void apply(const cv::Mat& source, const cv::Mat& base, float alpha, cv::Mat& out);
    // A UyvyLuma table: `uyvy` (CV_8UC2 of the source size) -> `out`, CV_8UC1 of the output size.
    void warpLuma(const cv::Mat& uyvy, cv::Mat& out);

private:
    struct Run {
        int row, first, end; // output pixels first..end-1 of the row
    };

    std::vector<int32_t> m_offset;    // byte offset of the top-left source pixel in the buffer
    std::vector<uint32_t> m_fraction; // fx | fy << 16
    std::vector<Run> m_runs;
    cv::Size m_size, m_source;
    Source m_format = Source::Rgb;
    cv::Mat m_framed; // the source with a black frame of one pixel
};

} // namespace norda::vision
