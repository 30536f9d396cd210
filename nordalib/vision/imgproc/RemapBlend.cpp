#include "nordalib/vision/imgproc/RemapBlend.h"

#include "nordalib/core/exception/Exception.h"
#include "nordalib/core/utils/VectorDispatch.h"

#include <algorithm>
#include <cmath>

// The vector kernel is compiled once per instruction set (see ColorConvert.cpp).
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "nordalib/vision/imgproc/RemapBlend.cpp"
#include <hwy/foreach_target.h> // must precede highway.h
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace norda::vision {
namespace {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

// One output pixel per 32-bit lane. A gather of 64 bits at a pixel fetches it and its right
// neighbour (bytes 0-2 and 3-5), one more a buffer row further the pair below; the low and high
// words of each gather come apart into two vectors of 32-bit lanes, from which each channel's
// pair is shifted out. The plain loop's integer steps follow, lane by lane. Returns the number of
// pixels done, a whole number of vectors.
size_t blendRun(const int32_t* HWY_RESTRICT off, const uint32_t* HWY_RESTRICT frac, const uint8_t* src,
                size_t stride, const uint8_t* base, uint8_t* out, size_t n, int32_t a) {
#if HWY_TARGET == HWY_SCALAR
    (void)off, (void)frac, (void)src, (void)stride, (void)base, (void)out, (void)n, (void)a;
    return 0; // a gather of one lane is the plain loop's read
#else
    const hn::ScalableTag<int32_t> di;
    const hn::RebindToUnsigned<decltype(di)> du;
    const hn::Rebind<uint8_t, decltype(di)> d8;
    const hn::Repartition<int64_t, decltype(di)> d64;
    const hn::Rebind<int32_t, decltype(d64)> dhalf;
    using V = hn::Vec<decltype(di)>;
    using V8 = hn::Vec<decltype(d8)>;
    const size_t lanes = hn::Lanes(di), half = hn::Lanes(d64);
    const auto byte = hn::Set(di, 0xFF), low16 = hn::Set(di, 0xFFFF);
    const auto wBase = hn::Set(di, a);
    const auto half10 = hn::Set(di, 512), half15 = hn::Set(di, 16384);
    const int64_t* top = reinterpret_cast<const int64_t*>(src);
    const int64_t* bottom = reinterpret_cast<const int64_t*>(src + stride);
    size_t i = 0;
    for (; i + lanes <= n; i += lanes) {
        const auto at0 = hn::PromoteTo(d64, hn::LoadU(dhalf, off + i));
        const auto at1 = hn::PromoteTo(d64, hn::LoadU(dhalf, off + i + half));
        // Low words: channels 0-2 of the left pixel, 0 of the right; high words: 1-2 of the right.
        const auto split = [&](const int64_t* rowBase, V& lo, V& hi) {
            const V g0 = hn::BitCast(di, hn::GatherOffset(d64, rowBase, at0));
            const V g1 = hn::BitCast(di, hn::GatherOffset(d64, rowBase, at1));
            lo = hn::ConcatEven(di, g1, g0);
            hi = hn::ConcatOdd(di, g1, g0);
        };
        V tl, th, bl, bh;
        split(top, tl, th);
        split(bottom, bl, bh);
        const auto f = hn::BitCast(di, hn::LoadU(du, frac + i));
        const auto fx = hn::And(f, low16), fy = hn::ShiftRight<16>(f);
        const auto lerp = [&](V p0, V p1) {
            p0 = hn::And(p0, byte);
            p1 = hn::And(p1, byte);
            return hn::Add(hn::ShiftLeft<5>(p0), hn::Mul(fx, hn::Sub(p1, p0)));
        };
        const auto mix = [&](V h0, V h1, V8 b) {
            const auto warped = hn::ShiftRight<10>(
                hn::Add(hn::Add(hn::ShiftLeft<5>(h0), hn::Mul(fy, hn::Sub(h1, h0))), half10));
            const auto towards = hn::Mul(hn::Sub(hn::PromoteTo(di, b), warped), wBase);
            return hn::DemoteTo(d8, hn::Add(warped, hn::ShiftRight<15>(hn::Add(towards, half15))));
        };
        V8 b0, b1, b2;
        hn::LoadInterleaved3(d8, base + 3 * i, b0, b1, b2);
        const V8 o0 = mix(lerp(tl, hn::ShiftRight<24>(tl)), lerp(bl, hn::ShiftRight<24>(bl)), b0);
        const V8 o1 = mix(lerp(hn::ShiftRight<8>(tl), th), lerp(hn::ShiftRight<8>(bl), bh), b1);
        const V8 o2 = mix(lerp(hn::ShiftRight<16>(tl), hn::ShiftRight<8>(th)),
                          lerp(hn::ShiftRight<16>(bl), hn::ShiftRight<8>(bh)), b2);
        hn::StoreInterleaved3(o0, o1, o2, d8, out + 3 * i);
    }
    return i;
#endif
}

// The luma of a UYVY frame (pixels two bytes apart, Y in the second): a gather of 32 bits at a
// pixel's Y fetches its right neighbour's Y in the third byte.
size_t lumaRun(const int32_t* HWY_RESTRICT off, const uint32_t* HWY_RESTRICT frac, const uint8_t* src,
               size_t stride, uint8_t* out, size_t n) {
#if HWY_TARGET == HWY_SCALAR
    (void)off, (void)frac, (void)src, (void)stride, (void)out, (void)n;
    return 0;
#else
    const hn::ScalableTag<int32_t> di;
    const hn::RebindToUnsigned<decltype(di)> du;
    const hn::Rebind<uint8_t, decltype(di)> d8;
    using V = hn::Vec<decltype(di)>;
    const size_t lanes = hn::Lanes(di);
    const auto byte = hn::Set(di, 0xFF), low16 = hn::Set(di, 0xFFFF), half10 = hn::Set(di, 512);
    const int32_t* top = reinterpret_cast<const int32_t*>(src);
    const int32_t* bottom = reinterpret_cast<const int32_t*>(src + stride);
    size_t i = 0;
    for (; i + lanes <= n; i += lanes) {
        const auto at = hn::LoadU(di, off + i);
        const auto f = hn::BitCast(di, hn::LoadU(du, frac + i));
        const auto fx = hn::And(f, low16), fy = hn::ShiftRight<16>(f);
        const auto lerp = [&](V pair) {
            const auto p0 = hn::And(pair, byte), p1 = hn::And(hn::ShiftRight<16>(pair), byte);
            return hn::Add(hn::ShiftLeft<5>(p0), hn::Mul(fx, hn::Sub(p1, p0)));
        };
        const auto h0 = lerp(hn::GatherOffset(di, top, at)), h1 = lerp(hn::GatherOffset(di, bottom, at));
        const auto warped =
            hn::ShiftRight<10>(hn::Add(hn::Add(hn::ShiftLeft<5>(h0), hn::Mul(fy, hn::Sub(h1, h0))), half10));
        hn::StoreU(hn::DemoteTo(d8, warped), d8, out + i);
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
HWY_EXPORT(blendRun);
HWY_EXPORT(lumaRun);
HWY_EXPORT(targetName);
[[maybe_unused]] const bool kRegistered =
    utils::VectorDispatch::registerKernel("RemapBlend", [] { return HWY_DYNAMIC_DISPATCH(targetName)(); });

constexpr int kFraction = 32; // steps per pixel, as cv::remap's fixed-point maps

// The plain loop: pixels first..n-1 of a run.
void blendRun(const int32_t* off, const uint32_t* frac, const uint8_t* src, size_t stride,
              const uint8_t* base, uint8_t* out, size_t first, size_t n, int32_t a) {
    for (size_t i = first; i < n; ++i) {
        const uint8_t* t = src + off[i];
        const uint8_t* b = t + stride;
        const int fx = int(frac[i] & 0xFFFF), fy = int(frac[i] >> 16);
        for (int c = 0; c < 3; ++c) {
            const int h0 = 32 * t[c] + fx * (t[c + 3] - t[c]);
            const int h1 = 32 * b[c] + fx * (b[c + 3] - b[c]);
            const int warped = (32 * h0 + fy * (h1 - h0) + 512) >> 10;
            out[3 * i + c] = uint8_t(warped + (((base[3 * i + c] - warped) * a + 16384) >> 15));
        }
    }
}
void lumaRun(const int32_t* off, const uint32_t* frac, const uint8_t* src, size_t stride, uint8_t* out,
             size_t first, size_t n) {
    for (size_t i = first; i < n; ++i) {
        const uint8_t* t = src + off[i];
        const uint8_t* b = t + stride;
        const int fx = int(frac[i] & 0xFFFF), fy = int(frac[i] >> 16);
        const int h0 = 32 * t[0] + fx * (t[2] - t[0]);
        const int h1 = 32 * b[0] + fx * (b[2] - b[0]);
        out[i] = uint8_t((32 * h0 + fy * (h1 - h0) + 512) >> 10);
    }
}
} // namespace

RemapBlend::RemapBlend(const cv::Mat& mapX, const cv::Mat& mapY, cv::Size sourceSize, bool insideOnly,
                       Source format)
    : m_size(mapX.size()), m_source(sourceSize), m_format(format) {
    if (mapX.type() != CV_32FC1 || mapY.type() != CV_32FC1 || mapX.size() != mapY.size() || mapX.empty())
        NORDA_THROW("remap tables need two CV_32FC1 maps of one size",
                    "norda::vision::RemapBlend::RemapBlend");
    if (sourceSize.width < 1 || sourceSize.height < 1)
        NORDA_THROW("remap tables need a source of at least one pixel",
                    "norda::vision::RemapBlend::RemapBlend");
    // One row more than the frame: the vector kernel reads 8 bytes for a pair of pixels (6).
    const bool luma = format == Source::UyvyLuma;
    const int pixelBytes = luma ? 2 : 3, first = luma ? 1 : 0; // the Y of a UYVY pixel is its second byte
    m_framed = cv::Mat(cv::Mat::zeros(sourceSize.height + 3, sourceSize.width + 2, luma ? CV_8UC2 : CV_8UC3))
                   .rowRange(0, sourceSize.height + 2);
    const int stride = int(m_framed.step);
    m_offset.resize(m_size.area());
    m_fraction.resize(m_size.area());
    for (int y = 0; y < m_size.height; ++y) {
        const float* mx = mapX.ptr<float>(y);
        const float* my = mapY.ptr<float>(y);
        int runStart = -1;
        for (int x = 0; x <= m_size.width; ++x) {
            bool inside = false;
            if (x < m_size.width) {
                const size_t i = size_t(y) * m_size.width + x;
                inside = mx[x] >= 0 && mx[x] <= sourceSize.width - 1 && my[x] >= 0 &&
                         my[x] <= sourceSize.height - 1;
                // Rounded as cv::convertMaps rounds (the products are exact); far away is black.
                const bool near = std::abs(mx[x]) < 1e6f && std::abs(my[x]) < 1e6f;
                const int ix = near ? cvRound(mx[x] * kFraction) : -1000 * kFraction;
                const int iy = near ? cvRound(my[x] * kFraction) : -1000 * kFraction;
                const int sx = ix >> 5, sy = iy >> 5; // floor
                if (sx < -1 || sy < -1 || sx >= sourceSize.width || sy >= sourceSize.height) {
                    m_offset[i] = first; // the frame's corner, black, weighing all
                    m_fraction[i] = 0;
                } else {
                    m_offset[i] = (sy + 1) * stride + (sx + 1) * pixelBytes + first;
                    m_fraction[i] = uint32_t(ix & (kFraction - 1)) | uint32_t(iy & (kFraction - 1)) << 16;
                }
            }
            const bool take = !insideOnly || inside;
            if (take && runStart < 0 && x < m_size.width)
                runStart = x;
            if ((!take || x == m_size.width) && runStart >= 0) {
                m_runs.push_back({y, runStart, x});
                runStart = -1;
            }
        }
    }
}

cv::Mat RemapBlend::source() const {
    return m_framed(cv::Rect(1, 1, m_source.width, m_source.height));
}

void RemapBlend::apply(const cv::Mat& source, const cv::Mat& base, float alpha, cv::Mat& out) {
    if (m_format != Source::Rgb || source.type() != CV_8UC3 || source.size() != m_source)
        NORDA_THROW("remap source must be CV_8UC3 of " + std::to_string(m_source.width) + "x" +
                        std::to_string(m_source.height),
                    "norda::vision::RemapBlend::apply");
    if (base.type() != CV_8UC3 || base.size() != m_size)
        NORDA_THROW("remap base must be CV_8UC3 of " + std::to_string(m_size.width) + "x" +
                        std::to_string(m_size.height),
                    "norda::vision::RemapBlend::apply");
    cv::Mat inside = this->source();
    if (source.data != inside.data)
        source.copyTo(inside);
    if (out.size() != m_size || out.type() != CV_8UC3)
        out.create(m_size, CV_8UC3);
    const int32_t a = int32_t(std::lround((alpha > 0 ? std::min(alpha, 1.0f) : 0.0f) * 32768.0f));
    const uint8_t* src = m_framed.ptr<uint8_t>(0);
    const size_t stride = m_framed.step;
    for (const Run& r : m_runs) {
        const size_t at = size_t(r.row) * m_size.width + r.first, n = size_t(r.end - r.first);
        const int32_t* off = m_offset.data() + at;
        const uint32_t* frac = m_fraction.data() + at;
        const uint8_t* b = base.ptr<uint8_t>(r.row) + 3 * r.first;
        uint8_t* o = out.ptr<uint8_t>(r.row) + 3 * r.first;
        utils::VectorDispatch::run(
            [&] { return HWY_DYNAMIC_DISPATCH(blendRun)(off, frac, src, stride, b, o, n, a); },
            [&](size_t done) { blendRun(off, frac, src, stride, b, o, done, n, a); });
    }
}

void RemapBlend::warpLuma(const cv::Mat& uyvy, cv::Mat& out) {
    if (m_format != Source::UyvyLuma || uyvy.type() != CV_8UC2 || uyvy.size() != m_source)
        NORDA_THROW("remap source must be UYVY (CV_8UC2) of " + std::to_string(m_source.width) + "x" +
                        std::to_string(m_source.height),
                    "norda::vision::RemapBlend::warpLuma");
    uyvy.copyTo(source());
    out.create(m_size, CV_8UC1);
    const uint8_t* src = m_framed.ptr<uint8_t>(0);
    const size_t stride = m_framed.step;
    for (const Run& r : m_runs) {
        const size_t at = size_t(r.row) * m_size.width + r.first, n = size_t(r.end - r.first);
        uint8_t* o = out.ptr<uint8_t>(r.row) + r.first;
        const int32_t* off = m_offset.data() + at;
        const uint32_t* frac = m_fraction.data() + at;
        utils::VectorDispatch::run(
            [&] { return HWY_DYNAMIC_DISPATCH(lumaRun)(off, frac, src, stride, o, n); },
            [&](size_t done) { lumaRun(off, frac, src, stride, o, done, n); });
    }
}

} // namespace norda::vision
#endif
