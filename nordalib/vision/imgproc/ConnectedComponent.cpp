#include "nordalib/vision/imgproc/ConnectedComponent.h"

#include "nordalib/core/exception/Exception.h"

#include <algorithm>
#include <cstring>
#include <limits>

namespace norda::vision {

template <typename T>
ConnectedComponent<T>::ConnectedComponent(int connectivity, T threshold)
    : m_connectivity(connectivity), m_threshold(threshold) {
    if (connectivity != 8 && connectivity != 4)
        NORDA_THROW("connectivity must be 4 or 8, not " + std::to_string(connectivity),
                    "norda::vision::ConnectedComponent::ConnectedComponent");
}

template <typename T> int ConnectedComponent<T>::find(int run) {
    while (m_parent[run] != run) {
        m_parent[run] = m_parent[m_parent[run]]; // path halving
        run = m_parent[run];
    }
    return run;
}

template <typename T> void ConnectedComponent<T>::collectRuns(const cv::Mat& image) {
    m_runs.clear();
    m_rowStart.assign(size_t(image.rows) + 1, 0);
    const int cols = image.cols;
    m_starts.resize(size_t(cols) + 1);
    m_ends.resize(size_t(cols) + 1);
    for (int r = 0; r < image.rows; ++r) {
        m_rowStart[r] = int(m_runs.size());
        const T* p = image.ptr<T>(r);
        // Run edges are recorded without branches (noise would defeat any branch predictor): every
        // pixel writes its position, and the write index advances only at a start or an end.
        int* starts = m_starts.data();
        int* ends = m_ends.data();
        int ns = 0, ne = 0, prev = 0, x = 0;
        while (x < cols) {
            if constexpr (std::is_same_v<T, uint8_t>) {
                // Blank stretches of a byte mask go eight pixels at a time.
                if (m_threshold == 0 && !prev && x + 8 <= cols) {
                    uint64_t word;
                    std::memcpy(&word, p + x, 8);
                    if (word == 0) {
                        x += 8;
                        continue;
                    }
                }
            }
            const int stop = std::min(cols, x + 8);
            for (; x < stop; ++x) {
                const int f = p[x] > m_threshold;
                starts[ns] = x;
                ns += f & (prev ^ 1);
                ends[ne] = x;
                ne += (f ^ 1) & prev;
                prev = f;
            }
        }
        if (prev)
            ends[ne++] = cols;
        for (int i = 0; i < ns; ++i)
            m_runs.push_back({r, starts[i], ends[i]});
    }
    m_rowStart[image.rows] = int(m_runs.size());
}

template <typename T>
const std::vector<ComponentStats>& ConnectedComponent<T>::compute(const cv::Mat& image, cv::Mat* labels) {
    if (image.type() != cv::DataType<T>::type)
        NORDA_THROW("image of type " + cv::typeToString(image.type()) + ", expected " +
                        cv::typeToString(cv::DataType<T>::type),
                    "norda::vision::ConnectedComponent::compute");
    collectRuns(image);
    const int n = int(m_runs.size());
    m_parent.resize(n);
    for (int i = 0; i < n; ++i)
        m_parent[i] = i;

    // Join each run with the runs of the row above that it touches (two pointers over both rows).
    const int reach = m_connectivity == 8 ? 1 : 0;
    for (int r = 1; r < image.rows; ++r) {
        int a = m_rowStart[r - 1];
        const int aEnd = m_rowStart[r];
        for (int b = m_rowStart[r]; b < m_rowStart[r + 1]; ++b) {
            const Run& cur = m_runs[b];
            while (a < aEnd && m_runs[a].x1 + reach <= cur.x0)
                ++a;
            int rb = b; // root of b's set; the earlier run stays root, so labels follow raster order
            for (int k = a; k < aEnd && m_runs[k].x0 < cur.x1 + reach; ++k) {
                const int ra = find(k);
                if (ra < rb) {
                    m_parent[rb] = ra;
                    rb = ra;
                } else if (ra > rb) {
                    m_parent[ra] = rb;
                }
            }
        }
    }
    // Parents point to earlier runs: one pass in order leaves every run pointing at its root.
    for (int i = 0; i < n; ++i)
        m_parent[i] = m_parent[m_parent[i]];

    // Number the roots in raster order and accumulate each run into its component.
    m_components.clear();
    m_weighted.clear();
    m_labelOfRoot.assign(n, 0);
    std::vector<cv::Vec2d> sumXY;
    for (int i = 0; i < n; ++i) {
        const int root = m_parent[i];
        if (root == i) {
            m_labelOfRoot[i] = int(m_components.size()) + 1;
            ComponentStats c;
            c.label = m_labelOfRoot[i];
            c.min = std::numeric_limits<double>::max();
            c.max = std::numeric_limits<double>::lowest();
            c.box = cv::Rect(m_runs[i].x0, m_runs[i].row, 0, 0);
            m_components.push_back(c);
            m_weighted.push_back({});
            sumXY.push_back({});
        }
        const Run& run = m_runs[i];
        const int index = m_labelOfRoot[root] - 1;
        ComponentStats& c = m_components[index];
        const int len = run.x1 - run.x0;
        c.area += len;
        const int x0 = std::min(c.box.x, run.x0), x1 = std::max(c.box.x + c.box.width, run.x1);
        c.box.x = x0;
        c.box.width = x1 - x0;
        c.box.height = run.row - c.box.y + 1;
        sumXY[index][0] += 0.5 * double(len) * double(run.x0 + run.x1 - 1);
        sumXY[index][1] += double(len) * run.row;
        const T* p = image.ptr<T>(run.row);
        double s = 0.0, sx = 0.0, mn = c.min, mx = c.max;
        for (int x = run.x0; x < run.x1; ++x) {
            const double v = double(p[x]);
            s += v;
            sx += v * x;
            mn = std::min(mn, v);
            mx = std::max(mx, v);
        }
        c.sum += s;
        c.min = mn;
        c.max = mx;
        m_weighted[index][0] += sx;
        m_weighted[index][1] += s * run.row;
    }
    for (size_t i = 0; i < m_components.size(); ++i) {
        auto& c = m_components[i];
        c.centroid = {sumXY[i][0] / c.area, sumXY[i][1] / c.area};
        c.weightedCentroid =
            c.sum != 0.0 ? cv::Point2d(m_weighted[i][0] / c.sum, m_weighted[i][1] / c.sum) : c.centroid;
    }

    if (labels) {
        labels->create(image.size(), CV_32SC1);
        labels->setTo(0);
        for (int i = 0; i < n; ++i) {
            const Run& run = m_runs[i];
            int* row = labels->ptr<int>(run.row);
            std::fill(row + run.x0, row + run.x1, m_labelOfRoot[m_parent[i]]);
        }
    }
    return m_components;
}

template class ConnectedComponent<uint8_t>;
template class ConnectedComponent<uint16_t>;
template class ConnectedComponent<float>;

} // namespace norda::vision
