#pragma once
// LookupTable16: a table of 65536 16-bit values indexed by a 16-bit pixel, applied to whole
// frames (out = table[in], the pixel's bits read as unsigned, so signed frames index by their
// two's complement pattern).
// Frames run through a vector kernel of the widest vectors the processor has (see
// VectorDispatch.h), gathering 32 bits per pixel: the table keeps one spare entry after the last
// so that the read at 65535 stays inside. The plain loop does the rest; both give identical values.

#include <opencv2/core.hpp>

#include <cstdint>
#include <vector>

namespace norda::vision {

class LookupTable16 {
public:
    LookupTable16() : m_entries(65536 + 1, 0) {}

    uint16_t& operator[](uint16_t index) { return m_entries[index]; }
    uint16_t operator[](uint16_t index) const { return m_entries[index]; }

    // `in`: CV_16UC1 or CV_16SC1; `out` is (re)created as CV_16UC1 of its size unless it is one
    // (it must not share memory with `in` unless it is `in`). Throws norda::Exception for another type.
    void apply(const cv::Mat& in, cv::Mat& out) const;

private:
    std::vector<uint16_t> m_entries;
};

} // namespace norda::vision
