#include "nordalib/vision/imgproc/BadPixelDetector.h"

#include "nordalib/core/exception/Exception.h"

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>
#include <vector>

namespace norda::vision {

BadPixelList BadPixelDetector::detect(const cv::Mat& frame, const BadPixelList& known) const {
    if (frame.type() != CV_16UC1 || frame.empty())
        NORDA_THROW("bad pixel detection needs a non-empty CV_16UC1 frame",
                    "norda::vision::BadPixelDetector::detect");
    if (frame.cols > 65535 || frame.rows > 65535)
        NORDA_THROW("frame too large for bad pixel positions", "norda::vision::BadPixelDetector::detect");

    cv::Mat median;
    cv::medianBlur(frame, median, 5);

    // Robust spread of the deviations from the local median, from a histogram of |deviation|.
    std::vector<uint32_t> histogram(65536, 0);
    for (int y = 0; y < frame.rows; ++y) {
        const auto* f = frame.ptr<uint16_t>(y);
        const auto* m = median.ptr<uint16_t>(y);
        for (int x = 0; x < frame.cols; ++x)
            ++histogram[static_cast<size_t>(std::abs(int(f[x]) - int(m[x])))];
    }
    const uint64_t half = (static_cast<uint64_t>(frame.total()) + 1) / 2;
    uint64_t seen = 0;
    int mad = 0;
    for (; mad < 65536; ++mad) {
        seen += histogram[static_cast<size_t>(mad)];
        if (seen >= half)
            break;
    }
    m_lastSigma = std::max(1.4826 * mad, m_settings.minSigma);
    const double limit = m_settings.sigmas * m_lastSigma;

    std::vector<uint8_t> listed(frame.total(), 0);
    for (const auto& p : known)
        if (p.x < frame.cols && p.y < frame.rows)
            listed[static_cast<size_t>(p.y) * frame.cols + p.x] = 1;

    BadPixelList found;
    for (int y = 0; y < frame.rows; ++y) {
        const auto* f = frame.ptr<uint16_t>(y);
        const auto* m = median.ptr<uint16_t>(y);
        for (int x = 0; x < frame.cols; ++x) {
            if (listed[static_cast<size_t>(y) * frame.cols + x])
                continue;
            BadPixelOrigin origin;
            if (f[x] == 0)
                origin = BadPixelOrigin::Dead;
            else if (f[x] >= m_settings.fullScale)
                origin = BadPixelOrigin::Stuck;
            else if (std::abs(int(f[x]) - int(m[x])) > limit)
                origin = BadPixelOrigin::Outlier;
            else
                continue;
            found.push_back({static_cast<uint16_t>(x), static_cast<uint16_t>(y), origin});
        }
    }
    return found;
}

} // namespace norda::vision
