#include "nordalib/vision/measurement/RowStatistics.h"

#include "nordalib/core/utils/VectorDispatch.h"

#include <algorithm>
#include <cstddef>

// The vector kernels are compiled once per instruction set (see ColorConvert.cpp).
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "nordalib/vision/measurement/RowStatistics.cpp"
#include <hwy/foreach_target.h> // must precede highway.h
#include <hwy/highway.h>

#ifndef NORDA_ROW_STATISTICS_CHUNK
#define NORDA_ROW_STATISTICS_CHUNK
namespace norda::vision {
namespace {
// Sums are accumulated in 32 bits over chunks of at most this many pixels, which cannot overflow,
// and widened per chunk.
constexpr size_t kChunk = 65536;
} // namespace
} // namespace norda::vision
#endif

HWY_BEFORE_NAMESPACE();
namespace norda::vision {
namespace {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

#if HWY_TARGET != HWY_SCALAR // the compiler vectorises the plain loops for the baseline
using D16 = hn::ScalableTag<uint16_t>;
using D32 = hn::Repartition<uint32_t, D16>;

// Sum of both 16-bit halves of each 32-bit lane, added to `acc`. Each lane takes two values a
// vector, so a chunk adds at most 2 * 65536 / 8 values of 65535 to a lane: no overflow.
HWY_INLINE hn::Vec<D32> addHalves(hn::Vec<D32> acc, hn::Vec<D16> v) {
    const D32 d32;
    const auto w = hn::BitCast(d32, v);
    return hn::Add(acc, hn::Add(hn::And(w, hn::Set(d32, 0xFFFFu)), hn::ShiftRight<16>(w)));
}

HWY_INLINE uint64_t lanesSum(hn::Vec<D32> acc) {
    const D32 d32;
    alignas(64) uint32_t lanes[hn::MaxLanes(d32)];
    hn::Store(acc, d32, lanes);
    uint64_t sum = 0;
    for (size_t i = 0; i < hn::Lanes(d32); ++i)
        sum += lanes[i];
    return sum;
}
#endif

// Whole vectors of p[0 .. width): returns the number of pixels done, their extremes and sum.
size_t minMaxSum(const uint16_t* HWY_RESTRICT p, size_t width, uint16_t& min, uint16_t& max, uint64_t& sum) {
#if HWY_TARGET == HWY_SCALAR
    (void)p, (void)width, (void)min, (void)max, (void)sum;
    return 0;
#else
    const D16 d16;
    const size_t n = hn::Lanes(d16);
    auto lo = hn::Set(d16, 0xFFFF), hi = hn::Zero(d16);
    uint64_t total = 0;
    size_t x = 0;
    while (x + n <= width) {
        const size_t end = std::min(width, x + kChunk);
        auto acc = hn::Zero(D32());
        do {
            const auto v = hn::LoadU(d16, p + x);
            lo = hn::Min(lo, v);
            hi = hn::Max(hi, v);
            acc = addHalves(acc, v);
            x += n;
        } while (x + n <= end);
        total += lanesSum(acc);
    }
    min = hn::GetLane(hn::MinOfLanes(d16, lo));
    max = hn::GetLane(hn::MaxOfLanes(d16, hi));
    sum = total;
    return x;
#endif
}

size_t bandSum(const uint16_t* HWY_RESTRICT p, size_t width, uint16_t lower, uint16_t upper, uint64_t& sum,
               uint32_t& count) {
#if HWY_TARGET == HWY_SCALAR
    (void)p, (void)width, (void)lower, (void)upper, (void)sum, (void)count;
    return 0;
#else
    const D16 d16;
    const size_t n = hn::Lanes(d16);
    const auto lo = hn::Set(d16, lower), hi = hn::Set(d16, upper), one = hn::Set(d16, 1);
    uint64_t total = 0, number = 0;
    size_t x = 0;
    while (x + n <= width) {
        const size_t end = std::min(width, x + kChunk);
        auto acc = hn::Zero(D32()), counted = hn::Zero(D32());
        do {
            const auto v = hn::LoadU(d16, p + x);
            const auto in = hn::And(hn::Gt(v, lo), hn::Lt(v, hi));
            acc = addHalves(acc, hn::IfThenElseZero(in, v));
            counted = addHalves(counted, hn::IfThenElseZero(in, one));
            x += n;
        } while (x + n <= end);
        total += lanesSum(acc);
        number += lanesSum(counted);
    }
    sum = total;
    count = static_cast<uint32_t>(number);
    return x;
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
HWY_EXPORT(minMaxSum);
HWY_EXPORT(bandSum);
HWY_EXPORT(targetName);
[[maybe_unused]] const bool kRegistered =
    utils::VectorDispatch::registerKernel("RowStatistics", [] { return HWY_DYNAMIC_DISPATCH(targetName)(); });
} // namespace

void RowStatistics::minMaxSum(const uint16_t* p, int width, uint16_t& min, uint16_t& max, uint64_t& sum) {
    const size_t w = static_cast<size_t>(std::max(width, 0));
    uint16_t mn = 0xFFFF, mx = 0;
    uint64_t total = 0;
    utils::VectorDispatch::run([&] { return HWY_DYNAMIC_DISPATCH(minMaxSum)(p, w, mn, mx, total); },
                               [&](size_t first) {
                                   for (size_t x0 = first; x0 < w; x0 += kChunk) {
                                       const size_t x1 = std::min(w, x0 + kChunk);
                                       uint32_t s = 0;
                                       for (size_t x = x0; x < x1; ++x) {
                                           const uint16_t v = p[x];
                                           mn = v < mn ? v : mn;
                                           mx = v > mx ? v : mx;
                                           s += v;
                                       }
                                       total += s;
                                   }
                               });
    min = mn;
    max = mx;
    sum = total;
}

void RowStatistics::bandSum(const uint16_t* p, int width, uint16_t lower, uint16_t upper, uint64_t& sum,
                            uint32_t& count) {
    const size_t w = static_cast<size_t>(std::max(width, 0));
    uint64_t total = 0;
    uint32_t number = 0;
    utils::VectorDispatch::run(
        [&] { return HWY_DYNAMIC_DISPATCH(bandSum)(p, w, lower, upper, total, number); },
        [&](size_t first) {
            for (size_t x0 = first; x0 < w; x0 += kChunk) {
                const size_t x1 = std::min(w, x0 + kChunk);
                uint32_t s = 0, c = 0;
                for (size_t x = x0; x < x1; ++x) {
                    const uint16_t v = p[x];
                    const bool in = v > lower && v < upper;
                    s += in ? v : 0u;
                    c += in ? 1u : 0u;
                }
                total += s;
                number += c;
            }
        });
    sum = total;
    count = number;
}

} // namespace norda::vision
#endif
