#include "nordalib/vision/rix/SuperResolution.h"

#include "nordalib/core/exception/Exception.h"

#include <opencv2/imgproc.hpp>

#include <cmath>

namespace norda::vision {

namespace {
constexpr int kMinSide = 16;
constexpr int kRefineSteps = 6;

// dst(x) = src(x + offset): samples `src` at positions moved by `offset`.
cv::Mat sampleMoved(const cv::Mat& src, cv::Point2d offset, int interpolation = cv::INTER_LINEAR) {
    cv::Mat m = (cv::Mat_<double>(2, 3) << 1, 0, offset.x, 0, 1, offset.y);
    cv::Mat dst;
    cv::warpAffine(src, dst, m, src.size(), interpolation | cv::WARP_INVERSE_MAP, cv::BORDER_REFLECT101);
    return dst;
}

cv::Rect interior(cv::Size size, int margin) {
    margin = std::min(margin, std::min(size.width, size.height) / 4);
    return {margin, margin, size.width - 2 * margin, size.height - 2 * margin};
}
} // namespace

SuperResolution::Registration SuperResolution::registerFrame(const cv::Mat& reference,
                                                             const cv::Mat& moving) {
    CV_Assert(reference.type() == CV_32F && moving.type() == CV_32F && reference.size() == moving.size());
    Registration reg;
    cv::Mat window;
    cv::createHanningWindow(window, reference.size(), CV_32F);
    // phaseCorrelate(a, b) reports how far the content of b lies from that of a. Some OpenCV
    // releases apply the window to their inputs in place, so it gets copies.
    reg.shift = cv::phaseCorrelate(reference.clone(), moving.clone(), window, &reg.response);

    // Sub-pixel refinement: Gauss-Newton on sum (moving(x + t) - reference(x))^2. Both images are
    // smoothed alike first, which keeps the shift and tames noise and aliasing in the gradients.
    cv::Mat ref, mov;
    cv::GaussianBlur(reference, ref, cv::Size(0, 0), 1.0);
    cv::GaussianBlur(moving, mov, cv::Size(0, 0), 1.0);
    const cv::Rect inner =
        interior(ref.size(), static_cast<int>(std::ceil(std::abs(reg.shift.x) + std::abs(reg.shift.y))) + 3);
    cv::Mat gx, gy;
    cv::Sobel(ref, gx, CV_32F, 1, 0, 3, 1.0 / 8.0);
    cv::Sobel(ref, gy, CV_32F, 0, 1, 3, 1.0 / 8.0);
    const cv::Mat gxi = gx(inner), gyi = gy(inner);
    const double hxx = gxi.dot(gxi), hxy = gxi.dot(gyi), hyy = gyi.dot(gyi);
    const double det = hxx * hyy - hxy * hxy;
    if (det > 1e-12 * (hxx + hyy) * (hxx + hyy) && det > 0) {
        for (int k = 0; k < kRefineSteps; ++k) {
            cv::Mat diff = sampleMoved(mov, reg.shift)(inner) - ref(inner);
            const double bx = gxi.dot(diff), by = gyi.dot(diff);
            const cv::Point2d d(-(hyy * bx - hxy * by) / det, -(hxx * by - hxy * bx) / det);
            if (std::abs(d.x) > 1.0 || std::abs(d.y) > 1.0)
                break; // far outside the linear range: keep the phase-correlation estimate
            reg.shift += d;
            if (std::abs(d.x) < 1e-3 && std::abs(d.y) < 1e-3)
                break;
        }
    }

    // The residual is measured on the smoothed images: it should reveal objects that moved on
    // their own, not sensor noise, which in a low-contrast scene can rival the contrast.
    cv::Scalar mean, contrast;
    cv::meanStdDev(ref(inner), mean, contrast);
    const cv::Mat residual = sampleMoved(mov, reg.shift)(inner) - ref(inner);
    const double rms = std::sqrt(residual.dot(residual) / static_cast<double>(residual.total()));
    reg.residual = contrast[0] > 0 ? rms / contrast[0] : (rms > 0 ? HUGE_VAL : 0.0);
    return reg;
}

SuperResolution::Result SuperResolution::compute(const std::vector<cv::Mat_<uint16_t>>& frames,
                                                 const Settings& settings) {
    if (frames.size() < 2)
        NORDA_THROW("super-resolution needs at least two frames, got " + std::to_string(frames.size()),
                    "norda::vision::SuperResolution::compute");
    const cv::Size lrSize = frames[0].size();
    for (size_t i = 0; i < frames.size(); ++i) {
        if (frames[i].size() != lrSize || frames[i].type() != CV_16UC1 || frames[i].empty())
            NORDA_THROW("super-resolution frame " + std::to_string(i) +
                            " differs in size or type from frame 0",
                        "norda::vision::SuperResolution::compute");
    }
    if (lrSize.width < kMinSide || lrSize.height < kMinSide)
        NORDA_THROW("super-resolution frames of " + std::to_string(lrSize.width) + " x " +
                        std::to_string(lrSize.height) + " are too small",
                    "norda::vision::SuperResolution::compute");

    Result result;
    std::vector<cv::Mat> lr(frames.size());
    for (size_t i = 0; i < frames.size(); ++i)
        frames[i].convertTo(lr[i], CV_32F);

    result.registrations.resize(frames.size());
    result.registrations[0].response = 1.0;
    double responseSum = 0;
    for (size_t i = 1; i < frames.size(); ++i) {
        const Registration reg = registerFrame(lr[0], lr[i]);
        result.registrations[i] = reg;
        const std::string which = "frame " + std::to_string(i);
        if (std::hypot(reg.shift.x, reg.shift.y) > settings.maxShift)
            result.failure = "motion too large: " + which + " moved by (" + std::to_string(reg.shift.x) +
                             ", " + std::to_string(reg.shift.y) + ") pixels";
        else if (reg.response < settings.minResponse)
            result.failure =
                "unreliable registration of " + which + " (response " + std::to_string(reg.response) + ")";
        else if (reg.residual > settings.maxResidual)
            result.failure =
                "inconsistent motion in " + which + " (residual " + std::to_string(reg.residual) + ")";
        if (!result.failure.empty())
            return result;
        responseSum += reg.response;
    }

    // Fine grid: pixel x of a frame covers fine pixels 2x and 2x + 1, so a shift t of a frame
    // is a shift 2t on the fine grid, and a frame is the fine image moved and box-averaged.
    const cv::Size hrSize(lrSize.width * 2, lrSize.height * 2);
    const double n = static_cast<double>(frames.size());
    cv::Mat hr = cv::Mat::zeros(hrSize, CV_32F);
    for (size_t i = 0; i < frames.size(); ++i) {
        cv::Mat up;
        cv::resize(lr[i], up, hrSize, 0, 0, cv::INTER_CUBIC);
        hr += sampleMoved(up, 2.0 * result.registrations[i].shift) / n;
    }
    cv::Mat sim, err, errUp, correction;
    for (int it = 0; it < settings.iterations; ++it) {
        correction = cv::Mat::zeros(hrSize, CV_32F);
        for (size_t i = 0; i < frames.size(); ++i) {
            const cv::Point2d s = 2.0 * result.registrations[i].shift;
            cv::resize(sampleMoved(hr, -s), sim, lrSize, 0, 0, cv::INTER_AREA);
            cv::subtract(lr[i], sim, err);
            cv::resize(err, errUp, hrSize, 0, 0, cv::INTER_LINEAR);
            correction += sampleMoved(errUp, s);
        }
        hr += correction * (settings.step / n);
    }
    hr.convertTo(result.image, CV_16U); // rounds and saturates
    result.quality = static_cast<float>(responseSum / (n - 1.0));
    return result;
}

} // namespace norda::vision
