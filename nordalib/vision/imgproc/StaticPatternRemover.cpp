#include "nordalib/vision/imgproc/StaticPatternRemover.h"

#include "nordalib/core/exception/Exception.h"
#include "nordalib/core/utils/VectorDispatch.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

// The vector kernel is compiled once per instruction set (see ColorConvert.cpp).
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "nordalib/vision/imgproc/StaticPatternRemover.cpp"
#include <hwy/foreach_target.h> // must precede highway.h
#include <hwy/highway.h>

#ifndef NORDA_STATIC_PATTERN_STEPS
#define NORDA_STATIC_PATTERN_STEPS
namespace norda::vision {
namespace {
constexpr int kReach = 8;       // neighbours on each side
constexpr int kSampleStep = 16; // every 16th line is measured
constexpr int kMinNeighbours = kReach;

// A residual compares a pixel with its neighbours within kReach, so an estimate component slower
// than this period is hardly seen by it: such a component is not corrected, only pushed along by
// the scene's own curvature (the lens's scatter around a warm object), without bound.
constexpr int kSlowestPeriod = 8 * kReach;

// Residuals of one contiguous line v[0..n), added to per-position sums (Q8 counts) and counts.
//
// A pixel's residual is its difference from the mean of its same-level neighbours, taken in
// symmetric pairs (i - j, i + j) so that a scene gradient cancels; a pair with a member more than
// `threshold` away (an edge) is left out. Where fewer than kMinNeighbours remain (next to an edge
// or the end of the line), one-sided linear extrapolations 2 v[i+j] - v[i+2j] from a side that is
// still level stand in. A pixel without a level neighbourhood gives no residual. Each step is a
// branch-free pass over the whole line (s: sums of neighbours, k: their number, pairs: k after the
// symmetric pairs), so noisy lines cost no mispredictions. The steps for one pixel, shared by the
// plain loop and the vector kernel's tails:
inline void pairStep(const int16_t* v, int i, int j, int threshold, int32_t* s, int32_t* k) {
    const int32_t c = v[i], a = v[i - j], b = v[i + j];
    const int32_t ok = int32_t(std::abs(a - c) <= threshold) & int32_t(std::abs(b - c) <= threshold);
    s[i] += (a + b) & -ok; // masks, not products: no 32-bit multiply in the baseline vector set
    k[i] += ok << 1;
}
inline void sideStep(const int16_t* v, int i, int step1, int step2, int threshold, const int32_t* pairs,
                     int32_t* s, int32_t* k) {
    const int32_t c = v[i], a = v[i + step1], b = v[i + step2];
    const int32_t ok = int32_t(pairs[i] < kMinNeighbours) & int32_t(std::abs(a - c) <= threshold) &
                       int32_t(std::abs(b - c) <= threshold);
    s[i] += (2 * a - b) & -ok;
    k[i] += ok;
}
// The residual in Q8 and whether there is one.
inline void residualStep(const int16_t* v, int i, const int32_t* s, const int32_t* k, int32_t& residual,
                         int32_t& ok) {
    ok = int32_t(k[i] >= kMinNeighbours / 2);
    const float mean = static_cast<float>(s[i]) / static_cast<float>(ok ? k[i] : 1);
    const float r = (static_cast<float>(v[i]) - mean) * 256.0f;
    residual = static_cast<int32_t>(r + (r >= 0.0f ? 0.5f : -0.5f)) & -ok;
}
} // namespace
} // namespace norda::vision
#endif

HWY_BEFORE_NAMESPACE();
namespace norda::vision {
namespace {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

// The steps on 32-bit lanes, the tails of each pass through the steps above. `buffers` holds 3n
// zeros. False on the scalar baseline, which takes the plain loop.
bool lineResiduals(const int16_t* HWY_RESTRICT v, int n, int threshold, int32_t* HWY_RESTRICT buffers,
                   int64_t* HWY_RESTRICT sum, int32_t* HWY_RESTRICT count) {
#if HWY_TARGET == HWY_SCALAR
    (void)v, (void)n, (void)threshold, (void)buffers, (void)sum, (void)count;
    return false; // the compiler vectorises the plain loop for the baseline instruction set
#else
    const hn::ScalableTag<int32_t> di;
    const hn::Rebind<int16_t, decltype(di)> d16;
    const hn::RebindToFloat<decltype(di)> df;
    const int lanes = static_cast<int>(hn::Lanes(di));
    int32_t* HWY_RESTRICT s = buffers;
    int32_t* HWY_RESTRICT k = s + n;
    int32_t* HWY_RESTRICT pairs = k + n;
    const auto thr = hn::Set(di, threshold);
    auto at = [&](int i) { return hn::PromoteTo(di, hn::LoadU(d16, v + i)); };
    for (int j = 1; j <= kReach; ++j) {
        int i = j;
        for (; i + lanes + j <= n; i += lanes) {
            const auto c = at(i), a = at(i - j), b = at(i + j);
            const auto off = hn::Or(hn::Gt(hn::Abs(hn::Sub(a, c)), thr), hn::Gt(hn::Abs(hn::Sub(b, c)), thr));
            hn::StoreU(hn::Add(hn::LoadU(di, s + i), hn::IfThenZeroElse(off, hn::Add(a, b))), di, s + i);
            hn::StoreU(hn::Add(hn::LoadU(di, k + i), hn::IfThenZeroElse(off, hn::Set(di, 2))), di, k + i);
        }
        for (; i + j < n; ++i)
            pairStep(v, i, j, threshold, s, k);
    }
    std::copy(k, k + n, pairs);
    const auto enough = hn::Set(di, kMinNeighbours - 1);
    for (int dir : {-1, 1}) {
        for (int j = 1; j <= kReach / 2; ++j) {
            const int lo = dir < 0 ? 2 * j : 0, hi = dir < 0 ? n : n - 2 * j;
            const int step1 = dir * j, step2 = dir * 2 * j;
            int i = lo;
            for (; i + lanes <= hi; i += lanes) {
                const auto c = at(i), a = at(i + step1), b = at(i + step2);
                const auto off =
                    hn::Or(hn::Gt(hn::LoadU(di, pairs + i), enough),
                           hn::Or(hn::Gt(hn::Abs(hn::Sub(a, c)), thr), hn::Gt(hn::Abs(hn::Sub(b, c)), thr)));
                const auto extrapolated = hn::Sub(hn::Add(a, a), b);
                hn::StoreU(hn::Add(hn::LoadU(di, s + i), hn::IfThenZeroElse(off, extrapolated)), di, s + i);
                hn::StoreU(hn::Add(hn::LoadU(di, k + i), hn::IfThenZeroElse(off, hn::Set(di, 1))), di, k + i);
            }
            for (; i < hi; ++i)
                sideStep(v, i, step1, step2, threshold, pairs, s, k);
        }
    }
    // Residuals into s, their marks into k, then added to the 64-bit sums.
    int i = 0;
    for (; i + lanes <= n; i += lanes) {
        const auto kv = hn::LoadU(di, k + i);
        const auto ok = hn::Gt(kv, hn::Set(di, kMinNeighbours / 2 - 1));
        const auto mean = hn::Div(hn::ConvertTo(df, hn::LoadU(di, s + i)),
                                  hn::ConvertTo(df, hn::IfThenElse(ok, kv, hn::Set(di, 1))));
        const auto r = hn::Mul(hn::Sub(hn::ConvertTo(df, at(i)), mean), hn::Set(df, 256.0f));
        const auto rounded =
            hn::Add(r, hn::IfThenElse(hn::Lt(r, hn::Zero(df)), hn::Set(df, -0.5f), hn::Set(df, 0.5f)));
        hn::StoreU(hn::IfThenElseZero(ok, hn::ConvertTo(di, rounded)), di, s + i);
        hn::StoreU(hn::IfThenElseZero(ok, hn::Set(di, 1)), di, k + i);
    }
    for (; i < n; ++i) {
        int32_t residual, ok;
        residualStep(v, i, s, k, residual, ok);
        s[i] = residual;
        k[i] = ok;
    }
    for (i = 0; i < n; ++i) {
        sum[i] += s[i];
        count[i] += k[i];
    }
    return true;
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
HWY_EXPORT(lineResiduals);

// Removes the components of an estimate (Q8) slower than kSlowestPeriod, the mean among them:
// what a stripe pattern is made of stays, what the scene's shading put there goes.
void keepStripes(std::vector<int32_t>& estimate, int32_t limit) {
    const int n = static_cast<int>(estimate.size());
    cv::Mat line(1, n, CV_32F), spectrum;
    for (int i = 0; i < n; ++i)
        line.at<float>(0, i) = static_cast<float>(estimate[static_cast<size_t>(i)]);
    cv::dft(line, spectrum); // packed: Re0, Re1, Im1, Re2, Im2, ...
    const int slow = std::min(n, 2 * ((n + kSlowestPeriod - 1) / kSlowestPeriod) - 1);
    spectrum.colRange(0, slow).setTo(0.0f);
    cv::idft(spectrum, line, cv::DFT_SCALE | cv::DFT_REAL_OUTPUT);
    for (int i = 0; i < n; ++i)
        estimate[static_cast<size_t>(i)] =
            std::clamp<int32_t>(static_cast<int32_t>(std::lround(line.at<float>(0, i))), -limit, limit);
}
HWY_EXPORT(targetName);
[[maybe_unused]] const bool kRegistered = utils::VectorDispatch::registerKernel(
    "StaticPatternRemover", [] { return HWY_DYNAMIC_DISPATCH(targetName)(); });

// The residuals of one line (see pairStep): the vector kernel, or these plain loops.
void lineResiduals(const int16_t* __restrict v, int n, int threshold, int64_t* __restrict sum,
                   int32_t* __restrict count) {
    std::vector<int32_t> buffers(3 * static_cast<size_t>(n), 0);
    if (!utils::VectorDispatch::plain() &&
        HWY_DYNAMIC_DISPATCH(lineResiduals)(v, n, threshold, buffers.data(), sum, count))
        return;
    int32_t* __restrict s = buffers.data();
    int32_t* __restrict k = s + n;
    int32_t* __restrict pairs = k + n;
    for (int j = 1; j <= kReach; ++j)
        for (int i = j; i + j < n; ++i)
            pairStep(v, i, j, threshold, s, k);
    std::copy(k, k + n, pairs);
    for (int dir : {-1, 1}) {
        for (int j = 1; j <= kReach / 2; ++j) {
            const int lo = dir < 0 ? 2 * j : 0, hi = dir < 0 ? n : n - 2 * j;
            for (int i = lo; i < hi; ++i)
                sideStep(v, i, dir * j, dir * 2 * j, threshold, pairs, s, k);
        }
    }
    for (int i = 0; i < n; ++i) {
        int32_t residual, ok;
        residualStep(v, i, s, k, residual, ok);
        sum[i] += residual;
        count[i] += ok;
    }
}
} // namespace

StaticPatternRemover::StaticPatternRemover(int threshold, int lineLimit, int frameLimit)
    : m_threshold(threshold), m_lineLimit(lineLimit), m_frameLimit(frameLimit) {}

void StaticPatternRemover::reset() {
    m_size = {};
    m_column.clear();
    m_row.clear();
}

std::vector<float> StaticPatternRemover::columnPattern() const {
    std::vector<float> p(m_column.size());
    std::transform(m_column.begin(), m_column.end(), p.begin(), [](int32_t v) { return v / 256.0f; });
    return p;
}

std::vector<float> StaticPatternRemover::rowPattern() const {
    std::vector<float> p(m_row.size());
    std::transform(m_row.begin(), m_row.end(), p.begin(), [](int32_t v) { return v / 256.0f; });
    return p;
}

void StaticPatternRemover::process(const cv::Mat& in, cv::Mat& out) {
    if (in.type() != CV_16SC1)
        NORDA_THROW("static pattern removal needs a CV_16SC1 frame",
                    "norda::vision::StaticPatternRemover::process");
    if (&out == &in && !in.empty())
        NORDA_THROW("static pattern removal can not work in place",
                    "norda::vision::StaticPatternRemover::process");
    const int threshold = m_threshold, lineLimit = m_lineLimit, frameLimit = m_frameLimit;
    if (threshold <= 0 || lineLimit <= 0 || frameLimit <= 0) {
        reset();
        out = in; // nothing to compute: the output shares the input's pixels
        return;
    }
    if (out.data == in.data)
        out.release(); // still sharing the pixels of an earlier pass-through
    if (in.size() != m_size) {
        m_size = in.size();
        m_column.assign(static_cast<size_t>(in.cols), 0);
        m_row.assign(static_cast<size_t>(in.rows), 0);
    }
    out.create(in.size(), CV_16SC1);
    std::vector<int32_t> colQ(m_column.size());
    for (size_t c = 0; c < colQ.size(); ++c)
        colQ[c] = m_column[c];
    for (int y = 0; y < in.rows; ++y) {
        const int16_t* src = in.ptr<int16_t>(y);
        int16_t* dst = out.ptr<int16_t>(y);
        const int32_t row = m_row[static_cast<size_t>(y)];
        for (int x = 0; x < in.cols; ++x) {
            const int32_t v = src[x] - ((colQ[static_cast<size_t>(x)] + row + 128) >> 8);
            dst[x] = static_cast<int16_t>(std::clamp<int32_t>(v, -32768, 32767));
        }
    }
    // Rate 6 / frameLimit in Q8, at most 1.
    const int rate = std::min(256, (6 * 256 + frameLimit / 2) / frameLimit);
    estimate(out, threshold, lineLimit, std::max(rate, 1));
}

void StaticPatternRemover::estimate(const cv::Mat& corrected, int threshold, int lineLimit, int rate) {
    const int rows = corrected.rows, cols = corrected.cols;
    const int32_t limit = lineLimit * 256;
    auto update = [&](std::vector<int32_t>& estimate, const std::vector<int64_t>& sum,
                      const std::vector<int32_t>& count, int needed) {
        for (size_t i = 0; i < estimate.size(); ++i) {
            if (count[i] < needed)
                continue;
            const int64_t mean = sum[i] / count[i];
            estimate[i] =
                std::clamp<int32_t>(estimate[i] + static_cast<int32_t>(mean * rate / 256), -limit, limit);
        }
    };
    // Columns: residuals along sampled rows.
    if (cols > 2 * kReach) {
        std::vector<int64_t> sum(static_cast<size_t>(cols), 0);
        std::vector<int32_t> count(static_cast<size_t>(cols), 0);
        for (int y = kSampleStep / 2; y < rows; y += kSampleStep)
            lineResiduals(corrected.ptr<int16_t>(y), cols, threshold, sum.data(), count.data());
        update(m_column, sum, count, std::max(1, rows / kSampleStep / 4));
        keepStripes(m_column, limit);
    }
    // Rows: residuals along sampled columns, gathered into contiguous lines first.
    if (rows > 2 * kReach) {
        std::vector<int64_t> sum(static_cast<size_t>(rows), 0);
        std::vector<int32_t> count(static_cast<size_t>(rows), 0);
        const int lines = (cols - kSampleStep / 2 + kSampleStep - 1) / kSampleStep;
        cv::Mat gathered(lines, rows, CV_16S);
        for (int y = 0; y < rows; ++y) {
            const int16_t* src = corrected.ptr<int16_t>(y);
            for (int k = 0; k < lines; ++k)
                gathered.at<int16_t>(k, y) = src[kSampleStep / 2 + k * kSampleStep];
        }
        for (int k = 0; k < lines; ++k)
            lineResiduals(gathered.ptr<int16_t>(k), rows, threshold, sum.data(), count.data());
        update(m_row, sum, count, std::max(1, cols / kSampleStep / 4));
        keepStripes(m_row, limit);
    }
}

} // namespace norda::vision
#endif
