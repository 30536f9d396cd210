#include "nordalib/vision/imgproc/TemporalNoiseReduction.h"

#include "nordalib/core/exception/Exception.h"
#include "nordalib/core/utils/VectorDispatch.h"

#include <algorithm>
#include <cstdlib>
#include <type_traits>

// The vector kernel is compiled once per instruction set (see ColorConvert.cpp).
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "nordalib/vision/imgproc/TemporalNoiseReduction.cpp"
#include <hwy/foreach_target.h> // must precede highway.h
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace norda::vision {
namespace {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

// The plain loop's steps on 32-bit lanes; returns the number of pixels done.
template <typename T>
size_t filterRow(T* HWY_RESTRICT px, int32_t* HWY_RESTRICT h, size_t n, int32_t gain, int32_t slope) {
#if HWY_TARGET == HWY_SCALAR
    (void)px, (void)h, (void)n, (void)gain, (void)slope;
    return 0; // the compiler vectorises the plain loop for the baseline instruction set
#else
    const hn::ScalableTag<int32_t> di;
    const hn::Rebind<T, decltype(di)> dt;
    const size_t lanes = hn::Lanes(di);
    const auto g = hn::Set(di, gain), g2 = hn::Set(di, 2 * gain), sl = hn::Set(di, slope);
    const auto zero = hn::Zero(di), round11 = hn::Set(di, 1024), round4 = hn::Set(di, 8);
    size_t x = 0;
    for (; x + lanes <= n; x += lanes) {
        const auto v = hn::ShiftLeft<4>(hn::PromoteTo(di, hn::LoadU(dt, px + x)));
        const auto diff = hn::Sub(hn::LoadU(di, h + x), v);
        const auto t = hn::Min(hn::Max(hn::Sub(g2, hn::ShiftRight<4>(hn::Abs(diff))), zero), g);
        const auto a = hn::ShiftRight<8>(hn::Mul(t, sl));
        const auto next = hn::Add(v, hn::ShiftRight<11>(hn::Add(hn::Mul(a, diff), round11)));
        hn::StoreU(next, di, h + x);
        hn::StoreU(hn::DemoteTo(dt, hn::ShiftRight<4>(hn::Add(next, round4))), dt, px + x);
    }
    return x;
#endif
}

size_t filterRowS16(int16_t* px, int32_t* h, size_t n, int32_t gain, int32_t slope) {
    return filterRow(px, h, n, gain, slope);
}
size_t filterRowU16(uint16_t* px, int32_t* h, size_t n, int32_t gain, int32_t slope) {
    return filterRow(px, h, n, gain, slope);
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
HWY_EXPORT(filterRowS16);
HWY_EXPORT(filterRowU16);
HWY_EXPORT(targetName);
[[maybe_unused]] const bool kRegistered = utils::VectorDispatch::registerKernel(
    "TemporalNoiseReduction", [] { return HWY_DYNAMIC_DISPATCH(targetName)(); });

// One row: h' = x + a(|x - h|) (h - x) in 1/16 counts, a in Q11. The weight is computed, not looked
// up: the vector kernel takes the bulk of the row, this loop the rest.
template <typename T>
void filterRow(T* __restrict px, int32_t* __restrict h, int n, int32_t gain, int32_t slope) {
    utils::VectorDispatch::run(
        [&] {
            if constexpr (std::is_same_v<T, short>)
                return HWY_DYNAMIC_DISPATCH(filterRowS16)(px, h, static_cast<size_t>(n), gain, slope);
            else
                return HWY_DYNAMIC_DISPATCH(filterRowU16)(px, h, static_cast<size_t>(n), gain, slope);
        },
        [&](size_t first) {
            for (int x = static_cast<int>(first); x < n; ++x) {
                const int32_t v = static_cast<int32_t>(px[x]) * 16;
                const int32_t diff = h[x] - v;
                const int32_t t = std::min(std::max(2 * gain - (std::abs(diff) >> 4), 0), gain);
                const int32_t a = (t * slope) >> 8;
                const int32_t next = v + ((a * diff + 1024) >> 11);
                h[x] = next;
                px[x] = static_cast<T>((next + 8) >> 4);
            }
        });
}
} // namespace

template <typename T>
TemporalNoiseReduction<T>::TemporalNoiseReduction(uint8_t controlGain, uint16_t feedbackFactor)
    : m_gain(controlGain), m_feedback(feedbackFactor) {}

template <typename T> void TemporalNoiseReduction<T>::process(cv::Mat& frame) {
    if (frame.type() != cv::DataType<T>::type)
        NORDA_THROW("temporal noise reduction: frame type " + std::to_string(frame.type()) + " is not " +
                        std::to_string(cv::DataType<T>::type),
                    "norda::vision::TemporalNoiseReduction::process");
    const int32_t gain = m_gain;
    const int32_t feedback = std::min<int32_t>(m_feedback, 2047);
    if (m_history.size() != frame.size() || gain == 0) {
        frame.convertTo(m_history, CV_32S, 16.0);
        return;
    }
    // a = feedback * min(max(2g - |d|, 0), g) / g, the division folded into a Q8 slope.
    const int32_t slope = (feedback << 8) / gain;
    for (int y = 0; y < frame.rows; ++y)
        filterRow<T>(frame.ptr<T>(y), m_history.ptr<int32_t>(y), frame.cols, gain, slope);
}

template class TemporalNoiseReduction<short>;
template class TemporalNoiseReduction<unsigned short>;

} // namespace norda::vision
#endif
