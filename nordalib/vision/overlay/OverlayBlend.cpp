#include "nordalib/vision/overlay/OverlayBlend.h"

#include "nordalib/core/utils/VectorDispatch.h"

#include <cstring>

// The vector kernel is compiled once per instruction set (see ColorConvert.cpp).
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "nordalib/vision/overlay/OverlayBlend.cpp"
#include <hwy/foreach_target.h> // must precede highway.h
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace norda::vision {
namespace {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

// A vector of pixels at a time, channels apart in 16-bit lanes (255 * 255 fits); x / 255 as
// (x + 1 + (x >> 8)) >> 8, exact up to 255 * 255. Returns the number of pixels done, a whole
// number of vectors.
size_t blendRow(const uint8_t* over, uint8_t* under, size_t pixels, uint8_t* clear) {
#if HWY_TARGET == HWY_SCALAR
    (void)over, (void)under, (void)pixels, (void)clear;
    return 0; // one pixel a vector is the plain loop
#else
    const hn::ScalableTag<uint16_t> d16;
    const hn::Rebind<uint8_t, decltype(d16)> d8;
    const hn::Rebind<int16_t, decltype(d16)> di; // DemoteTo takes signed lanes; 255 at most here
    const size_t lanes = hn::Lanes(d16);
    const auto full = hn::Set(d16, 255), one = hn::Set(d16, 1);
    const auto none = hn::Zero(d8);
    size_t i = 0;
    for (; i + lanes <= pixels; i += lanes) {
        hn::Vec<decltype(d8)> b, g, r, a;
        hn::LoadInterleaved4(d8, over + 4 * i, b, g, r, a);
        if (hn::AllTrue(d8, hn::Eq(hn::Or(hn::Or(b, g), hn::Or(r, a)), none)))
            continue;
        hn::Vec<decltype(d8)> ur, ug, ub;
        hn::LoadInterleaved3(d8, under + 3 * i, ur, ug, ub);
        const auto a16 = hn::PromoteTo(d16, a), rest = hn::Sub(full, a16);
        auto mix = [&](auto o, auto u) {
            const auto x = hn::Add(hn::Mul(hn::PromoteTo(d16, o), a16), hn::Mul(hn::PromoteTo(d16, u), rest));
            return hn::DemoteTo(
                d8, hn::BitCast(di, hn::ShiftRight<8>(hn::Add(hn::Add(x, one), hn::ShiftRight<8>(x)))));
        };
        hn::StoreInterleaved3(mix(r, ur), mix(g, ug), mix(b, ub), d8, under + 3 * i);
        if (clear)
            std::memset(clear + 4 * i, 0, 4 * lanes);
    }
    return i;
#endif
}

const char* targetName() {
    return hwy::TargetName(HWY_TARGET);
}

} // namespace HWY_NAMESPACE
} // namespace
} // namespace norda::vision
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace norda::vision {

namespace {
HWY_EXPORT(blendRow);
HWY_EXPORT(targetName);
[[maybe_unused]] const bool kRegistered =
    utils::VectorDispatch::registerKernel("OverlayBlend", [] { return HWY_DYNAMIC_DISPATCH(targetName)(); });

inline unsigned divide255(unsigned x) {
    return (x + 1 + (x >> 8)) >> 8;
}

// Whether eight canvas pixels are all clear (zero bytes: a pixel of alpha 0 with colour left over
// is blended, to no effect, and cleared like the others).
inline bool clear8(const uint8_t* bgra) {
    uint64_t w0, w1, w2, w3; // two pixels each
    std::memcpy(&w0, bgra, 8);
    std::memcpy(&w1, bgra + 8, 8);
    std::memcpy(&w2, bgra + 16, 8);
    std::memcpy(&w3, bgra + 24, 8);
    return (w0 | w1 | w2 | w3) == 0;
}

void blendPixel(const uint8_t* over, uint8_t* under) {
    const unsigned a = over[3];
    for (int c = 0; c < 3; ++c)
        under[c] = static_cast<uint8_t>(divide255(over[2 - c] * a + under[c] * (255 - a)));
}

// The plain loop from pixel `first` on, eight pixels at a time where they are all clear.
void blendRow(const uint8_t* over, uint8_t* under, size_t first, size_t pixels, uint8_t* clear) {
    size_t x = first;
    for (; x + 8 <= pixels; x += 8) {
        if (clear8(over + 4 * x))
            continue;
        for (size_t i = x; i < x + 8; ++i)
            blendPixel(over + 4 * i, under + 3 * i);
        if (clear)
            std::memset(clear + 4 * x, 0, 32);
    }
    const size_t tail = x;
    for (; x < pixels; ++x)
        blendPixel(over + 4 * x, under + 3 * x);
    if (clear)
        std::memset(clear + 4 * tail, 0, 4 * (pixels - tail));
}
} // namespace

void OverlayBlend::row(const uint8_t* bgra, uint8_t* rgb, size_t pixels, uint8_t* clear) {
    utils::VectorDispatch::run([&] { return HWY_DYNAMIC_DISPATCH(blendRow)(bgra, rgb, pixels, clear); },
                               [&](size_t done) { blendRow(bgra, rgb, done, pixels, clear); });
}

} // namespace norda::vision
#endif
