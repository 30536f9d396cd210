#include "nordalib/vision/imgproc/SpatialNoiseRemover.h"

#include "nordalib/core/exception/Exception.h"

#include <algorithm>
#include <cstdlib>

namespace norda::vision {

SpatialNoiseRemover::SpatialNoiseRemover(int gain) : m_gain(gain) {}

void SpatialNoiseRemover::buildTables(int gain) {
    const int span = 2 * gain;
    m_weight.assign(static_cast<size_t>(span) + 1, 0);
    for (int d = 0; d < span; ++d)
        m_weight[static_cast<size_t>(d)] = d <= gain ? 256 : 256 * (span - d) / gain;
    m_reciprocal.assign(9 * 256 + 1, 0);
    for (int w = 256; w <= 9 * 256; ++w)
        m_reciprocal[static_cast<size_t>(w)] = static_cast<int32_t>((int64_t(1) << 24) / w);
    m_tableGain = gain;
}

template <typename T> void SpatialNoiseRemover::run(const cv::Mat& in, cv::Mat& out) const {
    const int rows = in.rows, cols = in.cols;
    const int32_t* weight = m_weight.data();
    const auto last = static_cast<uint32_t>(m_weight.size() - 1);
    const int32_t* reciprocal = m_reciprocal.data();
    std::vector<int> xs(static_cast<size_t>(cols) + 2);
    for (int x = -1; x <= cols; ++x)
        xs[static_cast<size_t>(x + 1)] = std::clamp(x, 0, cols - 1);
    for (int y = 0; y < rows; ++y) {
        const T* lines[3] = {in.ptr<T>(std::max(y - 1, 0)), in.ptr<T>(y),
                             in.ptr<T>(std::min(y + 1, rows - 1))};
        T* dst = out.ptr<T>(y);
        for (int x = 0; x < cols; ++x) {
            const int32_t c = lines[1][x];
            int32_t total = 256;
            int64_t acc = 0;
            for (int dy = 0; dy < 3; ++dy) {
                const T* l = lines[dy];
                for (int k = 0; k < 3; ++k) {
                    if (dy == 1 && k == 1)
                        continue;
                    const int32_t d = static_cast<int32_t>(l[xs[static_cast<size_t>(x + k)]]) - c;
                    const int32_t w = weight[std::min(static_cast<uint32_t>(std::abs(d)), last)];
                    total += w;
                    acc += static_cast<int64_t>(w) * d;
                }
            }
            // c + acc / total, rounded half up.
            const int64_t delta = (acc * reciprocal[total] + (int64_t(1) << 23)) >> 24;
            dst[x] = static_cast<T>(c + delta);
        }
    }
}

void SpatialNoiseRemover::process(const cv::Mat& in, cv::Mat& out) {
    if (in.type() != CV_16SC1 && in.type() != CV_16UC1)
        NORDA_THROW("spatial noise removal needs a CV_16SC1 or CV_16UC1 frame",
                    "norda::vision::SpatialNoiseRemover::process");
    if (out.data == in.data && !in.empty())
        NORDA_THROW("spatial noise removal can not work in place",
                    "norda::vision::SpatialNoiseRemover::process");
    const int gain = m_gain;
    if (gain <= 0 || in.empty()) {
        in.copyTo(out);
        return;
    }
    if (gain != m_tableGain)
        buildTables(gain);
    out.create(in.size(), in.type());
    if (in.type() == CV_16SC1)
        run<int16_t>(in, out);
    else
        run<uint16_t>(in, out);
}

} // namespace norda::vision
