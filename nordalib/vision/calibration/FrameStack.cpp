#include "nordalib/vision/calibration/FrameStack.h"

#include "nordalib/core/exception/Exception.h"

#include <fmt/format.h>

#include <cmath>

namespace norda::vision {

namespace {
constexpr const char* kFunction = "norda::vision::FrameStack::FrameStack";
}

FrameStack::FrameStack(const std::vector<cv::Mat>& frames, const std::string& name, cv::Rect region,
                       const FrameStackSettings& settings, size_t maxSaturated) {
    if (frames.empty())
        NORDA_THROW("view " + name + " has no frames", kFunction);
    const cv::Mat& first = frames.front();
    if (first.empty() || (first.type() != CV_16UC1 && first.type() != CV_16SC1))
        NORDA_THROW("view " + name + ": frames must be CV_16UC1 raw or CV_16SC1 corrected frames", kFunction);
    for (const auto& f : frames)
        if (f.size() != first.size() || f.type() != first.type())
            NORDA_THROW("view " + name + ": its frames differ in size or type", kFunction);
    if (region.area() == 0)
        region = cv::Rect(cv::Point(), first.size());
    if ((region & cv::Rect(cv::Point(), first.size())) != region)
        NORDA_THROW(fmt::format("view {}: region {}x{}+{}+{} lies outside the {}x{} frame", name,
                                region.width, region.height, region.x, region.y, first.cols, first.rows),
                    kFunction);

    const bool raw = first.type() == CV_16UC1;
    const double low = raw ? 0.0 : -32768.0;
    const double high = raw ? double(settings.fullScale) : 32767.0;
    const size_t n = frames.size();
    cv::Mat saturatedMask(region.size(), CV_8UC1, cv::Scalar(0));
    m_mean = cv::Mat(first.size(), CV_64FC1, cv::Scalar(0));
    std::vector<double> frameMeans;
    cv::Mat f64, previous;
    if (n > 1)
        m_variance = cv::Mat(first.size(), CV_64FC1, cv::Scalar(0));
    for (const auto& f : frames) {
        f.convertTo(f64, CV_64F);
        m_mean += f64;
        const cv::Mat r = f64(region);
        saturatedMask |= (r <= low) | (r >= high);
        frameMeans.push_back(cv::mean(r)[0]);
        if (!previous.empty()) {
            cv::Mat d = f64 - previous;
            m_variance += d.mul(d);
        }
        previous = f64.clone();
    }
    m_mean /= double(n);
    m_saturated = static_cast<size_t>(cv::countNonZero(saturatedMask));
    if (m_saturated > maxSaturated)
        NORDA_THROW(fmt::format("view {}: {} pixels of its region are saturated (at {} or {})", name,
                                m_saturated, low, high),
                    kFunction);

    const cv::Mat regionMean = m_mean(region);
    m_regionMean = cv::mean(regionMean)[0];
    const double pixels = double(region.area());
    if (n == 1) {
        cv::Scalar mean, sd;
        cv::meanStdDev(regionMean, mean, sd);
        m_regionNoise = sd[0] / std::sqrt(pixels);
        return;
    }
    m_variance /= 2.0 * double(n - 1);
    const double pixelVariance = cv::mean(m_variance(region))[0];
    m_regionNoise = std::sqrt(pixelVariance / (pixels * double(n)));
    if (n < 4)
        return;
    // First half against second half of the frames.
    const size_t h = n / 2;
    double a = 0, b = 0;
    for (size_t i = 0; i < h; ++i)
        a += frameMeans[i];
    for (size_t i = n - h; i < n; ++i)
        b += frameMeans[i];
    const double change = (b - a) / double(h);
    const double sigma = std::sqrt(2.0 * pixelVariance / (pixels * double(h)));
    const double limit = std::max(settings.driftSigmas * sigma, settings.minDriftCounts);
    if (std::abs(change) > limit)
        NORDA_THROW(
            fmt::format("view {}: the target drifted during the view: the mean of its frames changed by "
                        "{:.3g} counts, more than the {:.3g} the noise allows",
                        name, change, limit),
            kFunction);
}

} // namespace norda::vision
