#pragma once
// RowStatistics: minimum, maximum and sums over one row of 16-bit pixels, the inner loops of the
// min/max extraction. They run at memory speed with the processor's widest vectors (see
// VectorDispatch.h); sums are exact (64 bits).

#include <cstdint>

namespace norda::vision {

class RowStatistics {
public:
    // Minimum, maximum and sum of p[0 .. width); an empty row gives 65535, 0 and 0.
    static void minMaxSum(const uint16_t* p, int width, uint16_t& min, uint16_t& max, uint64_t& sum);
    // Sum and number of the pixels strictly inside (lower, upper).
    static void bandSum(const uint16_t* p, int width, uint16_t lower, uint16_t upper, uint64_t& sum,
                        uint32_t& count);
};

} // namespace norda::vision
