#include "nordalib/vision/imgproc/ColorConvert.h"

#include "nordalib/core/exception/Exception.h"

#include <fmt/format.h>
#include <opencv2/core/hal/intrin.hpp>

#if defined(__GNUC__) && (defined(__x86_64__) || defined(__i386__))
#include <immintrin.h>
#endif

#include <algorithm>
#include <cstdint>

namespace norda::vision {

namespace {

// BT.601 video range in 16-bit fixed point, so that eight pixels fit one 128-bit register:
// products keep their high 16 bits (multiply-high), sums saturate at 16 bits, and the result
// carries six fraction bits that are rounded away at the end. The plain loop below performs
// exactly the same steps, so both paths give identical bytes.
constexpr int kY = 19071;      // 1.164 * 2^14, applied to (Y - 16) * 2^8 -> Q6
constexpr int kVR = 26149;     // 1.596 * 2^14, applied to (V - 128) * 2^8 -> Q6
constexpr int kVG = -13320;    // -0.813
constexpr int kUG = -6406;     // -0.391
constexpr int kUBRest = 16679; // 2.018 - 1 (the 1 is added as a shift)

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

#if CV_SIMD128
struct ChromaV {
    cv::v_int16x8 r[2], g[2], b[2];
};

inline ChromaV chromaV(const cv::v_uint8x16& u8, const cv::v_uint8x16& v8) {
    cv::v_uint16x8 uw[2], vw[2];
    cv::v_expand(u8, uw[0], uw[1]);
    cv::v_expand(v8, vw[0], vw[1]);
    const cv::v_int16x8 c128 = cv::v_setall_s16(128);
    ChromaV c;
    for (int i = 0; i < 2; ++i) {
        const cv::v_int16x8 uc = cv::v_reinterpret_as_s16(uw[i]) - c128;
        const cv::v_int16x8 vc = cv::v_reinterpret_as_s16(vw[i]) - c128;
        const cv::v_int16x8 u = cv::v_shl<8>(uc), v = cv::v_shl<8>(vc);
        c.r[i] = cv::v_mul_hi(v, cv::v_setall_s16(kVR));
        c.g[i] = cv::v_mul_hi(v, cv::v_setall_s16(kVG)) + cv::v_mul_hi(u, cv::v_setall_s16(kUG));
        c.b[i] = cv::v_shl<6>(uc) + cv::v_mul_hi(u, cv::v_setall_s16(kUBRest));
    }
    return c;
}

inline void lumaV(const cv::v_uint8x16& y8, const ChromaV& c, cv::v_uint8x16& r, cv::v_uint8x16& g,
                  cv::v_uint8x16& b) {
    cv::v_uint16x8 yw[2];
    cv::v_expand(y8 - cv::v_setall_u8(16), yw[0], yw[1]); // saturating: Y below 16 is black
    cv::v_int16x8 y[2];
    for (int i = 0; i < 2; ++i)
        y[i] = cv::v_reinterpret_as_s16(cv::v_mul_hi(cv::v_shl<8>(yw[i]), cv::v_setall_u16(kY)));
    r = cv::v_rshr_pack_u<6>(y[0] + c.r[0], y[1] + c.r[1]);
    g = cv::v_rshr_pack_u<6>(y[0] + c.g[0], y[1] + c.g[1]);
    b = cv::v_rshr_pack_u<6>(y[0] + c.b[0], y[1] + c.b[1]);
}

// (a + b + 1) / 2 per byte, as the plain loop computes it.
inline cv::v_uint8x16 roundedMean(const cv::v_uint8x16& a, const cv::v_uint8x16& b) {
    cv::v_uint16x8 al, ah, bl, bh;
    cv::v_expand(a, al, ah);
    cv::v_expand(b, bl, bh);
    return cv::v_rshr_pack<1>(al + bl, ah + bh);
}

// 16 pairs (32 pixels) per step; returns the number of pairs done.
template <bool Bgr, bool Interpolate> int convertRowSimd(const uint8_t* s, uint8_t* d, int pairs) {
    int k = 0;
    // The interpolating path also reads the pair after the block.
    const int end = Interpolate ? pairs - 1 : pairs;
    for (; k + 16 <= end; k += 16, s += 64, d += 96) {
        cv::v_uint8x16 u, y0, v, y1;
        cv::v_load_deinterleave(s, u, y0, v, y1);
        const ChromaV even = chromaV(u, v);
        cv::v_uint8x16 r0, g0, b0, r1, g1, b1;
        lumaV(y0, even, r0, g0, b0);
        if constexpr (Interpolate) {
            cv::v_uint8x16 un, yn0, vn, yn1;
            cv::v_load_deinterleave(s + 4, un, yn0, vn, yn1);
            lumaV(y1, chromaV(roundedMean(u, un), roundedMean(v, vn)), r1, g1, b1);
        } else {
            lumaV(y1, even, r1, g1, b1);
        }
        cv::v_uint8x16 rl, rh, gl, gh, bl, bh;
        cv::v_zip(r0, r1, rl, rh);
        cv::v_zip(g0, g1, gl, gh);
        cv::v_zip(b0, b1, bl, bh);
        if constexpr (Bgr) {
            cv::v_store_interleave(d, bl, gl, rl);
            cv::v_store_interleave(d + 48, bh, gh, rh);
        } else {
            cv::v_store_interleave(d, rl, gl, bl);
            cv::v_store_interleave(d + 48, rh, gh, bh);
        }
    }
    return k;
}
#endif

#if defined(__GNUC__) && (defined(__x86_64__) || defined(__i386__))
#define NORDA_COLOR_AVX2 1
// The same steps on 256-bit registers, chosen at run time on processors with AVX2. Each 128-bit
// half works on its own block of 16 pairs, so every shuffle stays inside its half.
namespace avx2 {

#define NORDA_AVX2 __attribute__((target("avx2")))

NORDA_AVX2 inline __m256i load2(const uint8_t* low, const uint8_t* high) {
    return _mm256_inserti128_si256(
        _mm256_castsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i*>(low))),
        _mm_loadu_si128(reinterpret_cast<const __m128i*>(high)), 1);
}

// U, Y0, V, Y1 of 16 pairs per half (pairs 0-15 from s, 16-31 from s + 64).
NORDA_AVX2 inline void deinterleave(const uint8_t* s, __m256i& u, __m256i& y0, __m256i& v, __m256i& y1) {
    const __m256i gather = _mm256_setr_epi8(0, 4, 8, 12, 1, 5, 9, 13, 2, 6, 10, 14, 3, 7, 11, 15, 0, 4, 8, 12,
                                            1, 5, 9, 13, 2, 6, 10, 14, 3, 7, 11, 15);
    __m256i c[4];
    for (int i = 0; i < 4; ++i)
        c[i] = _mm256_shuffle_epi8(load2(s + 16 * i, s + 64 + 16 * i), gather);
    const __m256i t0 = _mm256_unpacklo_epi32(c[0], c[1]), t1 = _mm256_unpacklo_epi32(c[2], c[3]);
    const __m256i t2 = _mm256_unpackhi_epi32(c[0], c[1]), t3 = _mm256_unpackhi_epi32(c[2], c[3]);
    u = _mm256_unpacklo_epi64(t0, t1);
    y0 = _mm256_unpackhi_epi64(t0, t1);
    v = _mm256_unpacklo_epi64(t2, t3);
    y1 = _mm256_unpackhi_epi64(t2, t3);
}

struct ChromaA {
    __m256i r[2], g[2], b[2];
};

NORDA_AVX2 inline ChromaA chroma(__m256i u8, __m256i v8) {
    const __m256i zero = _mm256_setzero_si256(), c128 = _mm256_set1_epi16(128);
    const __m256i uw[2] = {_mm256_unpacklo_epi8(u8, zero), _mm256_unpackhi_epi8(u8, zero)};
    const __m256i vw[2] = {_mm256_unpacklo_epi8(v8, zero), _mm256_unpackhi_epi8(v8, zero)};
    ChromaA c;
    for (int i = 0; i < 2; ++i) {
        const __m256i uc = _mm256_sub_epi16(uw[i], c128), vc = _mm256_sub_epi16(vw[i], c128);
        const __m256i u = _mm256_slli_epi16(uc, 8), v = _mm256_slli_epi16(vc, 8);
        c.r[i] = _mm256_mulhi_epi16(v, _mm256_set1_epi16(kVR));
        c.g[i] = _mm256_adds_epi16(_mm256_mulhi_epi16(v, _mm256_set1_epi16(kVG)),
                                   _mm256_mulhi_epi16(u, _mm256_set1_epi16(kUG)));
        c.b[i] =
            _mm256_adds_epi16(_mm256_slli_epi16(uc, 6), _mm256_mulhi_epi16(u, _mm256_set1_epi16(kUBRest)));
    }
    return c;
}

NORDA_AVX2 inline __m256i toBytes(__m256i lo, __m256i hi) {
    const __m256i half = _mm256_set1_epi16(32);
    return _mm256_packus_epi16(_mm256_srai_epi16(_mm256_adds_epi16(lo, half), 6),
                               _mm256_srai_epi16(_mm256_adds_epi16(hi, half), 6));
}

NORDA_AVX2 inline void luma(__m256i y8, const ChromaA& c, __m256i& r, __m256i& g, __m256i& b) {
    const __m256i zero = _mm256_setzero_si256(), cy = _mm256_set1_epi16(short(kY));
    const __m256i ys = _mm256_subs_epu8(y8, _mm256_set1_epi8(16));
    const __m256i y[2] = {_mm256_mulhi_epu16(_mm256_slli_epi16(_mm256_unpacklo_epi8(ys, zero), 8), cy),
                          _mm256_mulhi_epu16(_mm256_slli_epi16(_mm256_unpackhi_epi8(ys, zero), 8), cy)};
    r = toBytes(_mm256_adds_epi16(y[0], c.r[0]), _mm256_adds_epi16(y[1], c.r[1]));
    g = toBytes(_mm256_adds_epi16(y[0], c.g[0]), _mm256_adds_epi16(y[1], c.g[1]));
    b = toBytes(_mm256_adds_epi16(y[0], c.b[0]), _mm256_adds_epi16(y[1], c.b[1]));
}

// 16 pixels per half as planes -> 48 interleaved bytes per half: low half to `low`, high to `high`.
NORDA_AVX2 inline void storeInterleaved(uint8_t* low, uint8_t* high, __m256i c0, __m256i c1, __m256i c2) {
    alignas(32) static const struct Masks {
        uint8_t m[3][3][32];
        Masks() {
            for (int part = 0; part < 3; ++part)
                for (int channel = 0; channel < 3; ++channel)
                    for (int i = 0; i < 32; ++i) {
                        const int j = part * 16 + (i & 15);
                        m[part][channel][i] = j % 3 == channel ? uint8_t(j / 3) : 0x80;
                    }
        }
    } masks;
    for (int part = 0; part < 3; ++part) {
        const __m256i* m = reinterpret_cast<const __m256i*>(masks.m[part]);
        const __m256i out =
            _mm256_or_si256(_mm256_or_si256(_mm256_shuffle_epi8(c0, _mm256_load_si256(m)),
                                            _mm256_shuffle_epi8(c1, _mm256_load_si256(m + 1))),
                            _mm256_shuffle_epi8(c2, _mm256_load_si256(m + 2)));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(low + 16 * part), _mm256_castsi256_si128(out));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(high + 16 * part), _mm256_extracti128_si256(out, 1));
    }
}

// 32 pairs (64 pixels) per step; returns the number of pairs done.
template <bool Bgr, bool Interpolate> NORDA_AVX2 int convertRow(const uint8_t* s, uint8_t* d, int pairs) {
    int k = 0;
    const int end = Interpolate ? pairs - 1 : pairs;
    for (; k + 32 <= end; k += 32, s += 128, d += 192) {
        __m256i u, y0, v, y1;
        deinterleave(s, u, y0, v, y1);
        const ChromaA even = chroma(u, v);
        __m256i r0, g0, b0, r1, g1, b1;
        luma(y0, even, r0, g0, b0);
        if constexpr (Interpolate) {
            __m256i un, yn0, vn, yn1;
            deinterleave(s + 4, un, yn0, vn, yn1);
            luma(y1, chroma(_mm256_avg_epu8(u, un), _mm256_avg_epu8(v, vn)), r1, g1, b1);
        } else {
            luma(y1, even, r1, g1, b1);
        }
        // Pixels 0-15 | 32-47 and 16-31 | 48-63.
        const __m256i rl = _mm256_unpacklo_epi8(r0, r1), rh = _mm256_unpackhi_epi8(r0, r1);
        const __m256i gl = _mm256_unpacklo_epi8(g0, g1), gh = _mm256_unpackhi_epi8(g0, g1);
        const __m256i bl = _mm256_unpacklo_epi8(b0, b1), bh = _mm256_unpackhi_epi8(b0, b1);
        if constexpr (Bgr) {
            storeInterleaved(d, d + 96, bl, gl, rl);
            storeInterleaved(d + 48, d + 144, bh, gh, rh);
        } else {
            storeInterleaved(d, d + 96, rl, gl, bl);
            storeInterleaved(d + 48, d + 144, rh, gh, bh);
        }
    }
    return k;
}

#undef NORDA_AVX2
} // namespace avx2

const bool kHaveAvx2 = __builtin_cpu_supports("avx2");
#endif

// One row; Interpolate gives odd pixels the mean chroma of the neighbouring pairs. The vector
// path does the bulk, the plain loop the rest (and whole rows of narrow images).
template <bool Bgr, bool Interpolate> void convertRow(const uint8_t* s, uint8_t* d, int pairs) {
    int k = 0;
#ifdef NORDA_COLOR_AVX2
    if (kHaveAvx2) {
        k = avx2::convertRow<Bgr, Interpolate>(s, d, pairs);
        s += 4 * k;
        d += 6 * k;
    }
#endif
#if CV_SIMD128
    const int done = convertRowSimd<Bgr, Interpolate>(s, d, pairs - k);
    k += done;
    s += 4 * done;
    d += 6 * done;
#endif
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
