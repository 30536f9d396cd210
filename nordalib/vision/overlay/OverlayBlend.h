#pragma once
// OverlayBlend: a row of an overlay canvas (B, G, R, A in memory) laid over a row of an RGB picture
// (R, G, B) by the canvas's alpha, in place and exactly:
//   rgb = (over * a + rgb * (255 - a)) / 255 in every byte
// (alpha 0 leaves the picture, 255 puts the canvas). Most of an overlay is clear (zero bytes), so
// clear runs are skipped; the rest runs through a vector kernel of the widest vectors the processor has (see
// VectorDispatch.h) and the plain loop; both give identical bytes.

#include <cstddef>
#include <cstdint>

namespace norda::vision {

class OverlayBlend {
public:
    // One row of `pixels`. With `clear` (the canvas row itself), the canvas row is left all zero.
    static void row(const uint8_t* bgra, uint8_t* rgb, size_t pixels, uint8_t* clear = nullptr);
};

} // namespace norda::vision
