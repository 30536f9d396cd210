#include "nordalib/vision/imgproc/BadPixelCorrector.h"

#include "nordalib/core/exception/Exception.h"

#include <algorithm>
#include <cmath>

namespace norda::vision {

BadPixelCorrector::BadPixelCorrector(const BadPixelList& list, cv::Size size) : m_size(size) {
    if (size.width <= 0 || size.height <= 0)
        return;
    std::vector<uint8_t> bad(static_cast<size_t>(size.area()), 0);
    for (const auto& p : list)
        if (p.x < size.width && p.y < size.height)
            bad[static_cast<size_t>(p.y) * size.width + p.x] = 1;

    for (int y = 0; y < size.height; ++y) {
        for (int x = 0; x < size.width; ++x) {
            const auto index = static_cast<uint32_t>(y * size.width + x);
            if (!bad[index])
                continue;
            std::vector<std::pair<uint32_t, double>> found;
            for (int r = 1; r <= kMaxRadius && found.empty(); ++r) {
                for (int dy = -r; dy <= r; ++dy) {
                    const int yy = y + dy;
                    if (yy < 0 || yy >= size.height)
                        continue;
                    const int step = (dy == -r || dy == r) ? 1 : 2 * r; // the ring only
                    for (int dx = -r; dx <= r; dx += step) {
                        const int xx = x + dx;
                        if (xx < 0 || xx >= size.width)
                            continue;
                        const auto j = static_cast<uint32_t>(yy * size.width + xx);
                        if (!bad[j])
                            found.emplace_back(j, 1.0 / double(dx * dx + dy * dy));
                    }
                }
            }
            if (found.empty())
                continue;
            double total = 0.0;
            for (const auto& f : found)
                total += f.second;
            Target t{index, static_cast<uint32_t>(m_sources.size()), static_cast<uint32_t>(found.size())};
            uint32_t assigned = 0;
            for (size_t k = 0; k < found.size(); ++k) {
                uint32_t w = k + 1 == found.size()
                                 ? 65536 - assigned
                                 : static_cast<uint32_t>(std::lround(found[k].second / total * 65536.0));
                w = std::min(w, 65536 - assigned);
                assigned += w;
                m_sources.push_back({found[k].first, w});
            }
            m_targets.push_back(t);
        }
    }
}

template <typename T> void BadPixelCorrector::applyT(cv::Mat& frame) const {
    T* data = frame.ptr<T>(0);
    for (const auto& t : m_targets) {
        int64_t sum = 32768;
        for (uint32_t k = t.first; k < t.first + t.count; ++k)
            sum += static_cast<int64_t>(data[m_sources[k].index]) * m_sources[k].weight;
        data[t.index] = static_cast<T>(sum >> 16); // arithmetic shift: floor, so +32768 rounds half up
    }
}

void BadPixelCorrector::apply(cv::Mat& frame) const {
    if (frame.size() != m_size)
        NORDA_THROW("frame size " + std::to_string(frame.cols) + "x" + std::to_string(frame.rows) +
                        " does not match the bad pixel plan's " + std::to_string(m_size.width) + "x" +
                        std::to_string(m_size.height),
                    "norda::vision::BadPixelCorrector::apply");
    if (!frame.isContinuous())
        frame = frame.clone();
    switch (frame.type()) {
    case CV_16UC1:
        applyT<uint16_t>(frame);
        break;
    case CV_16SC1:
        applyT<int16_t>(frame);
        break;
    default:
        NORDA_THROW("bad pixel replacement needs a CV_16UC1 or CV_16SC1 frame",
                    "norda::vision::BadPixelCorrector::apply");
    }
}

} // namespace norda::vision
