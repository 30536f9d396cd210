#include "nordalib/vision/imgproc/GainTable.h"

#include "nordalib/core/exception/Exception.h"
#include "nordalib/core/utils/VectorDispatch.h"
#include "nordalib/vision/imageio/PxmImage.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

// The vector kernel is compiled once per instruction set (see ColorConvert.cpp).
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "nordalib/vision/imgproc/GainTable.cpp"
#include <hwy/foreach_target.h> // must precede highway.h
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace norda::vision {
namespace {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

// 16-bit lanes: MulFixedPoint15 is (in * d + 2^14) >> 15, the plain loop's rounded product (d is
// never -32768, so it does not overflow). Returns the number of pixels done, whole vectors.
size_t correctRow(const int16_t* HWY_RESTRICT d, int16_t* HWY_RESTRICT frame, size_t n) {
#if HWY_TARGET == HWY_SCALAR
    (void)d, (void)frame, (void)n;
    return 0;
#else
    const hn::ScalableTag<int16_t> di;
    const size_t lanes = hn::Lanes(di);
    size_t i = 0;
    for (; i + lanes <= n; i += lanes) {
        const auto v = hn::LoadU(di, frame + i);
        hn::StoreU(hn::SaturatedAdd(v, hn::MulFixedPoint15(v, hn::LoadU(di, d + i))), di, frame + i);
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
HWY_EXPORT(correctRow);
HWY_EXPORT(targetName);
[[maybe_unused]] const bool kRegistered =
    utils::VectorDispatch::registerKernel("GainTable", [] { return HWY_DYNAMIC_DISPATCH(targetName)(); });
} // namespace

GainTable::GainTable(const cv::Mat& gain, const std::string& source) {
    if (gain.type() != CV_32FC1 || gain.empty())
        NORDA_THROW(source + " must be a non-empty CV_32FC1 image, not " + cv::typeToString(gain.type()),
                    "norda::vision::GainTable::GainTable");
    m_gain = gain.clone();
    m_correction.reserve(m_gain.total());
    for (int y = 0; y < m_gain.rows; ++y) {
        const float* g = m_gain.ptr<float>(y);
        for (int x = 0; x < m_gain.cols; ++x) {
            if (!(g[x] >= kMinGain && g[x] <= kMaxGain)) // NaN fails too
                NORDA_THROW(fmt::format("{}: gain {} at pixel ({}, {}) is outside [{}, {}]", source, g[x], x,
                                        y, kMinGain, kMaxGain),
                            "norda::vision::GainTable::GainTable");
            m_correction.push_back(static_cast<int16_t>(std::lround((1.0 / g[x] - 1.0) * 32768.0)));
        }
    }
}

GainTable GainTable::load(const std::string& file) {
    return GainTable(readPxmImage(file), "gain table " + file);
}

void GainTable::save(const std::string& file) const {
    if (empty())
        NORDA_THROW("an empty gain table can not be saved to " + file, "norda::vision::GainTable::save");
    writePxmImage(file, m_gain);
}

void GainTable::apply(cv::Mat& frame) const {
    if (frame.type() != CV_16SC1 || frame.size() != size())
        NORDA_THROW(fmt::format("the {}x{} gain table needs a CV_16SC1 frame of its size, not {} {}x{}",
                                size().width, size().height, cv::typeToString(frame.type()), frame.cols,
                                frame.rows),
                    "norda::vision::GainTable::apply");
    const bool whole = frame.isContinuous();
    const int rows = whole ? 1 : frame.rows;
    const size_t n = whole ? frame.total() : size_t(frame.cols);
    for (int r = 0; r < rows; ++r) {
        const int16_t* d = m_correction.data() + size_t(r) * n;
        int16_t* f = frame.ptr<int16_t>(r);
        utils::VectorDispatch::run([&] { return HWY_DYNAMIC_DISPATCH(correctRow)(d, f, n); },
                                   [&](size_t i) {
                                       for (; i < n; ++i)
                                           f[i] = cv::saturate_cast<int16_t>(
                                               f[i] + ((int32_t(f[i]) * d[i] + 16384) >> 15));
                                   });
    }
}

} // namespace norda::vision
#endif
