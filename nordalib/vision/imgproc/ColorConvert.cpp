#include "nordalib/vision/imgproc/ColorConvert.h"

#include "nordalib/core/exception/Exception.h"
#include "nordalib/core/utils/VectorDispatch.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdint>

// The vector kernel below is compiled once per instruction set: foreach_target.h includes this
// file again for each; the parts outside HWY_NAMESPACE are guarded to appear once.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "nordalib/vision/imgproc/ColorConvert.cpp"
#include <hwy/foreach_target.h> // must precede highway.h
#include <hwy/highway.h>

#ifndef NORDA_COLOR_CONVERT_CONSTANTS
#define NORDA_COLOR_CONVERT_CONSTANTS
namespace norda::vision {
namespace {
// BT.601 video range in 16-bit fixed point, so that a vector lane holds a pixel's whole sum:
// products keep their high 16 bits (multiply-high), sums saturate at 16 bits, and the result
// carries six fraction bits that are rounded away at the end. The plain loop performs exactly the
// same steps, so every path gives identical bytes.
constexpr int kY = 19071;      // 1.164 * 2^14, applied to (Y - 16) * 2^8 -> Q6
constexpr int kVR = 26149;     // 1.596 * 2^14, applied to (V - 128) * 2^8 -> Q6
constexpr int kVG = -13320;    // -0.813
constexpr int kUG = -6406;     // -0.391
constexpr int kUBRest = 16679; // 2.018 - 1 (the 1 is added as a shift)
} // namespace
} // namespace norda::vision
#endif

HWY_BEFORE_NAMESPACE();
namespace norda::vision {
namespace {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

#if HWY_TARGET != HWY_SCALAR // one pair a vector gains nothing over the plain loop
// DU: 16-bit lanes of any width; DI its signed twin.
template <class DU> using VU = hn::Vec<DU>;
template <class DU> using VI = hn::Vec<hn::RebindToSigned<DU>>;

// (U - 128) << 8 and (V - 128) << 8 of a pair -> the chroma terms of R, G and B in Q6.
template <class DU> HWY_INLINE void chroma(VI<DU> us, VI<DU> vs, VI<DU>& r, VI<DU>& g, VI<DU>& b) {
    const hn::RebindToSigned<DU> di;
    r = hn::MulHigh(vs, hn::Set(di, kVR));
    g = hn::SaturatedAdd(hn::MulHigh(vs, hn::Set(di, kVG)), hn::MulHigh(us, hn::Set(di, kUG)));
    b = hn::SaturatedAdd(hn::ShiftRight<2>(us), hn::MulHigh(us, hn::Set(di, kUBRest)));
}

// A byte in the low half of each lane -> (byte - 128) << 8.
template <class DU> HWY_INLINE VI<DU> centred(DU du, VU<DU> lowByte) {
    return hn::BitCast(hn::RebindToSigned<DU>(), hn::Xor(hn::ShiftLeft<8>(lowByte), hn::Set(du, 0x8000)));
}

// Y in the high half of each lane -> 1.164 (Y - 16) in Q6 (Y below 16 is black), plus the 32 that
// rounds the final shift (the sums never reach the 16-bit limit before, so adding it first is
// the same).
template <class DU> HWY_INLINE VI<DU> luma(DU du, VU<DU> highByte) {
    const hn::RebindToSigned<DU> di;
    const VU<DU> y = hn::SaturatedSub(hn::ShiftRight<8>(highByte), hn::Set(du, 16));
    return hn::Add(hn::BitCast(di, hn::MulHigh(hn::ShiftLeft<8>(y), hn::Set(du, kY))), hn::Set(di, 32));
}

// (a + b + 1) / 2 per byte. Highway 1.0's version for SVE without SVE2 adds in eight bits and
// wraps; there the mean is taken without the carry.
template <class V> HWY_INLINE V roundedMean(V a, V b) {
#if HWY_TARGET == HWY_SVE || HWY_TARGET == HWY_SVE_256
    return hn::Sub(hn::Or(a, b), hn::ShiftRight<1>(hn::Xor(a, b)));
#else
    return hn::AverageRound(a, b);
#endif
}

// Rounded Q6 sums of the even and the odd pixel -> their bytes, the even one in the low byte of
// each lane: in memory that is pixel order.
template <class DU> HWY_INLINE hn::Vec<hn::Repartition<uint8_t, DU>> join(DU du, VI<DU> even, VI<DU> odd) {
    const hn::RebindToSigned<DU> di;
    auto toByte = [&](VI<DU> q6) {
        return hn::BitCast(du, hn::Min(hn::Max(hn::ShiftRight<6>(q6), hn::Zero(di)), hn::Set(di, 255)));
    };
    return hn::BitCast(hn::Repartition<uint8_t, DU>(), hn::Or(toByte(even), hn::ShiftLeft<8>(toByte(odd))));
}

// The plain loop's steps, one pair per 16-bit lane: one de-interleaving load splits the pairs into
// their U|Y0 and V|Y1 halves. Returns the number of pairs done, a whole number of vectors.
template <bool Bgr, bool Interpolate, class DU>
size_t convertRow(DU du, const uint8_t* s, uint8_t* d, size_t pairs) {
    const hn::Repartition<uint8_t, DU> d8;
    const size_t n = hn::Lanes(du);
    if (reinterpret_cast<uintptr_t>(s) % alignof(uint16_t) != 0)
        return 0; // a frame wrapped around odd memory: the 16-bit loads need even addresses
    const uint16_t* s16 = reinterpret_cast<const uint16_t*>(s);
    // The interpolating path also reads the pair after the block.
    const size_t end = Interpolate ? (pairs > 0 ? pairs - 1 : 0) : pairs;
    size_t k = 0;
    for (; k + n <= end; k += n) {
        VU<DU> uy, vy;
        hn::LoadInterleaved2(du, s16 + 2 * k, uy, vy);
        const VI<DU> y0 = luma(du, uy), y1 = luma(du, vy);
        VI<DU> cr, cg, cb;
        chroma<DU>(centred(du, uy), centred(du, vy), cr, cg, cb);
        VI<DU> dr = cr, dg = cg, db = cb; // the odd pixels' chroma
        if constexpr (Interpolate) {
            // Byte means of this block and the one a pair further: U and V of the means come
            // apart as U and V did, Y's means are dropped by the shift in centred().
            const uint16_t* p = s16 + 2 * k;
            const auto mean = [&](size_t at) {
                return hn::BitCast(du, roundedMean(hn::BitCast(d8, hn::LoadU(du, p + at)),
                                                   hn::BitCast(d8, hn::LoadU(du, p + at + 2))));
            };
            const VU<DU> lo = mean(0), hi = mean(n);
            chroma<DU>(centred(du, hn::ConcatEven(du, hi, lo)), centred(du, hn::ConcatOdd(du, hi, lo)), dr,
                       dg, db);
        }
        const auto r = join(du, hn::SaturatedAdd(y0, cr), hn::SaturatedAdd(y1, dr));
        const auto g = join(du, hn::SaturatedAdd(y0, cg), hn::SaturatedAdd(y1, dg));
        const auto b = join(du, hn::SaturatedAdd(y0, cb), hn::SaturatedAdd(y1, db));
        if constexpr (Bgr)
            hn::StoreInterleaved3(b, g, r, d8, d + 6 * k);
        else
            hn::StoreInterleaved3(r, g, b, d8, d + 6 * k);
    }
    return k;
}
#endif

template <bool Bgr, bool Interpolate> size_t convertRow(const uint8_t* s, uint8_t* d, size_t pairs) {
#if HWY_TARGET == HWY_SCALAR
    (void)s, (void)d, (void)pairs;
    return 0;
#elif HWY_TARGET == HWY_AVX3
    // The interpolating kernel runs faster on 256-bit vectors here (measured).
    if constexpr (Interpolate)
        return convertRow<Bgr, Interpolate>(hn::CappedTag<uint16_t, 16>(), s, d, pairs);
    else
        return convertRow<Bgr, Interpolate>(hn::ScalableTag<uint16_t>(), s, d, pairs);
#else
    return convertRow<Bgr, Interpolate>(hn::ScalableTag<uint16_t>(), s, d, pairs);
#endif
}

size_t convertRgb(const uint8_t* s, uint8_t* d, size_t pairs) {
    return convertRow<false, false>(s, d, pairs);
}
size_t convertBgr(const uint8_t* s, uint8_t* d, size_t pairs) {
    return convertRow<true, false>(s, d, pairs);
}
size_t convertCosited(const uint8_t* s, uint8_t* d, size_t pairs) {
    return convertRow<false, true>(s, d, pairs);
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
HWY_EXPORT(convertRgb);
HWY_EXPORT(convertBgr);
HWY_EXPORT(convertCosited);
HWY_EXPORT(targetName);
[[maybe_unused]] const bool kRegistered =
    utils::VectorDispatch::registerKernel("ColorConvert", [] { return HWY_DYNAMIC_DISPATCH(targetName)(); });

inline int sat16(int v) {
    return std::clamp(v, -32768, 32767);
}
inline int mulHiS(int a, int b) {
    return (a * b) >> 16;
}
inline int mulHiU(unsigned a, unsigned b) {
    return int((a * b) >> 16);
}
inline uint8_t toByte(int q6) {
    return uint8_t(std::clamp(sat16(q6 + 32) >> 6, 0, 255));
}

struct Chroma {
    int r, g, b;
};

inline Chroma chroma(int u8, int v8) {
    const int u = (u8 - 128) * 256, v = (v8 - 128) * 256;
    return {mulHiS(v, kVR), sat16(mulHiS(v, kVG) + mulHiS(u, kUG)),
            sat16((u8 - 128) * 64 + mulHiS(u, kUBRest))};
}

template <bool Bgr> inline void store(uint8_t* d, int y8, const Chroma& c) {
    const int y = mulHiU(unsigned(std::max(0, y8 - 16)) << 8, kY);
    const uint8_t r = toByte(sat16(y + c.r));
    const uint8_t g = toByte(sat16(y + c.g));
    const uint8_t b = toByte(sat16(y + c.b));
    d[0] = Bgr ? b : r;
    d[1] = g;
    d[2] = Bgr ? r : b;
}

// One row; Interpolate gives odd pixels the mean chroma of the neighbouring pairs. The vector
// kernel does the bulk, the plain loop the rest (and whole rows of narrow images).
template <bool Bgr, bool Interpolate> void convertRow(const uint8_t* s, uint8_t* d, int pairs) {
    const size_t n = static_cast<size_t>(pairs);
    utils::VectorDispatch::run(
        [&] {
            if constexpr (Interpolate)
                return HWY_DYNAMIC_DISPATCH(convertCosited)(s, d, n);
            else if constexpr (Bgr)
                return HWY_DYNAMIC_DISPATCH(convertBgr)(s, d, n);
            else
                return HWY_DYNAMIC_DISPATCH(convertRgb)(s, d, n);
        },
        [&](size_t first) {
            int k = static_cast<int>(first);
            s += 4 * k;
            d += 6 * k;
            for (; k < pairs; ++k, s += 4, d += 6) {
                const Chroma c = chroma(s[0], s[2]);
                store<Bgr>(d, s[1], c);
                if constexpr (Interpolate) {
                    const uint8_t* next = k + 1 < pairs ? s + 4 : s;
                    store<Bgr>(d + 3, s[3], chroma((s[0] + next[0] + 1) >> 1, (s[2] + next[2] + 1) >> 1));
                } else {
                    store<Bgr>(d + 3, s[3], c);
                }
            }
        });
}

template <bool Bgr, bool Interpolate>
void convert(const cv::Mat& source, cv::Mat_<cv::Vec3b>& target, const char* function) {
    if ((source.flags & 0xFFF) != CV_8UC2)
        NORDA_THROW(fmt::format("YUV 4:2:2 source must be CV_8UC2, not type {}", source.type()), function);
    if (source.cols % 2 != 0)
        NORDA_THROW(fmt::format("YUV 4:2:2 source width must be even, not {}", source.cols), function);
    target.create(source.rows, source.cols);
    const int pairs = source.cols / 2;
    // Stripes of rows keep each worker on contiguous memory; tiny images run inline.
    const double stripes = std::max(1.0, std::min(double(source.rows), double(source.total()) / 65536.0));
    cv::parallel_for_(
        cv::Range(0, source.rows),
        [&](const cv::Range& rows) {
            for (int r = rows.start; r < rows.end; ++r)
                convertRow<Bgr, Interpolate>(source.ptr<uint8_t>(r), target.ptr<uint8_t>(r), pairs);
        },
        stripes);
}

} // namespace

void ColorConvert::convertUY1VY0ToRGB(const cv::Mat& source, cv::Mat_<cv::Vec3b>& target) {
    convert<false, false>(source, target, "norda::vision::ColorConvert::convertUY1VY0ToRGB");
}

void ColorConvert::convertUY1VY0ToBGR(const cv::Mat& source, cv::Mat_<cv::Vec3b>& target) {
    convert<true, false>(source, target, "norda::vision::ColorConvert::convertUY1VY0ToBGR");
}

void ColorConvert::convertUYVYToRGB(const cv::Mat& source, cv::Mat_<cv::Vec3b>& target) {
    convert<false, true>(source, target, "norda::vision::ColorConvert::convertUYVYToRGB");
}

} // namespace norda::vision
#endif
