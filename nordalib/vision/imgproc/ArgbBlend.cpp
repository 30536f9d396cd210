#include "nordalib/vision/imgproc/ArgbBlend.h"

#include "nordalib/core/utils/VectorDispatch.h"

#include <cstdint>
#include <cstring>

// The vector kernel is compiled once per instruction set (see ColorConvert.cpp).
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "nordalib/vision/imgproc/ArgbBlend.cpp"
#include <hwy/foreach_target.h> // must precede highway.h
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace norda::vision {
namespace {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

// 16-bit lanes, each holding two channels of a pixel: the even bytes (B, R) and the odd ones (G, A)
// are blended apart, every product and sum fits 16 bits (255 * 255 at most). The alpha byte
// is put back from the overlay. Returns the number of pixels done, a whole number of vectors.
size_t blendRow(const uint8_t* over, const uint8_t* under, uint8_t* out, size_t pixels) {
#if HWY_TARGET == HWY_SCALAR
    (void)over, (void)under, (void)out, (void)pixels;
    return 0; // one pixel a vector is the plain loop
#else
    const hn::ScalableTag<uint32_t> d32;
    const hn::Repartition<uint16_t, decltype(d32)> d16;
    const hn::Repartition<uint8_t, decltype(d32)> d8;
    const size_t lanes = hn::Lanes(d32);
    const auto lowByte = hn::Set(d16, 0x00FF), highByte = hn::Set(d16, 0xFF00), full = hn::Set(d16, 255);
    const auto colour = hn::Set(d32, 0x00FFFFFFu);
    size_t i = 0;
    for (; i + lanes <= pixels; i += lanes) {
        const auto ow = hn::BitCast(d32, hn::LoadU(d8, over + 4 * i));
        const auto uw = hn::BitCast(d32, hn::LoadU(d8, under + 4 * i));
        const auto a32 = hn::ShiftRight<24>(ow);
        const auto a = hn::BitCast(d16, hn::Or(a32, hn::ShiftLeft<16>(a32)));
        const auto rest = hn::Sub(full, a);
        const auto o = hn::BitCast(d16, ow), u = hn::BitCast(d16, uw);
        const auto even = hn::Add(hn::Mul(hn::And(o, lowByte), a), hn::Mul(hn::And(u, lowByte), rest));
        const auto odd = hn::Add(hn::Mul(hn::ShiftRight<8>(o), a), hn::Mul(hn::ShiftRight<8>(u), rest));
        const auto mixed = hn::BitCast(d32, hn::Or(hn::ShiftRight<8>(even), hn::And(odd, highByte)));
        const auto w = hn::Or(hn::And(mixed, colour), hn::ShiftLeft<24>(a32));
        hn::StoreU(hn::BitCast(d8, w), d8, out + 4 * i);
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
    utils::VectorDispatch::registerKernel("ArgbBlend", [] { return HWY_DYNAMIC_DISPATCH(targetName)(); });

// The plain loop on 32-bit words (byte 0 least significant): red and blue share one
// multiplication, green the other; >> 8 divides by 256. Copies keep it legal for rows at any
// address.
void blendRow(const uint8_t* over, const uint8_t* under, uint8_t* out, size_t first, size_t pixels) {
    for (size_t c = first; c < pixels; ++c) {
        uint32_t ow, uw;
        std::memcpy(&ow, over + 4 * c, 4);
        std::memcpy(&uw, under + 4 * c, 4);
        const uint32_t a = ow >> 24;
        const uint32_t rb = ((ow & 0x00FF00FFu) * a + (uw & 0x00FF00FFu) * (255u - a)) & 0xFF00FF00u;
        const uint32_t g = ((ow & 0x0000FF00u) * a + (uw & 0x0000FF00u) * (255u - a)) & 0x00FF0000u;
        const uint32_t d = ((rb + g) >> 8) | (a << 24);
        std::memcpy(out + 4 * c, &d, 4);
    }
}
} // namespace

cv::Mat_<cv::Vec4b> ArgbBlend::blend(const cv::Mat_<cv::Vec4b>& over, const cv::Mat_<cv::Vec4b>& under) {
    if (over.empty() || over.rows != under.rows || over.cols != under.cols)
        return {};
    cv::Mat_<cv::Vec4b> out(over.rows, over.cols);
    // Continuous images are one long row.
    const bool whole = over.isContinuous() && under.isContinuous();
    const int rows = whole ? 1 : over.rows;
    const size_t pixels = whole ? over.total() : size_t(over.cols);
    for (int r = 0; r < rows; ++r) {
        const uint8_t* o = over.ptr(r);
        const uint8_t* u = under.ptr(r);
        uint8_t* d = out.ptr(r);
        utils::VectorDispatch::run([&] { return HWY_DYNAMIC_DISPATCH(blendRow)(o, u, d, pixels); },
                                   [&](size_t done) { blendRow(o, u, d, done, pixels); });
    }
    return out;
}

} // namespace norda::vision
#endif
