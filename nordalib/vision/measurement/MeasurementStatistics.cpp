#include "nordalib/vision/measurement/MeasurementStatistics.h"

#include "nordalib/core/utils/TargetClones.h"
#include "nordalib/vision/radiometry/RadiometricTools.h"

#include <algorithm>

namespace norda::vision {

using exp::MarkedFloat;

namespace {

// Row kernels, built for AVX2 besides the baseline and picked at load time where the compiler
// supports it. Sums are accumulated in 32 bits over chunks of at most 65536 pixels, which cannot
// overflow, and widened per chunk.
#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__)) && !defined(__SANITIZE_ADDRESS__)
#define NORDA_ROW_KERNEL NORDA_TARGET_CLONES_AVX2
#else
#define NORDA_ROW_KERNEL
#endif
constexpr int kChunk = 65536;

NORDA_ROW_KERNEL
void rowMinMaxSum(const unsigned short* p, int width, unsigned short& rowMin, unsigned short& rowMax,
                  uint64_t& rowSum) {
    unsigned short mn = 0xFFFF, mx = 0;
    uint64_t sum = 0;
    for (int x0 = 0; x0 < width; x0 += kChunk) {
        const int x1 = std::min(width, x0 + kChunk);
        uint32_t s = 0;
        for (int x = x0; x < x1; ++x) {
            const unsigned short v = p[x];
            mn = v < mn ? v : mn;
            mx = v > mx ? v : mx;
            s += v;
        }
        sum += s;
    }
    rowMin = mn;
    rowMax = mx;
    rowSum = sum;
}

NORDA_ROW_KERNEL
void rowBandSum(const unsigned short* p, int width, unsigned short lower, unsigned short upper,
                uint64_t& rowSum, uint32_t& rowCount) {
    uint64_t sum = 0;
    uint32_t count = 0;
    for (int x0 = 0; x0 < width; x0 += kChunk) {
        const int x1 = std::min(width, x0 + kChunk);
        uint32_t s = 0, c = 0;
        for (int x = x0; x < x1; ++x) {
            const unsigned short v = p[x];
            const bool in = v > lower && v < upper;
            s += in ? v : 0u;
            c += in ? 1u : 0u;
        }
        sum += s;
        count += c;
    }
    rowSum = sum;
    rowCount = count;
}

// Per-row minimum, maximum and the sum and count of the pixels strictly inside (lower, upper)
// (Band) or of all pixels. A row that lies wholly inside the band, the usual case, needs no
// second look; only rows reaching the band's limits are summed again with the test.
template <bool Band>
void scanRow(const unsigned short* p, int width, unsigned short lower, unsigned short upper,
             unsigned short& rowMin, unsigned short& rowMax, uint64_t& rowSum, uint32_t& rowCount) {
    rowMinMaxSum(p, width, rowMin, rowMax, rowSum);
    rowCount = static_cast<uint32_t>(width);
    if (Band && (rowMin <= lower || rowMax >= upper))
        rowBandSum(p, width, lower, upper, rowSum, rowCount);
}

// Per-row results for the rows of `rect`. One thread: the row kernels run at memory speed, well
// ahead of cv::minMaxLoc plus cv::mean, and a pipeline thread waiting for woken workers on a busy
// camera costs more than it saves. Callers merge the rows in row order.
template <bool Band>
void scanRows(const cv::Mat& img, const cv::Rect& rect, unsigned short lower, unsigned short upper,
              std::vector<unsigned short>& rowMin, std::vector<unsigned short>& rowMax,
              std::vector<uint64_t>& rowSum, std::vector<uint32_t>& rowCount) {
    rowMin.resize(rect.height);
    rowMax.resize(rect.height);
    rowSum.resize(rect.height);
    rowCount.resize(rect.height);
    for (int r = 0; r < rect.height; ++r)
        scanRow<Band>(img.ptr<unsigned short>(rect.y + r) + rect.x, rect.width, lower, upper, rowMin[r],
                      rowMax[r], rowSum[r], rowCount[r]);
}

// First occurrence of `value` in row order inside `rect`, given its per-row extremes.
cv::Point_<unsigned short> firstOccurrence(const cv::Mat& img, const cv::Rect& rect,
                                           const std::vector<unsigned short>& rowExtreme,
                                           unsigned short value) {
    for (int r = 0; r < rect.height; ++r) {
        if (rowExtreme[r] != value)
            continue;
        const unsigned short* p = img.ptr<unsigned short>(rect.y + r) + rect.x;
        for (int c = 0; c < rect.width; ++c)
            if (p[c] == value)
                return {cv::saturate_cast<unsigned short>(rect.x + c),
                        cv::saturate_cast<unsigned short>(rect.y + r)};
    }
    return {0, 0};
}

} // namespace

MeasurementStatistics::Extremes MeasurementStatistics::scanImage(const cv::Mat& img, unsigned short lower,
                                                                 unsigned short upper) {
    Extremes e;
    if (img.rows == 0 || img.cols == 0) {
        e.mean = 32767;
        return e;
    }
    const cv::Rect whole(0, 0, img.cols, img.rows);
    scanRows<true>(img, whole, lower, upper, m_rowMin, m_rowMax, m_rowSum, m_rowCount);

    unsigned short mn = 0xFFFF, mx = 0;
    uint64_t sum = 0, count = 0;
    for (int r = 0; r < img.rows; ++r) {
        mn = std::min(mn, m_rowMin[r]);
        mx = std::max(mx, m_rowMax[r]);
        sum += m_rowSum[r];
        count += m_rowCount[r];
    }
    e.mean =
        count > 0 ? static_cast<unsigned short>(sum / count) : static_cast<unsigned short>((mx + mn) / 2);
    e.cold = firstOccurrence(img, whole, m_rowMin, mn);
    e.hot = firstOccurrence(img, whole, m_rowMax, mx);
    e.minRaw = img.at<unsigned short>(e.cold.y, e.cold.x);
    e.maxRaw = img.at<unsigned short>(e.hot.y, e.hot.x);
    return e;
}

MeasurementStatistics::Extremes MeasurementStatistics::scanArea(const cv::Mat& img, const cv::Rect& rect) {
    std::vector<unsigned short> rowMin, rowMax;
    std::vector<uint64_t> rowSum;
    std::vector<uint32_t> rowCount;
    scanRows<false>(img, rect, 0, 0, rowMin, rowMax, rowSum, rowCount);
    unsigned short mn = 0xFFFF, mx = 0;
    uint64_t sum = 0;
    for (int r = 0; r < rect.height; ++r) {
        mn = std::min(mn, rowMin[r]);
        mx = std::max(mx, rowMax[r]);
        sum += rowSum[r];
    }
    Extremes e;
    e.cold = firstOccurrence(img, rect, rowMin, mn);
    e.hot = firstOccurrence(img, rect, rowMax, mx);
    e.minRaw = mn;
    e.maxRaw = mx;
    const float area =
        static_cast<float>(static_cast<uint64_t>(rect.width) * static_cast<uint64_t>(rect.height));
    e.mean = area > 0 ? static_cast<unsigned short>(static_cast<float>(sum) / area + 0.5f) : 0;
    return e;
}

MeasurementStatistics::Temperature MeasurementStatistics::markValidity(unsigned short raw,
                                                                       const exp::MeasRangeBorders& borders) {
    MarkedFloat t(RadiometricTools::getFloat(raw));
    if (!borders.allValid())
        return Temperature(t, exp::quantity::TemperatureUnit::Celsius);
    // Compared as stored (MarkedFloat drops three mantissa bits), so a value equal to a border
    // counts as inside.
    const float v = t.toFloat();
    if (v > borders.displayTop.toFloat())
        t.setMark(MarkedFloat::OverRange);
    else if (v < borders.displayBottom.toFloat())
        t.setMark(MarkedFloat::UnderRange);
    else if (v > borders.toleranceTop.toFloat())
        t.setMark(MarkedFloat::OutOfTolerance);
    else if (v < borders.toleranceBottom.toFloat())
        t.setMark(MarkedFloat::OutOfTolerance);
    else
        t.setValid();
    return Temperature(t, exp::quantity::TemperatureUnit::Celsius);
}

} // namespace norda::vision
