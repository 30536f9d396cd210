#include "apps/nordacam/TruthFigures.h"

#include "apps/nordacam/FactoryViews.h"
#include "apps/nordacam/sim/physics/CameraThermal.h"
#include "apps/nordacam/sim/physics/PhysicalCamera.h"

#include "nordalib/vision/radiometry/BoardLag.h"
#include "nordalib/vision/radiometry/ObjectSignal.h"
#include "nordalib/vision/radiometry/RadiometricCalibration.h"
#include "nordalib/vision/radiometry/RadiometricTools.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <map>
#include <vector>

namespace nordacam {

namespace {
namespace phys = sim::physics;
using norda::vision::RadiometricConditions;
using norda::vision::RadiometricTools;
constexpr double kCelsius = 273.15;

struct Stat {
    double sum = 0, worst = 0;
    int n = 0;
    void add(double e) {
        sum += e;
        worst = std::abs(e) > std::abs(worst) ? e : worst;
        ++n;
    }
    double mean() const { return n ? sum / n : 0.0; }
};

std::string verdict(bool met) {
    return met ? "met" : "MISSED";
}

// The scene of the figures: nine plates at 45 °C (emissivity 0.95, 0.6, 0.3 at 1, 5 and 20 m, each
// 40 px wide), the reflector (crumpled foil, emissivity 0.05), a plate of emissivity 0.6 with a
// reference label (0.95), and the hall's two 80 °C discs of 112 and 3.7 px (size of source).
constexpr double kObjectC = 45.0, kPlateC = 50.0, kLabelEmissivity = 0.95, kPlateEmissivity = 0.6;
constexpr double kEmissivities[] = {0.95, 0.6, 0.3};
constexpr double kDistances[] = {1.0, 5.0, 20.0};
constexpr double kShutterPeriodS = 20.0;

phys::PhysicalScene figureScene(double fx) {
    using Shape = phys::SceneSurface::Shape;
    phys::PhysicalScene s;
    auto metres = [&](double px, double d) { return px * d / fx; };
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) {
            const double d = kDistances[i];
            s.surfaces.push_back({fmt::format("e{:.2f} at {:.0f} m", kEmissivities[j], d),
                                  Shape::Rect,
                                  {140.0 + 120.0 * j, 110.0 + 110.0 * i},
                                  metres(40, d),
                                  metres(40, d),
                                  d,
                                  kObjectC,
                                  kEmissivities[j]});
        }
    s.surfaces.push_back(
        {"reflector", Shape::Rect, {520, 110}, metres(50, 2.0), metres(50, 2.0), 2.0, 21.0, 0.05});
    s.surfaces.push_back(
        {"plate", Shape::Rect, {520, 300}, metres(70, 1.0), metres(70, 1.0), 1.0, kPlateC, kPlateEmissivity});
    s.surfaces.push_back({"label",
                          Shape::Rect,
                          {520, 300},
                          metres(20, 1.0),
                          metres(20, 1.0),
                          0.999,
                          kPlateC,
                          kLabelEmissivity});
    const auto hall = phys::PhysicalScene::hall();
    for (const auto& o : hall.surfaces)
        if (o.name.find("hot disc") != std::string::npos) {
            s.surfaces.push_back(o);
            s.surfaces.back().centre.y += 300; // below the plates
        }
    return s;
}
// The camera side of the model as the camera's own sensors read it: at the shutter's last closing
// and now.
// The conditions as the camera's sensors and its board-lag filter read them (lagAtShutterK, lagK).
RadiometricConditions cameraConditions(double lensTransmission, const phys::CameraTemperatures& atShutter,
                                       const phys::CameraTemperatures& t, double lagAtShutterK, double lagK) {
    RadiometricConditions c;
    c.lensTransmission = lensTransmission;
    c.lensK = t.lensC + kCelsius;
    c.shutterK = atShutter.shutterC + kCelsius;
    c.boardShutteringK = atShutter.boardC + kCelsius;
    c.boardCurrentK = t.boardC + kCelsius;
    c.boardSlope = t.boardSlopeKPerMin;
    c.boardLagShutteringK = lagAtShutterK;
    c.boardLagK = lagK;
    return c;
}

// Plates of emissivity 0.95 at 80 °C, 10 and 30 m away in humid summer air (30 °C, 80 %) that
// also fills the surroundings they reflect: the simulator attenuates spectrally, with the lines at
// the band's edges; the chain corrects with its continuum model. Returns the 30 m plate's worst
// corrected error.
constexpr double kAirC = 30.0, kAirHumidity = 0.8, kFarObjectC = 80.0;
constexpr double kAirDistances[] = {10.0, 30.0};

double printAirFigures(phys::PhysicalCamera& camera, phys::CameraThermal& thermal,
                       const std::function<void(double)>& runTo, const norda::vision::BoardLag& lag,
                       const norda::vision::RangeCalibration& range, double lensTransmission, double fx,
                       std::ostream& out) {
    phys::PhysicalScene scene;
    scene.air.temperatureC = kAirC;
    scene.air.relativeHumidity = kAirHumidity;
    scene.reflectedC = kAirC;
    for (double d : kAirDistances)
        scene.surfaces.push_back({fmt::format("{:.0f} m", d),
                                  phys::SceneSurface::Shape::Rect,
                                  {220.0 + 200.0 * (d > 10.0), 240.0},
                                  40 * d / fx,
                                  40 * d / fx,
                                  d,
                                  kFarObjectC,
                                  0.95});
    const auto& lens = camera.distortion();
    Stat plain[2], corrected[2];
    double tau[2] = {1.0, 1.0};
    for (double shutterAt = 620.0; shutterAt < 680.0; shutterAt += kShutterPeriodS) {
        runTo(shutterAt);
        const auto atShutter = thermal.temperatures();
        const double lagAtShutter = lag.value();
        cv::Mat shutter;
        camera.renderShutter(atShutter).convertTo(shutter, CV_64F);
        for (double after : {2.0, 10.0, 19.0}) {
            runTo(shutterAt + after);
            const auto t = thermal.temperatures();
            cv::Mat frame;
            camera.render(scene, t).convertTo(frame, CV_64F);
            const cv::Mat signal = frame - shutter;
            RadiometricConditions c =
                cameraConditions(lensTransmission, atShutter, t, lagAtShutter, lag.value());
            c.emissivity = 0.95;
            c.reflectedK = scene.reflectedC + kCelsius;
            for (int i = 0; i < 2; ++i) {
                const cv::Point2d at = lens.distort(scene.surfaces[i].centre);
                const double s = cv::mean(
                    signal(cv::Rect(int(std::lround(at.x)) - 5, int(std::lround(at.y)) - 5, 11, 11)))[0];
                plain[i].add(RadiometricTools::objectTemperature(range, c, s) - kCelsius - kFarObjectC);
                RadiometricConditions air = c;
                air.distanceM = kAirDistances[i];
                air.airK = kAirC + kCelsius;
                air.humidityPercent = kAirHumidity * 100.0;
                corrected[i].add(RadiometricTools::objectTemperature(range, air, s) - kCelsius - kFarObjectC);
                tau[i] = norda::vision::ObjectSignal::airTransmission(air);
            }
        }
    }
    out << fmt::format("  emissivity 0.95 at {:.0f} °C in air of {:.0f} °C, {:.0f} % (the simulator's air "
                       "spectral, with lines; the chain's continuum only):\n",
                       kFarObjectC, kAirC, kAirHumidity * 100.0);
    for (int i = 0; i < 2; ++i)
        out << fmt::format("    at {:4.1f} m: without air correction mean {:+.2f} K, worst {:+.2f} K; with "
                           "it (model transmission {:.4f}) mean {:+.2f} K, worst {:+.2f} K\n",
                           kAirDistances[i], plain[i].mean(), plain[i].worst, tau[i], corrected[i].mean(),
                           corrected[i].worst);
    return corrected[1].worst;
}

} // namespace

int printTruthFigures(const std::string& calibrationDir, std::ostream& out) {
    const std::string dir = calibrationDir.back() == '/' ? calibrationDir : calibrationDir + "/";
    int missed = 0;
    auto goal = [&](bool met) {
        missed += met ? 0 : 1;
        return verdict(met);
    };
    FactoryViewOptions options;
    options.reduced = true;
    const FactoryViews factory(options);
    out << "\nAgainst the physical simulator's truth (calibration " << dir
        << ", made from its target views):\n";

    for (const auto& c : factory.checkRadiometry(dir + "radiometry.json"))
        out << fmt::format(
            "  radiometry range {} ({:.0f}..{:.0f} °C), {} fresh blackbody views: mean {:+.2f} K, "
            "worst {:+.2f} K (RMS {:.2f} K): goal RMS 0.1 K, worst 0.3 K {}\n",
            c.range, c.bandBottomC, c.bandTopC, c.views, c.meanK, c.worstK, c.rmsK,
            goal(c.rmsK <= 0.1 && std::abs(c.worstK) <= 0.3));

    // The camera switched on in a 21 °C room, the shutter closing every 20 s as the live host's does;
    // frames through the
    // warm-up converted with the fitted radiometry (range 1), the conditions as the camera's own
    // sensors read them, the reflected temperature as measured from the reflector.
    const auto calibration = norda::vision::RadiometricCalibration::load(dir + "radiometry.json");
    const auto& range = calibration.ranges.at(1);
    phys::PhysicalCamera camera(options.camera);
    const auto& lens = camera.distortion();
    const double fx = lens.parameters().fx;
    const auto scene = figureScene(fx);
    const double lensTransmission =
        camera.lensPathRadiance(30.0) / camera.detectorRadiance(30.0); // data sheet
    phys::CameraThermal thermal(options.camera.thermal, options.camera.shutter);
    // The camera's lag filter of its board sensor, fed from switching on as the radiometry element
    // feeds it every frame (once a second here: the filter is exact for a board changing linearly).
    norda::vision::BoardLag lag(range.boardLagTimeConstantS, range.boardLagShare);
    double fed = 0.0;
    auto runTo = [&](double uptimeS) {
        while (fed < uptimeS || !lag.started()) {
            fed = lag.started() ? std::min(fed + 1.0, uptimeS) : 0.0;
            thermal.runTo(fed);
            lag.update(fed, thermal.temperatures().boardC + kCelsius);
        }
    };
    std::map<std::string, Stat> objects;
    Stat reflected, label, bigDisc, smallDisc;
    double boardFrom = 0, boardTo = 0;
    for (double shutterAt = 120.0; shutterAt < 600.0; shutterAt += kShutterPeriodS) {
        runTo(shutterAt);
        const auto atShutter = thermal.temperatures();
        const double lagAtShutter = lag.value();
        cv::Mat shutter;
        camera.renderShutter(atShutter).convertTo(shutter, CV_64F);
        if (shutterAt == 120.0)
            boardFrom = atShutter.boardC;
        for (double after : {2.0, 10.0, 19.0}) {
            runTo(shutterAt + after);
            const auto t = thermal.temperatures();
            boardTo = t.boardC;
            cv::Mat frame;
            camera.render(scene, t).convertTo(frame, CV_64F);
            const cv::Mat corrected = frame - shutter;
            RadiometricConditions c =
                cameraConditions(lensTransmission, atShutter, t, lagAtShutter, lag.value());
            // The signal over the middle of a surface, where the lens puts it on the sensor.
            auto signal = [&](const phys::SceneSurface& s, int half, cv::Point2d offset = {}) {
                const cv::Point2d at = lens.distort(s.centre + offset);
                const cv::Rect box(int(std::lround(at.x)) - half, int(std::lround(at.y)) - half, 2 * half + 1,
                                   2 * half + 1);
                return cv::mean(corrected(box))[0];
            };
            auto temperature = [&](double emissivity, double reflectedK, double s) {
                RadiometricConditions k = c;
                k.emissivity = emissivity;
                k.reflectedK = reflectedK;
                return RadiometricTools::objectTemperature(range, k, s) - kCelsius;
            };
            const auto& all = scene.surfaces;
            auto named = [&](const std::string& n) {
                return *std::find_if(all.begin(), all.end(), [&](const auto& s) { return s.name == n; });
            };
            // A thermographer's reflector: emissivity 1, its apparent temperature is the surroundings'.
            const double reflectedC = temperature(1.0, 293.15, signal(named("reflector"), 7));
            reflected.add(reflectedC - scene.reflectedC);
            const double reflectedK = reflectedC + kCelsius;
            for (int i = 0; i < 9; ++i)
                objects[all[i].name].add(temperature(all[i].emissivity, reflectedK, signal(all[i], 5)) -
                                         kObjectC);
            // The label's temperature with its known emissivity; the plate's emissivity is the one that
            // gives the plate that temperature (bisection: the temperature falls as emissivity rises).
            const double labelC = temperature(kLabelEmissivity, reflectedK, signal(named("label"), 2));
            const double plateSignal = signal(named("plate"), 3, {22.0, 0.0}); // beside the label
            double lo = 0.05, hi = 1.0;
            for (int k = 0; k < 40; ++k) {
                const double mid = (lo + hi) / 2;
                (temperature(mid, reflectedK, plateSignal) > labelC ? lo : hi) = mid;
            }
            label.add((lo + hi) / 2 - kPlateEmissivity);
            // Hot spots: the hottest pixel over each disc.
            auto hottest = [&](const phys::SceneSurface& s) {
                const cv::Point2d at = lens.distort(s.centre);
                const int half = std::max(4, int(s.widthM * fx / s.distance / 2) + 2);
                double best = -1e9;
                for (int y = int(at.y) - half; y <= int(at.y) + half; ++y)
                    for (int x = int(at.x) - half; x <= int(at.x) + half; ++x)
                        best = std::max(best, corrected.at<double>(y, x));
                return temperature(s.emissivity, reflectedK, best) - s.celsius;
            };
            bigDisc.add(temperature(0.95, reflectedK, signal(named("large hot disc"), 5)) - 80.0);
            smallDisc.add(hottest(named("small hot disc")));
        }
    }
    out << fmt::format(
        "  objects at {:.0f} °C from 2 to 10 min after switching on, the board warming from {:.1f} to "
        "{:.1f} °C, the shutter closing every {:.0f} s (air correction off: the scene's air, "
        "{:.0f} °C and {:.0f} %, is in these errors):\n",
        kObjectC, boardFrom, boardTo, kShutterPeriodS, scene.air.temperatureC,
        scene.air.relativeHumidity * 100);
    for (int i = 0; i < 9; ++i) {
        const auto& s = scene.surfaces[i];
        const auto& o = objects[s.name];
        std::string g = "no goal";
        if (s.emissivity >= 0.9 && s.distance <= 2.0)
            g = "goal 0.5 K " + goal(std::abs(o.worst) <= 0.5);
        else if (s.emissivity == 0.6 && s.distance <= 2.0)
            g = "goal 1 K " + goal(std::abs(o.worst) <= 1.0);
        out << fmt::format(
            "    emissivity {:.2f} at {:4.1f} m: mean {:+.2f} K, worst {:+.2f} K ({} frames): {}\n",
            s.emissivity, s.distance, o.mean(), o.worst, o.n, g);
    }
    out << fmt::format(
        "  reflected temperature from the reflector (true {:.1f} °C): mean {:+.2f} K, worst {:+.2f} "
        "K (the foil's own 5 % emission at 21 °C included)\n",
        scene.reflectedC, reflected.mean(), reflected.worst);
    out << fmt::format(
        "  size of source, 80 °C discs at 3 m: 112 px disc mean {:+.2f} K, worst {:+.2f} K; hot spot "
        "of the 3.7 px disc mean {:+.2f} K, worst {:+.2f} K (the lens's blur: shown, not corrected)\n",
        bigDisc.mean(), bigDisc.worst, smallDisc.mean(), smallDisc.worst);
    out << fmt::format(
        "  label emissivity (plate {:.2f}, label {:.2f}): mean error {:+.2f}, worst {:+.2f}: goal "
        "0.03 {}\n",
        kPlateEmissivity, kLabelEmissivity, label.mean(), label.worst, goal(std::abs(label.worst) <= 0.03));

    const double farWorst = printAirFigures(camera, thermal, runTo, lag, range, lensTransmission, fx, out);
    out << fmt::format("    30 m, corrected: goal 1 K {}\n", goal(std::abs(farWorst) <= 1.0));

    const auto d = factory.checkDistortion(dir + "lens1/distort.pxm");
    out << fmt::format(
        "  distortion table against the lens: RMS {:.2f} px, worst {:.2f} px: goal RMS 0.2 px {}\n", d.rmsPx,
        d.worstPx, goal(d.rmsPx <= 0.2));
    const auto rig = factory.checkRegistration(dir + "registration.json", dir + "lens1/distort.pxm");
    Stat reg, laser;
    for (const auto& r : rig) {
        const double distanceGoal = r.distance <= 5.0 ? 3.0 : 6.0;
        out << fmt::format(
            "  at {:4.1f} m: registration mean {:.2f} px, worst {:.2f} px (goal 1 px {}); laser "
            "position {:.2f} px (goal 1 px {}), distance {:+.2f} % (goal {:.0f} % {})\n",
            r.distance, r.meanPx, r.worstPx, goal(r.worstPx <= 1.0), r.laserPx, goal(r.laserPx <= 1.0),
            r.laserDistancePercent, distanceGoal, goal(std::abs(r.laserDistancePercent) <= distanceGoal));
    }
    return missed;
}

} // namespace nordacam
