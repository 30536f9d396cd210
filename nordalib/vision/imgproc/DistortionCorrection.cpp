#include "nordalib/vision/imgproc/DistortionCorrection.h"

#include "nordalib/core/exception/Exception.h"
#include "nordalib/core/utils/VectorDispatch.h"

// The vector kernel is compiled once per instruction set (see ColorConvert.cpp).
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "nordalib/vision/imgproc/DistortionCorrection.cpp"
#include <hwy/foreach_target.h> // must precede highway.h
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace norda::vision {
namespace {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

// 16-bit pixels, a vector of 32-bit lanes a step. One gather at s fetches in[s] | in[s+1] << 16,
// one at s + cols the pair below; 16-bit multiplies against the packed weights give the low and
// high halves of all products of each pair, which add up in 32-bit lanes to exactly the plain
// loop's sum. Returns the number of pixels done.
size_t resample(const int16_t* HWY_RESTRICT off, const uint32_t* HWY_RESTRICT top,
                const uint32_t* HWY_RESTRICT bottom, const uint16_t* src, uint16_t* HWY_RESTRICT dst,
                size_t n, size_t cols) {
#if HWY_TARGET == HWY_SCALAR
    (void)off, (void)top, (void)bottom, (void)src, (void)dst, (void)n, (void)cols;
    return 0; // a gather of one lane is the plain loop's read
#else
    const hn::ScalableTag<int32_t> di;
    const hn::RebindToUnsigned<decltype(di)> du;
    const hn::Repartition<uint16_t, decltype(du)> dw; // the 16-bit halves of the lanes
    const hn::Rebind<int16_t, decltype(di)> doff;
    const hn::Rebind<uint16_t, decltype(di)> dout;
    const size_t lanes = hn::Lanes(di);
    const auto lane = hn::Iota(di, 0);
    const auto low16 = hn::Set(du, 0xFFFFu), half = hn::Set(du, 32768u);
    // Sum of the 16-bit halves of each 32-bit lane.
    auto fold = [&](hn::Vec<decltype(du)> a, hn::Vec<decltype(du)> b) {
        return hn::Add(hn::Add(hn::And(a, low16), hn::ShiftRight<16>(a)),
                       hn::Add(hn::And(b, low16), hn::ShiftRight<16>(b)));
    };
    size_t i = 0;
    for (; i + lanes <= n; i += lanes) {
        // Byte offsets from pixel i, so the lanes never overflow however large the frame. The
        // gathers read 32 bits at 16-bit alignment, which both architectures allow.
        const auto at = hn::ShiftLeft<1>(hn::Add(hn::PromoteTo(di, hn::LoadU(doff, off + i)), lane));
        const auto pa = hn::BitCast(dw, hn::GatherOffset(di, reinterpret_cast<const int32_t*>(src + i), at));
        const auto pb =
            hn::BitCast(dw, hn::GatherOffset(di, reinterpret_cast<const int32_t*>(src + cols + i), at));
        const auto wa = hn::BitCast(dw, hn::LoadU(du, top + i));
        const auto wb = hn::BitCast(dw, hn::LoadU(du, bottom + i));
        const auto lo = fold(hn::BitCast(du, hn::Mul(pa, wa)), hn::BitCast(du, hn::Mul(pb, wb)));
        const auto hi = fold(hn::BitCast(du, hn::MulHigh(pa, wa)), hn::BitCast(du, hn::MulHigh(pb, wb)));
        const auto v = hn::ShiftRight<16>(hn::Add(hn::Add(lo, half), hn::ShiftLeft<16>(hi)));
        hn::StoreU(hn::DemoteTo(dout, hn::BitCast(di, v)), dout, dst + i);
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
HWY_EXPORT(resample);
HWY_EXPORT(targetName);
[[maybe_unused]] const bool kRegistered = utils::VectorDispatch::registerKernel(
    "DistortionCorrection", [] { return HWY_DYNAMIC_DISPATCH(targetName)(); });

// The plain loop: pixels first..n-1.
template <typename T>
void resample(const int16_t* __restrict off, const uint32_t* __restrict top,
              const uint32_t* __restrict bottom, const T* __restrict src, T* __restrict dst, size_t first,
              size_t n, size_t cols) {
    for (size_t i = first; i < n; ++i) {
        const T* s = src + (static_cast<ptrdiff_t>(i) + off[i]);
        const T* b = s + cols;
        const uint32_t v = uint32_t(s[0]) * (top[i] & 0xFFFFu) + 32768u + uint32_t(b[1]) * (bottom[i] >> 16) +
                           uint32_t(s[1]) * (top[i] >> 16) + uint32_t(b[0]) * (bottom[i] & 0xFFFFu);
        dst[i] = static_cast<T>(v >> 16);
    }
}
} // namespace

template <typename T>
DistortionCorrection<T>::DistortionCorrection(const std::string& path, uint16_t rows, uint16_t cols)
    : DistortionCorrection(DistortionTable::load(path, rows, cols)) {}

template <typename T>
DistortionCorrection<T>::DistortionCorrection(const DistortionTable& table)
    : m_rows(table.rows()), m_cols(table.cols()) {
    auto planes = std::make_shared<Planes>();
    const auto& entries = table.entries();
    planes->offset.reserve(entries.size());
    planes->top.reserve(entries.size());
    planes->bottom.reserve(entries.size());
    for (const DistortionEntry& e : entries) {
        planes->offset.push_back(e.offset);
        planes->top.push_back(e.w00 | uint32_t(e.w01) << 16);
        planes->bottom.push_back(e.w10 | uint32_t(e.w11) << 16);
    }
    m_planes = std::move(planes);
}

template <typename T> void DistortionCorrection<T>::prepare(const cv::Mat& in, cv::Mat& out) const {
    constexpr int type = cv::DataType<T>::type;
    if (in.type() != type || !in.isContinuous())
        NORDA_THROW("distortion correction needs a continuous single-channel frame of type " +
                        std::to_string(type),
                    "norda::vision::DistortionCorrection::processImpl");
    if (out.rows != in.rows || out.cols != in.cols || out.type() != type || !out.data || out.data == in.data)
        out.create(in.rows, in.cols, type);
    const size_t n = m_planes ? m_planes->offset.size() : 0;
    if (n != in.total() || (m_planes && m_cols != in.cols))
        throw norda::Exception("Input image size does not fit to distortion data size!",
                               norda::formatLocation("nordalib/vision/imgproc/DistortionCorrection", 129,
                                                     "norda::vision::DistortionCorrection::processImpl"));
}

template <typename T> void DistortionCorrection<T>::processImpl(const cv::Mat& in, cv::Mat& out) const {
    prepare(in, out);
    const Planes& p = *m_planes;
    const size_t n = p.offset.size();
    const size_t cols = static_cast<size_t>(in.cols);
    auto rest = [&](size_t done) {
        resample<T>(p.offset.data(), p.top.data(), p.bottom.data(), in.ptr<T>(0), out.ptr<T>(0), done, n,
                    cols);
    };
    if constexpr (sizeof(T) == 2)
        utils::VectorDispatch::run(
            [&] {
                return HWY_DYNAMIC_DISPATCH(resample)(p.offset.data(), p.top.data(), p.bottom.data(),
                                                      in.ptr<uint16_t>(0), out.ptr<uint16_t>(0), n, cols);
            },
            rest);
    else
        rest(0); // 8-bit images: the plain loop only
}

template class DistortionCorrection<unsigned short>;
template class DistortionCorrection<unsigned char>;

} // namespace norda::vision
#endif
