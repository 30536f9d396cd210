#include "nordalib/vision/calibration/DistortionCalibration.h"

#include "nordalib/core/exception/Exception.h"
#include "nordalib/vision/calibration/CalibrationFile.h"

#include <fmt/format.h>
#include <opencv2/calib3d.hpp>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>

namespace norda::vision {

namespace {
constexpr const char* kFit = "norda::vision::DistortionCalibration::fit";
}

std::vector<cv::Point3f> GridTarget::objectPoints() const {
    std::vector<cv::Point3f> p;
    for (int r = 0; r < points.height; ++r)
        for (int c = 0; c < points.width; ++c) {
            const double x = pattern == Pattern::AsymmetricCircles ? (2 * c + r % 2) * spacing : c * spacing;
            p.emplace_back(static_cast<float>(x), static_cast<float>(r * spacing), 0.0f);
        }
    return p;
}

std::string GridTarget::describe() const {
    return fmt::format("{}x{} {}", points.width, points.height,
                       pattern == Pattern::Chessboard          ? "chessboard"
                       : pattern == Pattern::AsymmetricCircles ? "asymmetric circle grid"
                                                               : "circle grid");
}

cv::Mat DistortionCalibration::stretch(const cv::Mat& image) const {
    if (image.empty() || (image.type() != CV_16UC1 && image.type() != CV_8UC1 && image.type() != CV_8UC3))
        NORDA_THROW("grid views must be CV_16UC1, CV_8UC1 or CV_8UC3 images",
                    "norda::vision::DistortionCalibration::stretch");
    if (image.type() == CV_8UC3) {
        cv::Mat gray;
        cv::cvtColor(image, gray, cv::COLOR_BGR2GRAY);
        return stretch(gray);
    }
    std::vector<uint16_t> v;
    image.reshape(1, 1).convertTo(v, CV_16U);
    auto at = [&](double q) {
        auto it = v.begin() + static_cast<long>(q * double(v.size() - 1));
        std::nth_element(v.begin(), it, v.end());
        return double(*it);
    };
    const double low = at(0.005), high = at(0.995);
    cv::Mat out;
    const double scale = high > low ? 255.0 / (high - low) : 1.0;
    const bool invert = m_target.warmDots && m_target.pattern != GridTarget::Pattern::Chessboard;
    image.convertTo(out, CV_8U, invert ? -scale : scale, invert ? 255.0 + low * scale : -low * scale);
    return out;
}

std::vector<cv::Point2f> DistortionCalibration::findGrid(const GridView& view) const {
    const cv::Mat gray = stretch(view.image);
    std::vector<cv::Point2f> corners;
    bool found;
    switch (m_target.pattern) {
    case GridTarget::Pattern::Chessboard:
        found = cv::findChessboardCorners(gray, m_target.points, corners,
                                          cv::CALIB_CB_ADAPTIVE_THRESH | cv::CALIB_CB_NORMALIZE_IMAGE);
        if (found)
            cv::cornerSubPix(gray, corners, {5, 5}, {-1, -1},
                             {cv::TermCriteria::EPS + cv::TermCriteria::COUNT, 50, 0.01});
        break;
    default: {
        // The grid search's spacing limits are in pixels: a multi-megapixel visual image is
        // searched again at half and a quarter of its size, the centres scaled back.
        const int flags = m_target.pattern == GridTarget::Pattern::AsymmetricCircles
                              ? cv::CALIB_CB_ASYMMETRIC_GRID
                              : cv::CALIB_CB_SYMMETRIC_GRID;
        cv::Mat image = gray;
        float scale = 1.0f;
        while (!(found = cv::findCirclesGrid(image, m_target.points, corners, flags)) && image.cols >= 1200) {
            cv::resize(image, image, {}, 0.5, 0.5, cv::INTER_AREA);
            scale *= 2.0f;
        }
        if (found && scale > 1.0f)
            for (auto& c : corners) // pixel centres: x_full = scale (x + 1/2) - 1/2
                c = (c + cv::Point2f(0.5f, 0.5f)) * scale - cv::Point2f(0.5f, 0.5f);
        break;
    }
    }
    if (!found)
        NORDA_THROW("view " + view.name + ": the " + m_target.describe() + " target was not found",
                    "norda::vision::DistortionCalibration::findGrid");
    return corners;
}

DistortionFit DistortionCalibration::fit(const std::vector<GridView>& views) const {
    if (views.size() < m_settings.minViews)
        NORDA_THROW(
            fmt::format("{} grid views given, at least {} poses needed", views.size(), m_settings.minViews),
            kFit);
    DistortionFit fit;
    fit.size = views.front().image.size();
    for (const auto& v : views) {
        if (v.image.size() != fit.size)
            NORDA_THROW("view " + v.name + " differs in size from " + views.front().name, kFit);
        fit.imagePoints.push_back(findGrid(v));
        if (m_settings.progress)
            m_settings.progress(fmt::format("view {}: {} found", v.name, m_target.describe()));
    }
    const std::vector<std::vector<cv::Point3f>> objectPoints(views.size(), m_target.objectPoints());
    cv::Mat K, dist;
    std::vector<cv::Mat> rvecs, tvecs;
    fit.rmsPx =
        cv::calibrateCamera(objectPoints, fit.imagePoints, fit.size, K, dist, rvecs, tvecs, m_settings.flags);
    fit.cameraMatrix = cv::Matx33d(K);
    dist.reshape(1, 1).convertTo(fit.distCoeffs, CV_64F);
    size_t worst = 0;
    for (size_t i = 0; i < views.size(); ++i) {
        std::vector<cv::Point2f> projected;
        cv::projectPoints(objectPoints[i], rvecs[i], tvecs[i], K, dist, projected);
        double sum = 0;
        for (size_t k = 0; k < projected.size(); ++k) {
            const cv::Point2f d = projected[k] - fit.imagePoints[i][k];
            sum += d.dot(d);
        }
        fit.viewRmsPx.push_back(std::sqrt(sum / double(projected.size())));
        fit.rvecs.emplace_back(rvecs[i]);
        fit.tvecs.emplace_back(tvecs[i]);
        if (fit.viewRmsPx[i] > fit.viewRmsPx[worst])
            worst = i;
    }
    if (!(fit.rmsPx <= m_settings.maxRmsPx))
        NORDA_THROW(
            fmt::format("the lens model leaves {:.2f} px of reprojection residual, more than {:.2f} px; "
                        "worst view {} ({:.2f} px)",
                        fit.rmsPx, m_settings.maxRmsPx, views[worst].name, fit.viewRmsPx[worst]),
            kFit);
    if (m_settings.progress)
        m_settings.progress(
            fmt::format("lens fitted to {} views: reprojection residual {:.3f} px", views.size(), fit.rmsPx));
    return fit;
}

void DistortionCalibration::write(const DistortionFit& fit, const std::string& file) {
    const DistortionTable table = fit.table();
    CalibrationFile::replace(
        file, [&](const std::string& temp) { table.save(temp); },
        [&](const std::string& temp) {
            (void)DistortionTable::load(temp, static_cast<uint16_t>(fit.size.height),
                                        static_cast<uint16_t>(fit.size.width));
        });
}

} // namespace norda::vision
