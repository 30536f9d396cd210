#include "nordalib/vision/imgproc/SpatialNoiseRemover.h"

#include "nordalib/core/exception/Exception.h"
#include "nordalib/core/utils/VectorDispatch.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <type_traits>

// The vector kernel is compiled once per instruction set (see ColorConvert.cpp).
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "nordalib/vision/imgproc/SpatialNoiseRemover.cpp"
#include <hwy/foreach_target.h> // must precede highway.h
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace norda::vision {
namespace {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

// The plain loop's steps (interiorRow below) on float lanes, neighbours in the same order, so
// the sums are the same to the last bit. Pixels 1 .. n; returns the number done.
template <typename T>
size_t interiorRow(const T* HWY_RESTRICT up, const T* HWY_RESTRICT mid, const T* HWY_RESTRICT down,
                   T* HWY_RESTRICT dst, size_t n, float gain, float invGain) {
#if HWY_TARGET == HWY_SCALAR
    (void)up, (void)mid, (void)down, (void)dst, (void)n, (void)gain, (void)invGain;
    return 0; // the compiler vectorises the plain loop for the baseline instruction set
#else
    const hn::ScalableTag<float> df;
    const hn::RebindToSigned<decltype(df)> di;
    const hn::Rebind<T, decltype(di)> dt;
    const size_t lanes = hn::Lanes(df);
    const auto g = hn::Set(df, gain), g2 = hn::Set(df, 2.0f * gain), inv = hn::Set(df, invGain);
    const auto zero = hn::Zero(df), one = hn::Set(df, 1.0f), half = hn::Set(df, 0.5f);
    size_t done = 0;
    for (size_t x = 1; x + lanes <= n + 1; x += lanes, done += lanes) {
        const auto c = hn::PromoteTo(di, hn::LoadU(dt, mid + x));
        auto total = one, acc = zero;
        for (const T* p : {up + x - 1, up + x, up + x + 1, mid + x - 1, mid + x + 1, down + x - 1, down + x,
                           down + x + 1}) {
            const auto d = hn::ConvertTo(df, hn::Sub(hn::PromoteTo(di, hn::LoadU(dt, p)), c));
            const auto w = hn::Mul(hn::Min(hn::Max(hn::Sub(g2, hn::Abs(d)), zero), g), inv);
            total = hn::Add(total, w);
            acc = hn::Add(acc, hn::Mul(w, d));
        }
        // c + floor(acc / total + 0.5), the floor as the plain loop writes it.
        const auto q = hn::Add(hn::Div(acc, total), half);
        const auto t = hn::ConvertTo(di, q);
        const auto below = hn::RebindMask(di, hn::Lt(q, hn::ConvertTo(df, t)));
        const auto floored = hn::IfThenElse(below, hn::Sub(t, hn::Set(di, 1)), t);
        hn::StoreU(hn::DemoteTo(dt, hn::Add(c, floored)), dt, dst + x);
    }
    return done;
#endif
}

size_t interiorRowS16(const int16_t* up, const int16_t* mid, const int16_t* down, int16_t* dst, size_t n,
                      float gain, float invGain) {
    return interiorRow(up, mid, down, dst, n, gain, invGain);
}
size_t interiorRowU16(const uint16_t* up, const uint16_t* mid, const uint16_t* down, uint16_t* dst, size_t n,
                      float gain, float invGain) {
    return interiorRow(up, mid, down, dst, n, gain, invGain);
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

SpatialNoiseRemover::SpatialNoiseRemover(int gain) : m_gain(gain) {}

namespace {
HWY_EXPORT(interiorRowS16);
HWY_EXPORT(interiorRowU16);
HWY_EXPORT(targetName);
[[maybe_unused]] const bool kRegistered = utils::VectorDispatch::registerKernel(
    "SpatialNoiseRemover", [] { return HWY_DYNAMIC_DISPATCH(targetName)(); });

// Weight of a neighbour differing by d: 1 up to |d| = gain, falling linearly to 0 at 2 gain.
inline float weightOf(float d, float gain, float invGain) {
    return std::min(std::max(2.0f * gain - std::fabs(d), 0.0f), gain) * invGain;
}

// c + acc / total, rounded half up (floor written out so that the loop vectorises).
template <typename T> inline T blend(int32_t c, float acc, float total) {
    const float q = acc / total + 0.5f;
    const int32_t t = static_cast<int32_t>(q);
    return static_cast<T>(c + t - int32_t(q < static_cast<float>(t)));
}
// The interior of one row (pixels 1 .. n): each pixel's eight neighbours in registers, in the same
// order as the border code, so both give the same sums. The vector kernel takes the bulk of the
// row, this loop the rest.
template <typename T>
void interiorRow(const T* __restrict up, const T* __restrict mid, const T* __restrict down, T* __restrict dst,
                 int n, float gain, float invGain) {
    const size_t m = static_cast<size_t>(n);
    utils::VectorDispatch::run(
        [&] {
            if constexpr (std::is_same_v<T, int16_t>)
                return HWY_DYNAMIC_DISPATCH(interiorRowS16)(up, mid, down, dst, m, gain, invGain);
            else
                return HWY_DYNAMIC_DISPATCH(interiorRowU16)(up, mid, down, dst, m, gain, invGain);
        },
        [&](size_t done) {
            for (int x = 1 + static_cast<int>(done); x <= n; ++x) {
                const int32_t c = mid[x];
                float total = 1.0f, acc = 0.0f;
                auto add = [&](int32_t neighbour) {
                    const float d = static_cast<float>(neighbour - c);
                    const float w = weightOf(d, gain, invGain);
                    total += w;
                    acc += w * d;
                };
                add(up[x - 1]);
                add(up[x]);
                add(up[x + 1]);
                add(mid[x - 1]);
                add(mid[x + 1]);
                add(down[x - 1]);
                add(down[x]);
                add(down[x + 1]);
                dst[x] = blend<T>(c, acc, total);
            }
        });
}
} // namespace

template <typename T> void SpatialNoiseRemover::run(const cv::Mat& in, cv::Mat& out, int gainValue) const {
    const int rows = in.rows, cols = in.cols;
    const float gain = static_cast<float>(gainValue), invGain = 1.0f / gain;
    // Borders: neighbours replicated from the edge.
    auto generic = [&](int y, int x) {
        const int32_t c = in.ptr<T>(y)[x];
        float t = 1.0f, a = 0.0f;
        for (int dy = -1; dy <= 1; ++dy)
            for (int dx = -1; dx <= 1; ++dx) {
                if (!dy && !dx)
                    continue;
                const float d = static_cast<float>(
                    static_cast<int32_t>(
                        in.ptr<T>(std::clamp(y + dy, 0, rows - 1))[std::clamp(x + dx, 0, cols - 1)]) -
                    c);
                const float w = weightOf(d, gain, invGain);
                t += w;
                a += w * d;
            }
        out.ptr<T>(y)[x] = blend<T>(c, a, t);
    };
    for (int y = 0; y < rows; ++y) {
        if (y == 0 || y == rows - 1 || cols < 3) {
            for (int x = 0; x < cols; ++x)
                generic(y, x);
            continue;
        }
        generic(y, 0);
        interiorRow<T>(in.ptr<T>(y - 1), in.ptr<T>(y), in.ptr<T>(y + 1), out.ptr<T>(y), cols - 2, gain,
                       invGain);
        generic(y, cols - 1);
    }
}

void SpatialNoiseRemover::process(const cv::Mat& in, cv::Mat& out) {
    if (in.type() != CV_16SC1 && in.type() != CV_16UC1)
        NORDA_THROW("spatial noise removal needs a CV_16SC1 or CV_16UC1 frame",
                    "norda::vision::SpatialNoiseRemover::process");
    if (&out == &in && !in.empty())
        NORDA_THROW("spatial noise removal can not work in place",
                    "norda::vision::SpatialNoiseRemover::process");
    const int gain = m_gain;
    if (gain <= 0 || in.empty()) {
        out = in; // nothing to compute: the output shares the input's pixels
        return;
    }
    if (out.data == in.data)
        out.release(); // still sharing the pixels of an earlier pass-through
    out.create(in.size(), in.type());
    if (in.type() == CV_16SC1)
        run<int16_t>(in, out, gain);
    else
        run<uint16_t>(in, out, gain);
}

} // namespace norda::vision
#endif
