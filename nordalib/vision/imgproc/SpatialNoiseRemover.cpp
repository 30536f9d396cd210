#include "nordalib/vision/imgproc/SpatialNoiseRemover.h"
#include "nordalib/core/utils/TargetClones.h"

#include "nordalib/core/exception/Exception.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace norda::vision {

SpatialNoiseRemover::SpatialNoiseRemover(int gain) : m_gain(gain) {}

namespace {
// Weight of a neighbour differing by d: 1 up to |d| = gain, falling linearly to 0 at 2 gain.
inline float weightOf(float d, float gain, float invGain) {
    return std::min(std::max(2.0f * gain - std::fabs(d), 0.0f), gain) * invGain;
}

// c + acc / total, rounded half up (floor written out so that the loop vectorises).
template <typename T> inline T blend(int32_t c, float acc, float total) {
    const float q = acc / total + 0.5f;
    const int32_t t = static_cast<int32_t>(q);
    return static_cast<T>(c + t - int32_t(q < static_cast<float>(t)));
}
// The interior of one row (pixels 1 .. n): each pixel's eight neighbours in registers, in the same
// order as the border code, so both give the same sums. Branch-free, so it vectorises; built for
// AVX2 as well, chosen at load time where the processor has it.
template <typename T>
NORDA_TARGET_CLONES_AVX2 void interiorRow(const T* __restrict up, const T* __restrict mid,
                                          const T* __restrict down, T* __restrict dst, int n, float gain,
                                          float invGain) {
    for (int x = 1; x <= n; ++x) {
        const int32_t c = mid[x];
        float total = 1.0f, acc = 0.0f;
        auto add = [&](int32_t neighbour) {
            const float d = static_cast<float>(neighbour - c);
            const float w = weightOf(d, gain, invGain);
            total += w;
            acc += w * d;
        };
        add(up[x - 1]);
        add(up[x]);
        add(up[x + 1]);
        add(mid[x - 1]);
        add(mid[x + 1]);
        add(down[x - 1]);
        add(down[x]);
        add(down[x + 1]);
        dst[x] = blend<T>(c, acc, total);
    }
}
} // namespace

template <typename T> void SpatialNoiseRemover::run(const cv::Mat& in, cv::Mat& out, int gainValue) const {
    const int rows = in.rows, cols = in.cols;
    const float gain = static_cast<float>(gainValue), invGain = 1.0f / gain;
    // Borders: neighbours replicated from the edge.
    auto generic = [&](int y, int x) {
        const int32_t c = in.ptr<T>(y)[x];
        float t = 1.0f, a = 0.0f;
        for (int dy = -1; dy <= 1; ++dy)
            for (int dx = -1; dx <= 1; ++dx) {
                if (!dy && !dx)
                    continue;
                const float d = static_cast<float>(
                    static_cast<int32_t>(
                        in.ptr<T>(std::clamp(y + dy, 0, rows - 1))[std::clamp(x + dx, 0, cols - 1)]) -
                    c);
                const float w = weightOf(d, gain, invGain);
                t += w;
                a += w * d;
            }
        out.ptr<T>(y)[x] = blend<T>(c, a, t);
    };
    for (int y = 0; y < rows; ++y) {
        if (y == 0 || y == rows - 1 || cols < 3) {
            for (int x = 0; x < cols; ++x)
                generic(y, x);
            continue;
        }
        generic(y, 0);
        interiorRow<T>(in.ptr<T>(y - 1), in.ptr<T>(y), in.ptr<T>(y + 1), out.ptr<T>(y), cols - 2, gain,
                       invGain);
        generic(y, cols - 1);
    }
}

void SpatialNoiseRemover::process(const cv::Mat& in, cv::Mat& out) {
    if (in.type() != CV_16SC1 && in.type() != CV_16UC1)
        NORDA_THROW("spatial noise removal needs a CV_16SC1 or CV_16UC1 frame",
                    "norda::vision::SpatialNoiseRemover::process");
    if (&out == &in && !in.empty())
        NORDA_THROW("spatial noise removal can not work in place",
                    "norda::vision::SpatialNoiseRemover::process");
    const int gain = m_gain;
    if (gain <= 0 || in.empty()) {
        out = in; // nothing to compute: the output shares the input's pixels
        return;
    }
    if (out.data == in.data)
        out.release(); // still sharing the pixels of an earlier pass-through
    out.create(in.size(), in.type());
    if (in.type() == CV_16SC1)
        run<int16_t>(in, out, gain);
    else
        run<uint16_t>(in, out, gain);
}

} // namespace norda::vision
