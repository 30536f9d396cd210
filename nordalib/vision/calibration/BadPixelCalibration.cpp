#include "nordalib/vision/calibration/BadPixelCalibration.h"

#include "nordalib/core/exception/Exception.h"
#include "nordalib/vision/calibration/CalibrationFile.h"
#include "nordalib/vision/imgproc/BadPixelMap.h"
#include "nordalib/vision/imgproc/GainTable.h"

#include <fmt/format.h>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>

namespace norda::vision {

namespace {
constexpr const char* kFind = "norda::vision::BadPixelCalibration::find";

double median(const cv::Mat& m) {
    std::vector<double> v;
    m.reshape(1, 1).convertTo(v, CV_64F);
    auto mid = v.begin() + static_cast<long>(v.size() / 2);
    std::nth_element(v.begin(), mid, v.end());
    return *mid;
}

// Deviation of each pixel from its 5 x 5 median and the robust spread of those deviations.
cv::Mat localDeviation(const cv::Mat& values, double floor, double& sigma) {
    cv::Mat v32, local;
    values.convertTo(v32, CV_32F);
    cv::medianBlur(v32, local, 5);
    cv::Mat deviation = v32 - local;
    sigma = std::max(1.4826 * median(cv::abs(deviation)), floor);
    return deviation;
}
} // namespace

BadPixelCalibrationResult BadPixelCalibration::find(const std::vector<FlatFieldView>& views) const {
    if (views.size() < 2)
        NORDA_THROW(fmt::format("{} flat field(s) given, at least two at different temperatures needed",
                                views.size()),
                    kFind);
    const cv::Size size = views.front().frames.empty() ? cv::Size() : views.front().frames.front().size();
    const size_t maxBad = static_cast<size_t>(m_settings.maxBadFraction * size.area());
    std::vector<cv::Mat> means;
    std::vector<double> levels;
    cv::Mat variance(size, CV_64F, cv::Scalar(0));
    bool temporal = true;
    for (const auto& v : views) {
        if (!v.frames.empty() && v.frames.front().size() != size)
            NORDA_THROW("flat field " + v.name + " differs in size from " + views.front().name, kFind);
        const FrameStack stack(v.frames, v.name, {}, m_settings.frames, maxBad);
        means.push_back(stack.mean());
        levels.push_back(median(stack.mean()));
        if (stack.temporalVariance().empty())
            temporal = false;
        else
            variance += stack.temporalVariance();
    }
    const auto [lo, hi] = std::minmax_element(levels.begin(), levels.end());
    if (*hi - *lo < m_settings.minContrastCounts)
        NORDA_THROW(
            fmt::format("flat fields {} and {} differ by {:.1f} counts, at least {} needed to tell each "
                        "pixel's response",
                        views[size_t(lo - levels.begin())].name, views[size_t(hi - levels.begin())].name,
                        *hi - *lo, m_settings.minContrastCounts),
            kFind);

    // Per-pixel least-squares line of the pixel's mean against the view's level.
    double meanLevel = 0, levelVar = 0;
    for (double l : levels)
        meanLevel += l / double(levels.size());
    for (double l : levels)
        levelVar += (l - meanLevel) * (l - meanLevel);
    cv::Mat response(size, CV_64F, cv::Scalar(0));
    for (size_t i = 0; i < means.size(); ++i)
        response += means[i] * ((levels[i] - meanLevel) / levelVar);
    // Offsets show best where the scene adds least: in the coldest field.
    const cv::Mat& level = means[size_t(lo - levels.begin())];

    BadPixelCalibrationResult result;
    result.size = size;
    const cv::Mat responseDev = localDeviation(response, m_settings.minResponseSigma, result.responseSigma);
    const cv::Mat levelDev = localDeviation(level, m_settings.minLevelSigma, result.levelSigma);
    cv::Mat noise;
    double noiseLimit = HUGE_VAL;
    if (temporal) {
        cv::sqrt(variance / double(views.size()), noise);
        noiseLimit = m_settings.noiseFactor * std::max(median(noise), 1e-3);
    }
    const bool raw = views.front().frames.front().type() == CV_16UC1;
    const double fullScale = raw ? double(m_settings.frames.fullScale) : 32767.0;
    for (int y = 0; y < size.height; ++y) {
        for (int x = 0; x < size.width; ++x) {
            BadPixelOrigin origin;
            if (response.at<double>(y, x) < m_settings.deadResponse)
                origin =
                    level.at<double>(y, x) >= fullScale - 0.5 ? BadPixelOrigin::Stuck : BadPixelOrigin::Dead;
            else if (std::abs(responseDev.at<float>(y, x)) > m_settings.sigmas * result.responseSigma ||
                     std::abs(levelDev.at<float>(y, x)) > m_settings.sigmas * result.levelSigma ||
                     (temporal && noise.at<double>(y, x) > noiseLimit))
                origin = BadPixelOrigin::Outlier;
            else
                continue;
            result.pixels.push_back({static_cast<uint16_t>(x), static_cast<uint16_t>(y), origin});
        }
    }
    if (result.pixels.size() > maxBad)
        NORDA_THROW(
            fmt::format("{} bad pixels ({:.2f} % of the sensor), more than {:.2f} %: the fields are not "
                        "flat or the detector is damaged",
                        result.pixels.size(), 100.0 * double(result.pixels.size()) / size.area(),
                        100.0 * m_settings.maxBadFraction),
            kFind);

    cv::Mat good(size, CV_8U, cv::Scalar(1));
    for (const auto& p : result.pixels)
        good.at<uint8_t>(p.y, p.x) = 0;
    response.convertTo(result.gain, CV_32F, 1.0 / cv::mean(response, good)[0]);
    result.gain.setTo(1.0f, good == 0);
    return result;
}

void BadPixelCalibration::write(const BadPixelCalibrationResult& result, const std::string& file) {
    CalibrationFile::replace(
        file, [&](const std::string& temp) { BadPixelMap::write(temp, result.pixels, result.size); },
        [&](const std::string& temp) {
            cv::Size size;
            if (BadPixelMap::read(temp, &size).size() != result.pixels.size() || size != result.size)
                NORDA_THROW("bad pixel table " + temp + " does not read back as written",
                            "norda::vision::BadPixelCalibration::write");
        });
}

void BadPixelCalibration::writeGain(const BadPixelCalibrationResult& result, const std::string& file) {
    const GainTable table(result.gain, "the fitted gains");
    CalibrationFile::replace(
        file, [&](const std::string& temp) { table.save(temp); },
        [&](const std::string& temp) {
            if (cv::norm(GainTable::load(temp).gain(), result.gain, cv::NORM_INF) != 0.0)
                NORDA_THROW("gain table " + temp + " does not read back as written",
                            "norda::vision::BadPixelCalibration::writeGain");
        });
}

} // namespace norda::vision
