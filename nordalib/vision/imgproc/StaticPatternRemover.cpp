#include "nordalib/vision/imgproc/StaticPatternRemover.h"

#include "nordalib/core/exception/Exception.h"

#include <algorithm>
#include <cstdlib>

namespace norda::vision {

namespace {
constexpr int kReach = 8;      // neighbours on each side
constexpr int kSampleStep = 4; // every 4th line is measured
constexpr int kMinNeighbours = kReach;

// Residual of one pixel against its same-level neighbours along a line, taken in symmetric pairs
// (i - j, i + j) so that a scene gradient cancels; a pair with a member beyond the threshold (an
// edge) is left out. Where too few pairs remain (next to an edge or the end of the line), one-sided
// linear extrapolations 2 v[i+j] - v[i+2j] from the side that is still level stand in. False when
// the pixel has no level neighbourhood at all.
inline bool residual(const int16_t* line, int i, int n, int stride, int threshold, int32_t& r) {
    auto at = [&](int j) { return static_cast<int32_t>(line[j * stride]); };
    const int32_t c = at(i);
    auto level = [&](int j) { return j >= 0 && j < n && std::abs(at(j) - c) <= threshold; };
    int32_t sum = 0, count = 0;
    for (int j = 1; j <= kReach; ++j) {
        if (level(i - j) && level(i + j)) {
            sum += at(i - j) + at(i + j);
            count += 2;
        }
    }
    if (count < kMinNeighbours) {
        for (int dir : {-1, 1}) {
            for (int j = 1; j <= kReach / 2; ++j) {
                const int k1 = i + dir * j, k2 = i + dir * 2 * j;
                if (level(k1) && level(k2)) {
                    sum += 2 * at(k1) - at(k2);
                    ++count;
                }
            }
        }
        if (count < kMinNeighbours / 2)
            return false;
    }
    r = c * 256 - (sum * 256) / count; // Q8
    return true;
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
    if (out.data == in.data && !in.empty())
        NORDA_THROW("static pattern removal can not work in place",
                    "norda::vision::StaticPatternRemover::process");
    const int threshold = m_threshold, lineLimit = m_lineLimit, frameLimit = m_frameLimit;
    if (threshold <= 0 || lineLimit <= 0 || frameLimit <= 0) {
        reset();
        in.copyTo(out);
        return;
    }
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
    const auto step = static_cast<int>(corrected.step1());
    // Columns: residuals along sampled rows.
    if (cols > 2 * kReach) {
        std::vector<int64_t> sum(static_cast<size_t>(cols), 0);
        std::vector<int32_t> count(static_cast<size_t>(cols), 0);
        for (int y = kSampleStep / 2; y < rows; y += kSampleStep) {
            const int16_t* line = corrected.ptr<int16_t>(y);
            for (int x = 0; x < cols; ++x) {
                int32_t r;
                if (residual(line, x, cols, 1, threshold, r)) {
                    sum[static_cast<size_t>(x)] += r;
                    ++count[static_cast<size_t>(x)];
                }
            }
        }
        const int needed = std::max(1, rows / kSampleStep / 4);
        for (int x = 0; x < cols; ++x) {
            if (count[static_cast<size_t>(x)] < needed)
                continue;
            const int64_t mean = sum[static_cast<size_t>(x)] / count[static_cast<size_t>(x)];
            auto& e = m_column[static_cast<size_t>(x)];
            e = std::clamp<int32_t>(e + static_cast<int32_t>(mean * rate / 256), -limit, limit);
        }
    }
    // Rows: residuals along sampled columns.
    if (rows > 2 * kReach) {
        std::vector<int64_t> sum(static_cast<size_t>(rows), 0);
        std::vector<int32_t> count(static_cast<size_t>(rows), 0);
        const int16_t* base = corrected.ptr<int16_t>(0);
        for (int x = kSampleStep / 2; x < cols; x += kSampleStep) {
            for (int y = 0; y < rows; ++y) {
                int32_t r;
                if (residual(base + x, y, rows, step, threshold, r)) {
                    sum[static_cast<size_t>(y)] += r;
                    ++count[static_cast<size_t>(y)];
                }
            }
        }
        const int needed = std::max(1, cols / kSampleStep / 4);
        for (int y = 0; y < rows; ++y) {
            if (count[static_cast<size_t>(y)] < needed)
                continue;
            const int64_t mean = sum[static_cast<size_t>(y)] / count[static_cast<size_t>(y)];
            auto& e = m_row[static_cast<size_t>(y)];
            e = std::clamp<int32_t>(e + static_cast<int32_t>(mean * rate / 256), -limit, limit);
        }
    }
}

} // namespace norda::vision
