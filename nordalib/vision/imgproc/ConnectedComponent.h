#pragma once
// ConnectedComponent<T>: labels the connected regions of an image's foreground and measures each.
//
// Foreground: pixels whose value is above `threshold` (0 by default, so every non-zero pixel).
// Per component: area, bounding box, centroid, and statistics of the pixel values (sum, min, max,
// mean and the value-weighted centroid), so a mask whose values carry a strength (the redness of a
// laser spot, say) is labelled and measured in one call.
//
// Algorithm: rows are cut into runs of foreground pixels; runs that touch runs of the row above
// (8- or 4-connectivity) are joined with a union-find over runs, each root being its component's
// first run in raster order. Components are numbered 1, 2, ... in the raster order of their first
// pixel. Work grows with the number of runs,
// not of pixels: a sparse mask costs little more than reading it, and blank stretches of 8-bit
// masks are skipped eight bytes at a time. The label image (CV_32SC1, 0 for background) is only
// written when asked for.

#include <opencv2/core.hpp>

#include <cstdint>
#include <vector>

namespace norda::vision {

struct ComponentStats {
    int label = 0; // 1-based, as in the label image
    int area = 0;  // pixels
    cv::Rect box;  // bounding box
    cv::Point2d centroid;
    double sum = 0.0; // of the pixel values
    double min = 0.0;
    double max = 0.0;
    cv::Point2d weightedCentroid; // centroid weighted by the pixel values (the centroid when they sum to 0)
    double mean() const { return area > 0 ? sum / area : 0.0; }
    double fill() const { return box.area() > 0 ? double(area) / box.area() : 0.0; }
};

template <typename T> class ConnectedComponent {
public:
    // `connectivity`: 8 (diagonal neighbours join) or 4; throws norda::Exception otherwise.
    explicit ConnectedComponent(int connectivity = 8, T threshold = T(0));

    // Labels `image` (one channel of type T) and returns its components in label order. With
    // `labels`, also writes the label image. Throws for an image of another type.
    const std::vector<ComponentStats>& compute(const cv::Mat& image, cv::Mat* labels = nullptr);
    const std::vector<ComponentStats>& components() const { return m_components; }

private:
    struct Run {
        int row, x0, x1; // [x0, x1)
    };
    int find(int run);
    void collectRuns(const cv::Mat& image);

    int m_connectivity;
    T m_threshold;
    std::vector<Run> m_runs;
    std::vector<int> m_rowStart;       // first run of each row, plus one past the last
    std::vector<int> m_starts, m_ends; // run edges of one row
    std::vector<int> m_parent;
    std::vector<int> m_labelOfRoot;
    std::vector<ComponentStats> m_components;
    std::vector<cv::Vec2d> m_weighted; // per component: sum(v x), sum(v y)
};

extern template class ConnectedComponent<uint8_t>;
extern template class ConnectedComponent<uint16_t>;
extern template class ConnectedComponent<float>;

} // namespace norda::vision
