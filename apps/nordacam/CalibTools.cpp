#include "apps/nordacam/CalibTools.h"

#include "apps/nordacam/CalibrationViews.h"
#include "apps/nordacam/FactoryViews.h"
#include "apps/nordacam/RigRegistration.h"
#include "apps/nordacam/Settings.h"
#include "apps/nordacam/sim/SceneSimulator.h"

#include "nordalib/core/keys/DefaultParameters.h"
#include "nordalib/vision/imgproc/BadPixelMap.h"
#include "nordalib/vision/imgproc/DistortionTable.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <map>

namespace nordacam {

namespace fs = std::filesystem;

int calibDistortion(const DistortionParameters& p, const std::string& outFile, std::ostream& out) {
    if (p.fx <= 0 || p.fy <= 0)
        throw SettingsError("the focal lengths must be positive");
    const cv::Mat camera = (cv::Mat_<double>(3, 3) << p.fx, 0, p.cx, 0, p.fy, p.cy, 0, 0, 1);
    const cv::Mat coefficients = (cv::Mat_<double>(1, 5) << p.k1, p.k2, p.p1, p.p2, p.k3);
    const auto table =
        norda::vision::DistortionTable::fromCameraModel(camera, coefficients, cv::Size(p.width, p.height));
    const auto parent = fs::path(outFile).parent_path();
    if (!parent.empty())
        fs::create_directories(parent);
    table.save(outFile);
    out << fmt::format(
        "wrote the {} x {} distortion table (fx {} fy {} cx {} cy {}, k1 {} k2 {} p1 {} p2 {} k3 {}) "
        "to {}\n",
        p.width, p.height, p.fx, p.fy, p.cx, p.cy, p.k1, p.k2, p.p1, p.p2, p.k3, outFile);
    return 0;
}

int calibRegistration(const std::string& outFile, std::ostream& out) {
    const sim::SimulatorConfig config;
    const auto registration = rigRegistration(config.rig, config.lens, cv::Size(config.width, config.height));
    const auto parent = fs::path(outFile).parent_path();
    if (!parent.empty())
        fs::create_directories(parent);
    registration.save(outFile);
    const auto& t = registration.translation;
    out << fmt::format(
        "wrote the registration of the {}x{} infrared and {}x{} visual cameras (baseline {:.1f}, {:.1f}, "
        "{:.1f} mm) and the laser pointer to {}\n",
        config.width, config.height, registration.visual.size.width, registration.visual.size.height,
        t[0] * 1000, t[1] * 1000, t[2] * 1000, outFile);
    return 0;
}

int calibBadPixel(const std::string& outFile, std::ostream& out) {
    norda::exp::DataProxy<std::string> store;
    norda::exp::setDefaultParameters(store);
    const sim::SimulatorConfig config;
    sim::SceneSimulator detector(store, config);
    norda::vision::BadPixelList list;
    for (const auto& p : detector.deadPixels())
        list.push_back(
            {static_cast<uint16_t>(p.x), static_cast<uint16_t>(p.y), norda::vision::BadPixelOrigin::Factory});
    for (const auto& p : detector.stuckPixels())
        list.push_back(
            {static_cast<uint16_t>(p.x), static_cast<uint16_t>(p.y), norda::vision::BadPixelOrigin::Factory});
    norda::vision::BadPixelMap::write(outFile, list, cv::Size(config.width, config.height));
    out << "wrote " << list.size() << " factory bad pixels of the " << config.width << "x" << config.height
        << " detector to " << outFile << "\n";
    return 0;
}

int calibFitRadiometry(const std::string& folder, const std::string& outFile, const std::string& lensesFrom,
                       std::ostream& out, double residualLimitK) {
    norda::vision::RadiometryFitSettings settings;
    if (residualLimitK > 0)
        settings.minResidualLimitK = residualLimitK;
    settings.progress = [&](const std::string& line) { out << line << "\n" << std::flush; };
    const auto views = CalibrationViews::blackbody(folder, settings);
    out << "fitting " << views.size() << " blackbody views\n" << std::flush;
    const auto fits = norda::vision::RadiometryFit(settings).fit(views);
    for (const auto& [range, f] : fits) {
        const auto& p = f.constants.planck;
        out << fmt::format(
            "range {}: R1 {:.6g} B {:.6g} F {:.6g} T0 {:.4g} boardDriftGain {:.4g}{}{}{}{}\n", range, p.R1,
            p.B, p.F, p.T0, f.constants.boardDriftGain,
            f.lagFitted
                ? fmt::format(" boardEmissionGain {:.4g} boardLagGain {:.4g} boardLagTimeConstant {:.1f} s "
                              "boardLagShare {:.3f}",
                              f.constants.boardEmissionGain, f.constants.boardLagGain,
                              f.constants.boardLagTimeConstantS, f.constants.boardLagShare)
                : "",
            f.responsivityFitted
                ? fmt::format(" responsivityExponent {:.4g}", f.constants.responsivityExponent)
                : "",
            f.slopeGainFitted ? fmt::format(" boardSlopeGain {:.4g}", f.constants.boardSlopeGain) : "",
            f.slowFrameGainFitted ? fmt::format(" slowFrameGain {:.5g}", f.constants.slowFrameGain) : "");
        for (const auto& v : f.views)
            out << fmt::format("  {}: {:.2f} °C residual {:+.4f} K (noise {:.4f} K)\n", v.name,
                               v.blackbodyK - 273.15, v.residualK, v.noiseK);
        out << fmt::format(
            "range {}: fit residual RMS {:.2f} K, worst {:.2f} K over {} views ({} iterations)\n", range,
            f.rmsK, f.maxK, f.views.size(), f.iterations);
    }
    std::map<unsigned, norda::vision::LensCalibration> lenses;
    if (!lensesFrom.empty())
        lenses = norda::vision::RadiometricCalibration::load(lensesFrom).lenses;
    // The views were taken through the camera's first lens: its transmission is the one they state
    // (the constants hold for the detector behind it), whatever an older table said.
    const double tau = views.front().conditions.lensTransmission;
    if (tau != 1.0 && std::all_of(views.begin(), views.end(),
                                  [&](const auto& v) { return v.conditions.lensTransmission == tau; })) {
        lenses[1].transmission = tau;
        out << fmt::format("lens 1: transmission {:.4f}, as the views state it\n", tau);
    }
    norda::vision::RadiometryFit::write(norda::vision::RadiometryFit::calibration(fits, lenses), outFile);
    out << "wrote " << outFile << "\n";
    return 0;
}

int calibFitBadPixel(const std::string& folder, const std::string& outFile, std::ostream& out) {
    const auto views = CalibrationViews::flatFields(folder);
    out << "searching " << views.size() << " flat fields\n" << std::flush;
    const auto result = norda::vision::BadPixelCalibration().find(views);
    size_t count[4] = {0, 0, 0, 0};
    for (const auto& p : result.pixels)
        ++count[static_cast<unsigned>(p.origin)];
    out << fmt::format(
        "{} bad pixels: {} dead, {} stuck, {} outliers (response spread {:.4f}, level spread {:.2f} "
        "counts)\n",
        result.pixels.size(), count[1], count[2], count[3], result.responseSigma, result.levelSigma);
    norda::vision::BadPixelCalibration::write(result, outFile);
    out << "wrote " << outFile << "\n";
    return 0;
}

int calibFitGain(const std::string& folder, const std::string& outFile, std::ostream& out) {
    const auto views = CalibrationViews::flatFields(folder);
    out << "fitting the pixels' gains to " << views.size() << " flat fields\n" << std::flush;
    const auto result = norda::vision::BadPixelCalibration().find(views);
    cv::Mat good(result.size, CV_8U, cv::Scalar(255));
    for (const auto& p : result.pixels)
        good.at<uint8_t>(p.y, p.x) = 0;
    cv::Scalar mean, sigma;
    cv::meanStdDev(result.gain, mean, sigma, good);
    double lo, hi;
    cv::minMaxLoc(result.gain, &lo, &hi, nullptr, nullptr, good);
    out << fmt::format(
        "gains of {} pixels: spread {:.4f} (one sigma), {:.4f} .. {:.4f}; {} bad pixels at 1\n",
        result.gain.total() - result.pixels.size(), sigma[0], lo, hi, result.pixels.size());
    norda::vision::BadPixelCalibration::writeGain(result, outFile);
    out << "wrote " << outFile << "\n";
    return 0;
}

int calibFitDistortion(const std::string& folder, const std::string& outFile, std::ostream& out) {
    norda::vision::GridTarget target;
    const auto views = CalibrationViews::grid(folder, target);
    norda::vision::DistortionCalibrationSettings settings;
    settings.progress = [&](const std::string& line) { out << line << "\n" << std::flush; };
    const auto fit = norda::vision::DistortionCalibration(target, settings).fit(views);
    const auto& K = fit.cameraMatrix;
    const cv::Mat d = fit.distCoeffs;
    out << fmt::format("reprojection residual RMS {:.3f} px over {} views (worst view {:.3f} px)\n",
                       fit.rmsPx, views.size(),
                       *std::max_element(fit.viewRmsPx.begin(), fit.viewRmsPx.end()));
    out << fmt::format(
        "fx {:.2f} fy {:.2f} cx {:.2f} cy {:.2f} k1 {:.5f} k2 {:.5f} p1 {:.6f} p2 {:.6f} k3 {:.5f}\n",
        K(0, 0), K(1, 1), K(0, 2), K(1, 2), d.at<double>(0), d.at<double>(1), d.at<double>(2),
        d.at<double>(3), d.at<double>(4));
    norda::vision::DistortionCalibration::write(fit, outFile);
    out << "wrote " << outFile << "\n";
    return 0;
}

int calibFitRegistration(const std::string& folder, const std::string& outFile, std::ostream& out) {
    using namespace norda::vision;
    GridTarget target;
    std::vector<LaserSpot> laser;
    const auto views = CalibrationViews::stereo(folder, target, laser);
    std::vector<GridView> infrared;
    for (const auto& v : views)
        infrared.push_back({v.name + " (infrared)", v.infrared});
    const auto lens = DistortionCalibration(target).fit(infrared);
    out << fmt::format("infrared lens fitted to {} views: reprojection residual {:.3f} px\n", views.size(),
                       lens.rmsPx);
    GridTarget visualTarget = target;
    visualTarget.warmDots = false; // the dots are dark in visible light
    const RegistrationCalibration calibration(target, visualTarget);
    auto fit = calibration.fit(views, lens);
    const auto& r = fit.registration;
    out << fmt::format(
        "visual lens residual {:.3f} px, stereo residual {:.3f} px; baseline {:.4f} {:.4f} {:.4f} m\n",
        fit.visualRmsPx, fit.stereoRmsPx, r.translation[0], r.translation[1], r.translation[2]);
    if (laser.empty()) {
        out << "no laser spots: the laser ray is left straight ahead from the camera\n";
    } else {
        calibration.fitLaser(fit, laser);
        out << fmt::format(
            "laser from {:.4f} {:.4f} {:.4f} m along {:.4f} {:.4f} {:.4f}, spots within {:.2f} mm\n",
            r.laserOrigin[0], r.laserOrigin[1], r.laserOrigin[2], r.laserDirection[0], r.laserDirection[1],
            r.laserDirection[2], fit.laserOffMetres * 1000.0);
    }
    RegistrationCalibration::write(r, outFile);
    out << "wrote " << outFile << "\n";
    return 0;
}

int calibViews(const std::string& kind, const std::string& folder, unsigned seed,
               const std::vector<double>& boardsC, std::ostream& out) {
    FactoryViewOptions options;
    options.camera.detector.seed = seed;
    if (!boardsC.empty())
        options.boardsC = boardsC;
    options.progress = [&](const std::string& line) { out << line << "\n" << std::flush; };
    const FactoryViews views(options);
    if (kind == "radiometry")
        views.radiometry(folder);
    else if (kind == "badpixel")
        views.badPixel(folder);
    else if (kind == "distortion")
        views.distortion(folder);
    else if (kind == "registration")
        views.registration(folder);
    else
        throw SettingsError("view kind \"" + kind +
                            "\" is not radiometry, badpixel, distortion or registration");
    out << "wrote the " << kind << " views to " << folder << "\n";
    return 0;
}

int calibCheck(const std::string& radiometryFile, const std::string& distortionFile, unsigned seed,
               const std::vector<double>& boardsC, std::ostream& out, const std::string& registrationFile,
               const std::string& gainFile) {
    FactoryViewOptions options;
    options.camera.detector.seed = seed;
    if (!boardsC.empty())
        options.checkBoardsC = boardsC;
    options.progress = [&](const std::string& line) { out << line << "\n" << std::flush; };
    constexpr double kRmsGoalK = 0.1, kWorstGoalK = 0.3;
    bool met = true;
    for (const auto& c : FactoryViews(options).checkRadiometry(radiometryFile)) {
        const bool ok = c.rmsK <= kRmsGoalK && std::abs(c.worstK) <= kWorstGoalK;
        met = met && ok;
        out << fmt::format(
            "range {} ({:.0f}..{:.0f} °C), {} fresh views against the simulator's blackbody: mean error "
            "{:+.2f} K, RMS {:.2f} K, worst {:+.2f} K (blackbody {:.1f} °C, board {:.1f} °C): goal RMS <= "
            "{} K, worst <= {} K {}\n",
            c.range, c.bandBottomC, c.bandTopC, c.views, c.meanK, c.rmsK, c.worstK, c.worstAtC, c.worstBoardC,
            kRmsGoalK, kWorstGoalK, ok ? "met" : "MISSED");
    }
    if (!distortionFile.empty()) {
        constexpr double kDistortionGoalPx = 0.2;
        const auto c = FactoryViews(options).checkDistortion(distortionFile);
        const bool ok = c.rmsPx <= kDistortionGoalPx;
        met = met && ok;
        out << fmt::format(
            "distortion table against the simulator's lens over {} points: RMS {:.3f} px, worst "
            "{:.3f} px: goal RMS <= {} px {}\n",
            c.points, c.rmsPx, c.worstPx, kDistortionGoalPx, ok ? "met" : "MISSED");
    }
    if (!registrationFile.empty()) {
        if (distortionFile.empty())
            throw SettingsError(
                "--registration needs --distortion: the registration's infrared camera is the "
                "undistorted frame");
        for (const auto& c : FactoryViews(options).checkRegistration(registrationFile, distortionFile)) {
            const double distanceGoal = c.distance <= 5.0 ? 3.0 : 6.0;
            const bool ok =
                c.worstPx <= 1.0 && c.laserPx <= 1.0 && std::abs(c.laserDistancePercent) <= distanceGoal;
            met = met && ok;
            out << fmt::format(
                "at {:4.1f} m: registration mean {:.2f} px, worst {:.2f} px; laser position {:.2f} "
                "px, distance {:+.2f} %: goal 1 px, 1 px, {:.0f} % {}\n",
                c.distance, c.meanPx, c.worstPx, c.laserPx, c.laserDistancePercent, distanceGoal,
                ok ? "met" : "MISSED");
        }
    }
    // A figure, not a goal: what is left beside the temporal noise is partly no gain at all (the
    // simulator's own gains leave it too).
    if (!gainFile.empty())
        for (const auto& c : FactoryViews(options).checkGain(gainFile))
            out << fmt::format(
                "uniform blackbody at {:.0f} °C (range {}, {:.1f} counts/K), spatial sigma of a frame: "
                "{:.3f} "
                "K without the gain table, {:.3f} K with it, {:.3f} K with the simulator's own gains; the "
                "detector's temporal noise {:.3f} K (fitted gains off the true ones by {:.5f})\n",
                c.blackbodyC, c.range, c.countsPerK, c.withoutK, c.withK, c.trueTableK, c.temporalK,
                c.gainErrorSigma);
    return met ? 0 : 1;
}

} // namespace nordacam
