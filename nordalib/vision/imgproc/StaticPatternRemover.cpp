#include "nordalib/vision/imgproc/StaticPatternRemover.h"
#include "nordalib/core/utils/TargetClones.h"

#include "nordalib/core/exception/Exception.h"

#include <algorithm>
#include <cstdlib>

namespace norda::vision {

namespace {
constexpr int kReach = 8;       // neighbours on each side
constexpr int kSampleStep = 16; // every 16th line is measured
constexpr int kMinNeighbours = kReach;

// Residuals of one contiguous line, added to per-position sums (Q8 counts) and counts.
//
// A pixel's residual is its difference from the mean of its same-level neighbours, taken in
// symmetric pairs (i - j, i + j) so that a scene gradient cancels; a pair with a member more than
// `threshold` away (an edge) is left out. Where fewer than kMinNeighbours remain (next to an edge
// or the end of the line), one-sided linear extrapolations 2 v[i+j] - v[i+2j] from a side that is
// still level stand in. A pixel without a level neighbourhood gives no residual. Each step is a
// branch-free loop over the whole line, so noisy lines cost no mispredictions.
NORDA_TARGET_CLONES_AVX2 void lineResiduals(const int16_t* __restrict v, int n, int threshold,
                                            int64_t* __restrict sum, int32_t* __restrict count) {
    std::vector<int32_t> buffers(3 * static_cast<size_t>(n), 0);
    int32_t* __restrict s = buffers.data();
    int32_t* __restrict k = s + n;
    int32_t* __restrict pairs = k + n;
    for (int j = 1; j <= kReach; ++j) {
        for (int i = j; i + j < n; ++i) {
            const int32_t c = v[i], a = v[i - j], b = v[i + j];
            const int32_t ok = int32_t(std::abs(a - c) <= threshold) & int32_t(std::abs(b - c) <= threshold);
            s[i] += (a + b) & -ok; // masks, not products: no 32-bit multiply in the baseline vector set
            k[i] += ok << 1;
        }
    }
    std::copy(k, k + n, pairs);
    for (int dir : {-1, 1}) {
        for (int j = 1; j <= kReach / 2; ++j) {
            const int lo = dir < 0 ? 2 * j : 0, hi = dir < 0 ? n : n - 2 * j;
            const int step1 = dir * j, step2 = dir * 2 * j;
            for (int i = lo; i < hi; ++i) {
                const int32_t c = v[i], a = v[i + step1], b = v[i + step2];
                const int32_t ok = int32_t(pairs[i] < kMinNeighbours) &
                                   int32_t(std::abs(a - c) <= threshold) &
                                   int32_t(std::abs(b - c) <= threshold);
                s[i] += (2 * a - b) & -ok;
                k[i] += ok;
            }
        }
    }
    for (int i = 0; i < n; ++i) {
        const int32_t ok = int32_t(k[i] >= kMinNeighbours / 2);
        const float mean = static_cast<float>(s[i]) / static_cast<float>(ok ? k[i] : 1);
        const float r = (static_cast<float>(v[i]) - mean) * 256.0f;
        sum[i] += static_cast<int32_t>(r + (r >= 0.0f ? 0.5f : -0.5f)) & -ok;
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
    }
}

} // namespace norda::vision
