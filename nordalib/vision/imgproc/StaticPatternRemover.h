#pragma once
// StaticPatternRemover: removes the column and row offset patterns ("stripes") that survive the
// offset correction of an uncooled detector (readout amplifiers drifting against each other).
//
// Every frame is corrected with the current pattern estimate; the corrected frame then shows the
// remaining stripes as the difference between a pixel and its horizontal (for columns) or vertical
// (for rows) neighbourhood of +-8 pixels. Neighbours differing from the pixel by more than
// `threshold` counts are left out, and so are pixels with fewer than half their neighbours left:
// scene edges are neither read as stripes nor flattened. The mean residual of each column and row
// (every 16th line sampled) is added to the estimate with the rate 6 / `frameLimit`, so the
// estimate settles within about `frameLimit` frames and follows a drifting pattern with that time
// constant. Components of the estimate slower than a period of 64 pixels are dropped after each
// update: the residuals hardly see them, and the scene's smooth shading (a lens's scatter around a
// warm object) would otherwise push them along frame after frame. `lineLimit` bounds the correction
// of any column or row (counts), so a failure can never subtract more than that. Any parameter <= 0
// turns the filter off and forgets the estimate; the output then shares the input's pixels, no
// copy. The setters may be called from another thread than process().

#include <opencv2/core.hpp>

#include <atomic>
#include <cstdint>
#include <vector>

namespace norda::vision {

class StaticPatternRemover {
public:
    StaticPatternRemover(int threshold, int lineLimit, int frameLimit);

    void setThreshold(int threshold) { m_threshold = threshold; }
    void setLineLimit(int lineLimit) { m_lineLimit = lineLimit; }
    void setFrameLimit(int frameLimit) { m_frameLimit = frameLimit; }
    int threshold() const { return m_threshold; }
    int lineLimit() const { return m_lineLimit; }
    int frameLimit() const { return m_frameLimit; }

    // CV_16SC1 in, CV_16SC1 out (allocated as needed; not the same matrix as `in`).
    void process(const cv::Mat& in, cv::Mat& out);
    void reset();

    // Current estimates in counts (diagnostics).
    std::vector<float> columnPattern() const;
    std::vector<float> rowPattern() const;

private:
    void estimate(const cv::Mat& corrected, int threshold, int lineLimit, int rate);

    std::atomic<int> m_threshold;
    std::atomic<int> m_lineLimit;
    std::atomic<int> m_frameLimit;
    cv::Size m_size;
    std::vector<int32_t> m_column; // Q8 counts
    std::vector<int32_t> m_row;    // Q8 counts
};

} // namespace norda::vision
