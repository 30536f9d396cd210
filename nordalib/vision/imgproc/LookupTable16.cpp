#include "nordalib/vision/imgproc/LookupTable16.h"

#include "nordalib/core/exception/Exception.h"
#include "nordalib/core/utils/VectorDispatch.h"

// The vector kernel is compiled once per instruction set (see ColorConvert.cpp).
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "nordalib/vision/imgproc/LookupTable16.cpp"
#include <hwy/foreach_target.h> // must precede highway.h
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace norda::vision {
namespace {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

// One pixel per 32-bit lane: a gather at the entry's byte offset fetches it in the low half (the
// next entry in the high half is dropped). Returns the number of pixels done.
size_t lookup(const uint16_t* table, const uint16_t* HWY_RESTRICT in, uint16_t* HWY_RESTRICT out, size_t n) {
#if HWY_TARGET == HWY_SCALAR
    (void)table, (void)in, (void)out, (void)n;
    return 0; // a gather of one lane is the plain loop's read
#else
    const hn::ScalableTag<int32_t> di;
    const hn::RebindToUnsigned<decltype(di)> du;
    const hn::Rebind<uint16_t, decltype(di)> d16;
    const size_t lanes = hn::Lanes(di);
    const auto low16 = hn::Set(di, 0xFFFF);
    const int32_t* base = reinterpret_cast<const int32_t*>(table);
    size_t i = 0;
    for (; i + 2 * lanes <= n; i += 2 * lanes) {
        const auto at0 = hn::BitCast(di, hn::ShiftLeft<1>(hn::PromoteTo(du, hn::LoadU(d16, in + i))));
        const auto at1 = hn::BitCast(di, hn::ShiftLeft<1>(hn::PromoteTo(du, hn::LoadU(d16, in + i + lanes))));
        const auto v0 = hn::And(hn::GatherOffset(di, base, at0), low16);
        const auto v1 = hn::And(hn::GatherOffset(di, base, at1), low16);
        hn::StoreU(hn::DemoteTo(d16, v0), d16, out + i);
        hn::StoreU(hn::DemoteTo(d16, v1), d16, out + i + lanes);
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
HWY_EXPORT(lookup);
HWY_EXPORT(targetName);
[[maybe_unused]] const bool kRegistered =
    utils::VectorDispatch::registerKernel("LookupTable16", [] { return HWY_DYNAMIC_DISPATCH(targetName)(); });
} // namespace

void LookupTable16::apply(const cv::Mat& in, cv::Mat& out) const {
    if (in.type() != CV_16UC1 && in.type() != CV_16SC1)
        NORDA_THROW("a 16-bit table needs a CV_16UC1 or CV_16SC1 frame, not " + cv::typeToString(in.type()),
                    "norda::vision::LookupTable16::apply");
    if (out.size() != in.size() || out.type() != CV_16UC1)
        out.create(in.size(), CV_16UC1);
    const bool whole = in.isContinuous() && out.isContinuous();
    const int rows = whole ? 1 : in.rows;
    const size_t n = whole ? in.total() : size_t(in.cols);
    const uint16_t* table = m_entries.data();
    for (int r = 0; r < rows; ++r) {
        const uint16_t* s = in.ptr<uint16_t>(r);
        uint16_t* d = out.ptr<uint16_t>(r);
        utils::VectorDispatch::run([&] { return HWY_DYNAMIC_DISPATCH(lookup)(table, s, d, n); },
                                   [&](size_t i) {
                                       for (; i < n; ++i)
                                           d[i] = table[s[i]];
                                   });
    }
}

} // namespace norda::vision
#endif
