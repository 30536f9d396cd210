// FactoryViews' checks: fitted calibration files measured against the simulator's truth (the
// views themselves are written in FactoryViews.cpp).
#include "apps/nordacam/FactoryViews.h"

#include "apps/nordacam/BlackbodyShots.h"
#include "apps/nordacam/sim/physics/PhysicalCamera.h"
#include "apps/nordacam/sim/physics/VisualRig.h"
#include "nordalib/core/exception/Exception.h"
#include "nordalib/vision/imgproc/DistortionTable.h"
#include "nordalib/vision/imgproc/GainTable.h"
#include "nordalib/vision/radiometry/RadiometricCalibration.h"
#include "nordalib/vision/radiometry/RadiometricTools.h"
#include "nordalib/vision/registration/Registration.h"

#include <opencv2/core.hpp>

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

namespace nordacam {

namespace {
namespace phys = sim::physics;
using namespace factory;
constexpr const char* kWhere = "nordacam::FactoryViews";

// 1.4826 x the median absolute deviation: the spread without the bad pixels' weight.
double robustSigma(const cv::Mat& m) {
    std::vector<double> v;
    m.clone().reshape(1, 1).convertTo(v, CV_64F); // a region is not continuous
    auto median = [](std::vector<double>& x) {
        auto mid = x.begin() + static_cast<long>(x.size() / 2);
        std::nth_element(x.begin(), mid, x.end());
        return *mid;
    };
    const double centre = median(v);
    for (double& x : v)
        x = std::abs(x - centre);
    return 1.4826 * median(v);
}

// Sensor pixel the fitted distortion table takes output pixel (x, y) from (bilinear between the
// entries around it).
cv::Point2d tableSource(const norda::vision::DistortionTable& table, int width, int height, cv::Point2d q) {
    auto at = [&](int x, int y) {
        x = std::clamp(x, 0, width - 1);
        y = std::clamp(y, 0, height - 1);
        const auto& e = table.entries()[size_t(y) * width + x];
        const int source = y * width + x + e.offset;
        return cv::Point2d(source % width + (e.w01 + e.w11) / 65536.0,
                           source / width + (e.w10 + e.w11) / 65536.0);
    };
    const int x0 = int(std::floor(q.x)), y0 = int(std::floor(q.y));
    const double fx = q.x - x0, fy = q.y - y0;
    return (1 - fy) * ((1 - fx) * at(x0, y0) + fx * at(x0 + 1, y0)) +
           fy * ((1 - fx) * at(x0, y0 + 1) + fx * at(x0 + 1, y0 + 1));
}
} // namespace

std::vector<RegistrationCheck> FactoryViews::checkRegistration(const std::string& registrationJson,
                                                               const std::string& distortPxm) const {
    const auto reg = norda::vision::Registration::load(registrationJson);
    const auto& d = m_options.camera.detector;
    const auto table =
        norda::vision::DistortionTable::load(distortPxm, uint16_t(d.height), uint16_t(d.width));
    const phys::LensDistortion lens(m_options.camera.distortion);
    const auto& l = m_options.camera.distortion;
    phys::VisualRig rig(m_options.rig);
    const cv::Size ir(d.width, d.height), vis = rig.visualSize();
    // The true infrared sensor pixel of a point, and the sensor pixel the chain takes an undistorted
    // infrared pixel from.
    auto truthIr = [&](const cv::Point3d& p) {
        return lens.distort({l.fx * p.x / p.z + l.cx, l.fy * p.y / p.z + l.cy});
    };
    std::vector<RegistrationCheck> out;
    for (double distance : kCheckDistances) {
        RegistrationCheck c;
        c.distance = distance;
        int n = 0;
        for (int y = 24; y < d.height - 24; y += 36)
            for (int x = 24; x < d.width - 24; x += 36) {
                const cv::Point2d ideal = lens.undistort({double(x), double(y)});
                const cv::Point3d p((ideal.x - l.cx) / l.fx * distance, (ideal.y - l.cy) / l.fy * distance,
                                    distance);
                const cv::Point2d q = reg.visualToInfrared(rig.project(p), distance, vis, ir);
                const double e = cv::norm(tableSource(table, d.width, d.height, q) - truthIr(p));
                c.meanPx += e;
                c.worstPx = std::max(c.worstPx, e);
                ++n;
            }
        c.meanPx /= n;
        phys::RigLaserTruth t;
        const cv::Point2d spot = spotCentre(rig.laserImage(distance, kLaserReflectance, kLaserExposureS, &t));
        const auto fix = reg.laserTriangulation(spot, vis, ir);
        c.laserPx = cv::norm(tableSource(table, d.width, d.height, fix.infrared) - truthIr(t.hit));
        c.laserDistancePercent = 100.0 * (fix.distance - t.hit.z) / t.hit.z;
        out.push_back(c);
        if (m_options.progress)
            m_options.progress(
                fmt::format("registration at {:.1f} m: mean {:.2f} px, worst {:.2f} px; laser {:.2f} "
                            "px, distance {:+.2f} %",
                            distance, c.meanPx, c.worstPx, c.laserPx, c.laserDistancePercent));
    }
    return out;
}

std::vector<RadiometryCheck> FactoryViews::checkRadiometry(const std::string& radiometryJson) const {
    using norda::vision::RadiometricTools;
    const auto calibration = norda::vision::RadiometricCalibration::load(radiometryJson);
    phys::PhysicalCamera camera(m_options.camera);
    const double emissivity = camera.parameters().blackbody.emissivity;
    const cv::Rect region(kRegion[0], kRegion[1], kRegion[2], kRegion[3]);
    std::vector<RadiometryCheck> out;
    for (const auto& band : bandsOf(m_options.ranges)) {
        auto range = calibration.ranges.find(band.range);
        if (range == calibration.ranges.end())
            NORDA_THROW(radiometryJson + " has no range " + std::to_string(band.range), kWhere);
        RadiometryCheck check{band.range, band.bottomC, band.topC};
        double sum = 0, sum2 = 0;
        for (double board : m_options.checkBoardsC)
            for (double blackbody : temperatures(band, m_options.reduced ? 5 : 10, true)) {
                const double warming = check.views % 2 ? kWarmingK / 2 : 0.0;
                const Shot s = shoot(camera, blackbody, board, warming, band.range, 1);
                cv::Mat scene, shutter;
                s.scene.frames.front()(region).convertTo(scene, CV_64F);
                s.shutter.shutter.front()(region).convertTo(shutter, CV_64F);
                const double corrected = cv::mean(scene - shutter)[0];
                // The true blackbody temperature is the simulator's; the rest is the library's model.
                const double error =
                    RadiometricTools::objectTemperature(
                        range->second, conditions(s, emissivity, lensTransmission(camera)), corrected) -
                    (blackbody + kCelsius);
                if (!std::isfinite(error))
                    NORDA_THROW(fmt::format("range {}: a blackbody at {:.1f} °C converts to no temperature",
                                            band.range, blackbody),
                                kWhere);
                ++check.views;
                sum += error;
                sum2 += error * error;
                if (std::abs(error) > std::abs(check.worstK)) {
                    check.worstK = error;
                    check.worstAtC = blackbody;
                    check.worstBoardC = board + warming;
                }
                if (m_options.progress)
                    m_options.progress(
                        fmt::format("range {} check: blackbody {:.1f} °C, board {:.1f} °C: {:+.3f} K",
                                    band.range, blackbody, board + warming, error));
            }
        check.meanK = sum / check.views;
        check.rmsK = std::sqrt(sum2 / check.views);
        out.push_back(check);
    }
    return out;
}

std::vector<GainCheck> FactoryViews::checkGain(const std::string& gainPxm) const {
    const auto table = norda::vision::GainTable::load(gainPxm);
    phys::PhysicalCamera camera(m_options.camera);
    cv::Mat truth = camera.detector().gains() / cv::mean(camera.detector().gains())[0];
    const norda::vision::GainTable trueTable(truth, "the simulator's gains");
    const double gainError = robustSigma(cv::Mat(table.gain() - truth));
    const cv::Rect region(kRegion[0], kRegion[1], kRegion[2], kRegion[3]);
    std::vector<GainCheck> out;
    for (const auto& [blackbody, range] : {std::pair{85.0, 1}, std::pair{300.0, 2}}) {
        phys::BlackbodyView r;
        r.blackbodyC = blackbody;
        r.boardC = m_options.checkBoardsC.front();
        r.range = range;
        r.frames = 2;
        r.shutterFrames = 4;
        const auto view = camera.blackbodyView(r);
        cv::Mat shutter(view.shutter.front().size(), CV_64F, cv::Scalar(0));
        for (const auto& f : view.shutter) {
            cv::Mat f64;
            f.convertTo(f64, CV_64F);
            shutter += f64;
        }
        cv::Mat frame, next;
        view.frames[0].convertTo(frame, CV_64F);
        view.frames[1].convertTo(next, CV_64F);
        cv::Mat corrected;
        cv::Mat(frame - shutter / double(view.shutter.size())).convertTo(corrected, CV_16S);
        cv::Mat gained = corrected.clone(), trulyGained = corrected.clone();
        table.apply(gained);
        trueTable.apply(trulyGained);
        // Counts per kelvin from the simulator: the same view a kelvin warmer.
        r.blackbodyC = blackbody + 1.0;
        r.shutterFrames = 0;
        cv::Mat warmer;
        camera.blackbodyView(r).frames[0](region).convertTo(warmer, CV_64F);
        GainCheck c{blackbody, unsigned(range)};
        c.gainErrorSigma = gainError;
        c.countsPerK = cv::mean(warmer)[0] - (cv::mean(frame(region))[0] + cv::mean(next(region))[0]) / 2.0;
        c.withoutK = robustSigma(corrected(region)) / c.countsPerK;
        c.withK = robustSigma(gained(region)) / c.countsPerK;
        c.trueTableK = robustSigma(trulyGained(region)) / c.countsPerK;
        c.temporalK = robustSigma(cv::Mat(frame(region) - next(region))) / std::sqrt(2.0) *
                      std::sqrt(1.0 + 1.0 / double(view.shutter.size())) / c.countsPerK;
        out.push_back(c);
        if (m_options.progress)
            m_options.progress(fmt::format("gain check: blackbody {:.0f} °C in range {}", blackbody, range));
    }
    return out;
}

DistortionCheck FactoryViews::checkDistortion(const std::string& distortPxm) const {
    const auto& d = m_options.camera.detector;
    const auto table =
        norda::vision::DistortionTable::load(distortPxm, uint16_t(d.height), uint16_t(d.width));
    const phys::LensDistortion lens(m_options.camera.distortion);
    // Each output pixel's source on the sensor (its bilinear weights' centre), taken back to the
    // ideal image through the simulator's own lens model; then the affine map that fits best.
    constexpr int kStep = 8, kEdge = 16; // the table clamps sources beyond the sensor's edge
    std::vector<cv::Point2d> output, ideal;
    for (int y = kEdge; y < d.height - kEdge; y += kStep)
        for (int x = kEdge; x < d.width - kEdge; x += kStep) {
            const auto& e = table.entries()[size_t(y) * d.width + x];
            const int source = y * d.width + x + e.offset;
            const double fx = (e.w01 + e.w11) / 65536.0, fy = (e.w10 + e.w11) / 65536.0;
            output.emplace_back(x, y);
            ideal.push_back(lens.undistort({source % d.width + fx, source / d.width + fy}));
        }
    cv::Mat a(int(output.size()) * 2, 6, CV_64F, cv::Scalar(0)), b(int(output.size()) * 2, 1, CV_64F);
    for (int i = 0; i < int(output.size()); ++i) {
        const double row[3] = {output[i].x, output[i].y, 1.0};
        for (int k = 0; k < 3; ++k) {
            a.at<double>(2 * i, k) = row[k];
            a.at<double>(2 * i + 1, 3 + k) = row[k];
        }
        b.at<double>(2 * i) = ideal[i].x;
        b.at<double>(2 * i + 1) = ideal[i].y;
    }
    cv::Mat m;
    cv::solve(a, b, m, cv::DECOMP_SVD);
    const cv::Mat r = a * m - b;
    DistortionCheck c;
    c.points = unsigned(output.size());
    double sum2 = 0;
    for (int i = 0; i < int(output.size()); ++i) {
        const double e = std::hypot(r.at<double>(2 * i), r.at<double>(2 * i + 1));
        sum2 += e * e;
        c.worstPx = std::max(c.worstPx, e);
    }
    c.rmsPx = std::sqrt(sum2 / c.points);
    return c;
}

} // namespace nordacam
