#include "nordalib/vision/calibration/RegistrationCalibration.h"

#include "nordalib/core/exception/Exception.h"
#include "nordalib/vision/calibration/CalibrationFile.h"

#include <fmt/format.h>
#include <opencv2/calib3d.hpp>
#include <opencv2/imgproc.hpp>

#include <set>

namespace norda::vision {

namespace {
constexpr const char* kFit = "norda::vision::RegistrationCalibration::fit";

CameraModel modelOf(const cv::Matx33d& K, const cv::Mat& dist, cv::Size size) {
    CameraModel m;
    m.size = size;
    m.fx = K(0, 0);
    m.fy = K(1, 1);
    m.cx = K(0, 2);
    m.cy = K(1, 2);
    if (!dist.empty()) {
        const cv::Mat d = dist.reshape(1, 1);
        m.k1 = d.at<double>(0);
        m.k2 = d.at<double>(1);
        m.p1 = d.at<double>(2);
        m.p2 = d.at<double>(3);
        m.k3 = d.total() > 4 ? d.at<double>(4) : 0.0;
    }
    return m;
}
} // namespace

RegistrationCalibration::RegistrationCalibration(GridTarget infraredTarget, GridTarget visualTarget,
                                                 RegistrationCalibrationSettings settings)
    : m_infraredTarget(infraredTarget), m_visualTarget(visualTarget), m_settings(settings) {
    if (infraredTarget.points != visualTarget.points || infraredTarget.spacing != visualTarget.spacing ||
        (infraredTarget.pattern == GridTarget::Pattern::AsymmetricCircles) !=
            (visualTarget.pattern == GridTarget::Pattern::AsymmetricCircles))
        NORDA_THROW("both cameras must see the same target geometry",
                    "norda::vision::RegistrationCalibration::RegistrationCalibration");
}

RegistrationFit RegistrationCalibration::fit(const std::vector<StereoView>& views,
                                             const DistortionFit& infraredLens,
                                             const Registration& laserFrom) const {
    if (views.size() < m_settings.minViews)
        NORDA_THROW(
            fmt::format("{} stereo views given, at least {} poses needed", views.size(), m_settings.minViews),
            kFit);
    if (infraredLens.size.area() == 0)
        NORDA_THROW("the infrared lens is not fitted", kFit);
    DistortionCalibrationSettings lensSettings;
    lensSettings.minViews = m_settings.minViews;
    lensSettings.maxRmsPx = m_settings.maxRmsPx;
    const DistortionCalibration infrared(m_infraredTarget, lensSettings),
        visual(m_visualTarget, lensSettings);

    std::vector<GridView> visualViews;
    std::vector<std::vector<cv::Point2f>> infraredPoints;
    for (const auto& v : views) {
        if (v.infrared.size() != infraredLens.size)
            NORDA_THROW("view " + v.name + ": the infrared image is not of the lens fit's size", kFit);
        // The registration's infrared camera is the undistorted frame: same matrix, no distortion.
        std::vector<cv::Point2f> found = infrared.findGrid({v.name + " (infrared)", v.infrared}), undistorted;
        cv::undistortPoints(found, undistorted, infraredLens.cameraMatrix, infraredLens.distCoeffs,
                            cv::noArray(), infraredLens.cameraMatrix);
        infraredPoints.push_back(undistorted);
        visualViews.push_back({v.name + " (visual)", v.visual});
    }
    const DistortionFit visualLens = visual.fit(visualViews);

    const std::vector<std::vector<cv::Point3f>> objectPoints(views.size(), m_infraredTarget.objectPoints());
    cv::Mat K1(infraredLens.cameraMatrix), D1 = cv::Mat::zeros(1, 5, CV_64F);
    cv::Mat K2(visualLens.cameraMatrix), D2 = visualLens.distCoeffs.clone();
    cv::Mat R, T, E, F;
    RegistrationFit fit;
    fit.visualRmsPx = visualLens.rmsPx;
    fit.stereoRmsPx = cv::stereoCalibrate(objectPoints, infraredPoints, visualLens.imagePoints, K1, D1, K2,
                                          D2, infraredLens.size, R, T, E, F, cv::CALIB_FIX_INTRINSIC);
    if (!(fit.stereoRmsPx <= m_settings.maxRmsPx))
        NORDA_THROW(
            fmt::format("the two cameras' views leave {:.2f} px of stereo residual, more than {:.2f} px "
                        "(did the target move between the two images of a pose?)",
                        fit.stereoRmsPx, m_settings.maxRmsPx),
            kFit);
    // stereoCalibrate: p_visual = R p_infrared + T.
    const cv::Matx33d r(R);
    const cv::Vec3d t(T);
    Registration& reg = fit.registration;
    reg.infrared = modelOf(infraredLens.cameraMatrix, cv::Mat(), infraredLens.size);
    reg.visual = modelOf(visualLens.cameraMatrix, visualLens.distCoeffs, visualLens.size);
    reg.rotation = r.t();
    reg.translation = -(r.t() * t);
    reg.laserOrigin = laserFrom.laserOrigin;
    reg.laserDirection = laserFrom.laserDirection;
    reg.validate("stereo calibration");
    return fit;
}

void RegistrationCalibration::fitLaser(RegistrationFit& fit, const std::vector<LaserSpot>& spots) const {
    constexpr const char* kLaser = "norda::vision::RegistrationCalibration::fitLaser";
    std::set<long> depths;
    for (const auto& s : spots) {
        if (!(s.distance > 0.0))
            NORDA_THROW(fmt::format("laser spot at {:.3f} m: the distance must be positive", s.distance),
                        kLaser);
        depths.insert(std::lround(s.distance * 1000.0));
    }
    if (depths.size() < 3)
        NORDA_THROW(fmt::format("laser spots at {} distinct distances, at least 3 needed", depths.size()),
                    kLaser);
    Registration& reg = fit.registration;
    std::vector<cv::Point3d> points;
    for (const auto& s : spots)
        points.push_back(reg.visualPoint(s.visual, s.distance, reg.visual.size));
    cv::Vec6d line;
    cv::fitLine(points, line, cv::DIST_L2, 0, 1e-9, 1e-9);
    cv::Vec3d d(line[0], line[1], line[2]), p(line[3], line[4], line[5]);
    if (d[2] < 0)
        d = -d;
    fit.laserOffMetres = 0;
    size_t worst = 0;
    for (size_t i = 0; i < points.size(); ++i) {
        const cv::Vec3d q = cv::Vec3d(points[i].x, points[i].y, points[i].z) - p;
        const double off = cv::norm(q - q.dot(d) * d);
        if (off > fit.laserOffMetres) {
            fit.laserOffMetres = off;
            worst = i;
        }
    }
    if (fit.laserOffMetres > m_settings.maxLaserOffMetres)
        NORDA_THROW(
            fmt::format("the laser spot at {:.3f} m lies {:.1f} mm off the line of the others (a wrong "
                        "distance or a spot taken from a reflection?)",
                        spots[worst].distance, fit.laserOffMetres * 1000.0),
            kLaser);
    if (!(d[2] > 0.5))
        NORDA_THROW("the laser spots do not move away from the camera with distance", kLaser);
    reg.laserDirection = d;
    reg.laserOrigin = p - (p[2] / d[2]) * d; // where the ray crosses z = 0
    reg.validate("laser calibration");
}

void RegistrationCalibration::write(const Registration& registration, const std::string& file) {
    CalibrationFile::replace(
        file, [&](const std::string& temp) { registration.save(temp); },
        [](const std::string& temp) { (void)Registration::load(temp); });
}

} // namespace norda::vision
