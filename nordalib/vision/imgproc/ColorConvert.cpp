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
using DU = hn::ScalableTag<uint16_t>;
using DI = hn::RebindToSigned<DU>;
using VU = hn::Vec<DU>;
using VI = hn::Vec<DI>;

// A pair's U and V -> the chroma terms of R, G and B in Q6.
HWY_INLINE void chroma(VU u, VU v, VI& r, VI& g, VI& b) {
    const DI di;
    const VI uc = hn::Sub(hn::BitCast(di, u), hn::Set(di, 128));
    const VI vc = hn::Sub(hn::BitCast(di, v), hn::Set(di, 128));
    const VI us = hn::ShiftLeft<8>(uc), vs = hn::ShiftLeft<8>(vc);
    r = hn::MulHigh(vs, hn::Set(di, kVR));
    g = hn::SaturatedAdd(hn::MulHigh(vs, hn::Set(di, kVG)), hn::MulHigh(us, hn::Set(di, kUG)));
    b = hn::SaturatedAdd(hn::ShiftLeft<6>(uc), hn::MulHigh(us, hn::Set(di, kUBRest)));
}

// Y -> 1.164 (Y - 16) in Q6 (Y below 16 is black).
HWY_INLINE VI luma(VU y) {
    const DU du;
    return hn::BitCast(DI(),
                       hn::MulHigh(hn::ShiftLeft<8>(hn::SaturatedSub(y, hn::Set(du, 16))), hn::Set(du, kY)));
}

// Q6 sums of the even and the odd pixel -> their bytes, the even one in the low byte of each lane:
// in memory that is pixel order.
HWY_INLINE hn::Vec<hn::Repartition<uint8_t, DU>> join(VI even, VI odd) {
    const DI di;
    const DU du;
    auto toByte = [&](VI q6) {
        const VI v = hn::ShiftRight<6>(hn::SaturatedAdd(q6, hn::Set(di, 32)));
        return hn::BitCast(du, hn::Min(hn::Max(v, hn::Zero(di)), hn::Set(di, 255)));
    };
    return hn::BitCast(hn::Repartition<uint8_t, DU>(), hn::Or(toByte(even), hn::ShiftLeft<8>(toByte(odd))));
}

#endif

// The plain loop's steps, one pair per 16-bit lane: one de-interleaving load splits the pairs into
// their U|Y0 and V|Y1 halves. Returns the number of pairs done, a whole number of vectors.
template <bool Bgr, bool Interpolate> size_t convertRow(const uint8_t* s, uint8_t* d, size_t pairs) {
#if HWY_TARGET == HWY_SCALAR
    (void)s, (void)d, (void)pairs;
    return 0;
#else
    const DU du;
    const hn::Repartition<uint8_t, DU> d8;
    const size_t n = hn::Lanes(du);
    const VU low = hn::Set(du, 0xFF);
    const uint16_t* s16 = reinterpret_cast<const uint16_t*>(s); // pairs are 4 bytes, rows start even
    // The interpolating path also reads the pair after the block.
    const size_t end = Interpolate ? (pairs > 0 ? pairs - 1 : 0) : pairs;
    size_t k = 0;
    for (; k + n <= end; k += n) {
        VU uy, vy;
        hn::LoadInterleaved2(du, s16 + 2 * k, uy, vy);
        const VU u = hn::And(uy, low), v = hn::And(vy, low);
        const VI y0 = luma(hn::ShiftRight<8>(uy)), y1 = luma(hn::ShiftRight<8>(vy));
        VI cr, cg, cb;
        chroma(u, v, cr, cg, cb);
        VI dr = cr, dg = cg, db = cb; // the odd pixels' chroma
        if constexpr (Interpolate) {
            VU un, vn;
            hn::LoadInterleaved2(du, s16 + 2 * k + 2, un, vn);
            chroma(hn::AverageRound(u, hn::And(un, low)), hn::AverageRound(v, hn::And(vn, low)), dr, dg, db);
        }
        const auto r = join(hn::SaturatedAdd(y0, cr), hn::SaturatedAdd(y1, dr));
        const auto g = join(hn::SaturatedAdd(y0, cg), hn::SaturatedAdd(y1, dg));
        const auto b = join(hn::SaturatedAdd(y0, cb), hn::SaturatedAdd(y1, db));
        if constexpr (Bgr)
            hn::StoreInterleaved3(b, g, r, d8, d + 6 * k);
        else
            hn::StoreInterleaved3(r, g, b, d8, d + 6 * k);
    }
    return k;
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
    int k = 0;
    if (!utils::VectorDispatch::plain()) {
        const size_t n = static_cast<size_t>(pairs);
        if constexpr (Interpolate)
            k = static_cast<int>(HWY_DYNAMIC_DISPATCH(convertCosited)(s, d, n));
        else if constexpr (Bgr)
            k = static_cast<int>(HWY_DYNAMIC_DISPATCH(convertBgr)(s, d, n));
        else
            k = static_cast<int>(HWY_DYNAMIC_DISPATCH(convertRgb)(s, d, n));
        s += 4 * k;
        d += 6 * k;
    }
    for (; k < pairs; ++k, s += 4, d += 6) {
        const Chroma c = chroma(s[0], s[2]);
        store<Bgr>(d, s[1], c);
        if constexpr (Interpolate) {
            const uint8_t* n = k + 1 < pairs ? s + 4 : s;
            store<Bgr>(d + 3, s[3], chroma((s[0] + n[0] + 1) >> 1, (s[2] + n[2] + 1) >> 1));
        } else {
            store<Bgr>(d + 3, s[3], c);
        }
    }
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
