#ifdef NORDACAM_CORE
// The physical simulator against physics computed here with its own constants and published
// figures: nothing expected is taken from the simulator itself.
#include "apps/nordacam/sim/physics/PhysicalCamera.h"
#include "apps/nordacam/sim/physics/Atmosphere.h"
#include "apps/nordacam/sim/physics/LaserSpot.h"
#include "apps/nordacam/sim/physics/Planck.h"

#include "nordalib/core/exception/Exception.h"

#include <gtest/gtest.h>
#include <opencv2/calib3d.hpp>

#include <cmath>

using namespace nordacam::sim::physics;

namespace {

// Textbook radiation constants (radiance form) and the Stefan-Boltzmann constant, CODATA 2018.
constexpr double kC1 = 1.191042972e8; // W um^4 m^-2 sr^-1
constexpr double kC2 = 14387.76877;   // um K
constexpr double kSigma = 5.670374419e-8;
constexpr double kPi = 3.14159265358979;

double planck(double um, double k) {
    return kC1 / std::pow(um, 5) / (std::exp(kC2 / (um * k)) - 1.0);
}

// Simpson's rule over [a, b] with n (even) intervals.
double bandIntegral(double a, double b, double k, int n = 2000) {
    const double h = (b - a) / n;
    double s = planck(a, k) + planck(b, k);
    for (int i = 1; i < n; ++i)
        s += (i % 2 ? 4 : 2) * planck(a + i * h, k);
    return s * h / 3;
}

CameraParameters quietCamera() {
    CameraParameters p;
    auto& d = p.detector;
    d.noise = d.offsetSpread = d.offsetBowl = d.gainSpread = d.columnOffsetSpread = d.columnDriftSpread = 0.0;
    d.offsetPerFpaKSpread = 0.0;
    d.deadPixels = d.stuckPixels = 0;
    return p;
}

double centreMean(const cv::Mat& raw, int half = 20) {
    return cv::mean(raw(cv::Rect(raw.cols / 2 - half, raw.rows / 2 - half, 2 * half, 2 * half)))[0];
}

} // namespace

TEST(PhysicalCamera, RadiationFollowsPlanckStefanBoltzmannAndWien) {
    // Wien's displacement law: the spectral peak at 2897.771955 um K / T.
    for (double k : {300.0, 1000.0}) {
        double best = 0, peak = 0;
        for (double um = 1.0; um < 30.0; um += 0.0005)
            if (const double l = Planck::spectralRadiance(um, k); l > best)
                best = l, peak = um;
        EXPECT_NEAR(peak * k, 2897.771955, 2897.77 * 5e-4) << k;
    }
    // The band widened to the whole spectrum holds sigma T^4 / pi.
    BandParameters wide;
    wide.gridLoUm = 0.3, wide.gridHiUm = 1000.0, wide.gridStepUm = 0.02, wide.cutOnUm = 0.6,
    wide.cutOffUm = 900.0;
    const SpectralBand band(wide);
    const RadianceTable whole(band.grid(), band.response(), {-50.0, 150.0, 25.0});
    for (double c : {-50.0, 0.0, 50.0, 150.0}) { // table nodes: the 25 K steps are for speed
        const double k = c + 273.15;
        EXPECT_NEAR(whole.radiance(c), kSigma * std::pow(k, 4) / kPi, kSigma * std::pow(k, 4) / kPi * 2e-3)
            << c;
    }
    // The camera's 7.5-14 um band with soft edges holds what a sharp band holds (the edges are
    // symmetric about the half-power points), read from its tables between their entries too.
    PhysicalCamera camera(quietCamera());
    for (double c : {-20.0, 0.0, 30.25, 100.0, 150.3}) {
        const double expected = bandIntegral(7.5, 14.0, c + 273.15);
        EXPECT_NEAR(camera.detectorRadiance(c), expected, expected * 2e-3) << c;
    }
}

TEST(PhysicalCamera, AirTransmitsLessOverDistanceAndWithHumidityAndEmitsWhatItAbsorbs) {
    // Saturation vapour pressure, tabulated values (kPa) over water.
    EXPECT_NEAR(Atmosphere::saturationVapourPressureKPa(0.0), 0.6112, 0.001);
    EXPECT_NEAR(Atmosphere::saturationVapourPressureKPa(20.0), 2.339, 0.002);
    EXPECT_NEAR(Atmosphere::saturationVapourPressureKPa(35.0), 5.629, 0.01);

    AirParameters dry, damp;
    dry.relativeHumidity = 0.2;
    damp.relativeHumidity = 0.9;
    const Atmosphere a(dry), b(damp);
    for (double um : {8.0, 10.0, 13.0})
        EXPECT_EQ(a.transmission(um, 0.0), 1.0);
    double previous = 1.0;
    for (double d : {1.0, 10.0, 100.0, 1000.0}) {
        const double t = a.transmission(10.0, d);
        EXPECT_LT(t, previous) << d;
        EXPECT_LT(b.transmission(10.0, d), t) << d;
        EXPECT_LT(b.transmission(7.6, d), b.transmission(10.0, d)) << d; // the band's edge absorbs more
        previous = t;
    }
    // 1 km at 20 C and 50 %: about 0.9 in the 10 um window (continuum), about 0.6 at the water
    // band's edge at 8 um, as low-resolution transmission spectra of such a path show.
    const Atmosphere standard{AirParameters{}};
    EXPECT_GT(standard.transmission(10.0, 1000.0), 0.85);
    EXPECT_LT(standard.transmission(10.0, 1000.0), 0.97);
    EXPECT_GT(standard.transmission(8.0, 1000.0), 0.45);
    EXPECT_LT(standard.transmission(8.0, 1000.0), 0.75);
    // Curve of growth: absorption by saturated lines grows slower than the path (Beer's law would
    // double the optical depth with the distance).
    EXPECT_LT(std::log(standard.transmission(8.0, 2000.0)) / std::log(standard.transmission(8.0, 1000.0)),
              1.9);

    // Kirchhoff: a black body at the air's temperature looks the same at any distance, what the air
    // takes away it gives back; a hot one fades with distance and humidity.
    PhysicalCamera camera(quietCamera());
    auto apparent = [&](double celsius, double distance, double humidity) {
        PhysicalScene s = PhysicalScene::blackbody(celsius, 20.0, {1.0, distance}, {});
        s.air.relativeHumidity = humidity;
        return double(camera.sceneRadiance(s).at<float>(240, 320));
    };
    EXPECT_NEAR(apparent(20.0, 1000.0, 0.9), apparent(20.0, 0.5, 0.9), apparent(20.0, 0.5, 0.9) * 1e-5);
    EXPECT_LT(apparent(80.0, 30.0, 0.5), apparent(80.0, 0.5, 0.5));
    EXPECT_LT(apparent(80.0, 30.0, 0.9), apparent(80.0, 30.0, 0.5));
}

TEST(PhysicalCamera, SmallHotObjectsReadLowerThanLargeOnes) {
    PhysicalCamera camera(quietCamera());
    const CameraTemperatures t;
    PhysicalScene scene;
    scene.backgroundC = 20.0;
    using Shape = SceneSurface::Shape;
    scene.surfaces = {{"large", Shape::Disc, {320, 240}, 0.9, 0.9, 3.0, 80.0, 0.95},
                      {"small", Shape::Disc, {120, 120}, 0.02, 0.02, 3.0, 80.0, 0.95},
                      {"middle", Shape::Disc, {520, 120}, 0.06, 0.06, 3.0, 80.0, 0.95}};
    // Surfaces cover their area: the radiance they add, summed, is their area in pixels times
    // their contrast (a disc of d metres at 3 m is pi (f d / 6)^2 pixels).
    const cv::Mat& ideal = camera.sceneRadiance(scene);
    const double floor = ideal.at<float>(470, 10), disc = ideal.at<float>(240, 320);
    for (auto [centre, metres] :
         {std::pair{cv::Point(120, 120), 0.02}, std::pair{cv::Point(520, 120), 0.06}}) {
        const double area =
            cv::sum(ideal(cv::Rect(centre - cv::Point(10, 10), cv::Size(21, 21))) - floor)[0] /
            (disc - floor);
        const double r = camera.parameters().distortion.fx * metres / 6.0;
        EXPECT_NEAR(area, kPi * r * r, 1.0) << metres; // within an edge pixel
    }
    // The PSF moves radiance, it neither makes nor loses any.
    cv::Mat flat(480, 640, CV_32F, cv::Scalar(50.0)), point(480, 640, CV_32F, cv::Scalar(0.0));
    point.at<float>(200, 300) = 1000.0f;
    camera.optics().blur(flat);
    camera.optics().blur(point);
    EXPECT_NEAR(cv::mean(flat)[0], 50.0, 1e-3);
    EXPECT_NEAR(cv::sum(point)[0], 1000.0, 1.0);
    const cv::Mat raw = camera.render(scene, t);
    auto at = [&](cv::Point2d ideal) {
        const cv::Point2d p = camera.distortion().distort(ideal);
        return double(raw.at<uint16_t>(int(std::lround(p.y)), int(std::lround(p.x))));
    };
    const double background = at({20, 460});
    const double large = at({320, 240}) - background, small = at({120, 120}) - background,
                 middle = at({520, 120}) - background;
    // The PSF's encircled energy at a disc's centre, 1 - exp(-a^2 / 2 sigma^2) for each Gaussian,
    // bounds what a disc of radius a (pixels) keeps; sampling on pixels only takes more.
    const auto& o = camera.parameters().optics;
    auto kept = [&](double metres) {
        const double a = camera.parameters().distortion.fx * metres / 3.0 / 2.0;
        auto e = [a](double sigma) { return 1.0 - std::exp(-a * a / (2 * sigma * sigma)); };
        return (1.0 - o.psfWingFraction) * e(o.psfCoreSigmaPx) + o.psfWingFraction * e(o.psfWingSigmaPx);
    };
    EXPECT_GT(large, 0.0);
    EXPECT_LT(small / large, kept(0.02) / kept(0.9) + 0.005);
    EXPECT_GT(small / large, 0.6);
    EXPECT_LT(middle / large, kept(0.06) / kept(0.9) + 0.005);
    EXPECT_GT(middle / large, small / large);
}

TEST(PhysicalCamera, RawSignalRisesWithSceneAndFallsAsTheCameraWarms) {
    PhysicalCamera camera(quietCamera());
    double previous = -1.0;
    for (double c : {-20.0, 0.0, 20.0, 50.0, 100.0, 150.0}) {
        BlackbodyView v;
        v.blackbodyC = c;
        const double mean = centreMean(camera.blackbodyView(v).frames.at(0));
        EXPECT_GT(mean, previous) << c;
        previous = mean;
    }
    // About 40 counts per kelvin near 30 C in range 1, a quarter in range 2.
    BlackbodyView v;
    v.blackbodyC = 29.5;
    const double low = centreMean(camera.blackbodyView(v).frames.at(0));
    v.blackbodyC = 30.5;
    const double high = centreMean(camera.blackbodyView(v).frames.at(0));
    EXPECT_NEAR(high - low, 40.0, 8.0);
    v.range = 2;
    const double high2 = centreMean(camera.blackbodyView(v).frames.at(0));
    v.blackbodyC = 29.5;
    EXPECT_NEAR(high2 - centreMean(camera.blackbodyView(v).frames.at(0)), (high - low) / 4, 3.0);

    // The bolometer's responsivity follows its film's temperature coefficient, -Ea / (k T^2): a
    // camera 20 K warmer gains ((25 + 1.5 + 273.15) / (45 + 1.5 + 273.15))^2 as much per kelvin.
    auto slopeAt = [&](double board) {
        BlackbodyView w;
        w.boardC = board;
        w.blackbodyC = 20.0;
        const double a = centreMean(camera.blackbodyView(w).frames.at(0));
        w.blackbodyC = 40.0;
        return centreMean(camera.blackbodyView(w).frames.at(0)) - a;
    };
    EXPECT_NEAR(slopeAt(45.0) / slopeAt(25.0), std::pow(299.65 / 319.65, 2), 0.01);

    // With the read-out's own drift switched off, a settled camera that runs warmer reads the same
    // scene lower: the bolometer's own emission grows faster than what housing and optics send.
    CameraParameters p = quietCamera();
    p.detector.offsetPerFpaK = p.detector.offsetPerBoardK = 0.0;
    PhysicalCamera bare(p);
    v = {};
    previous = 1e9;
    for (double board : {25.0, 35.0, 45.0}) {
        v.boardC = board;
        const auto view = bare.blackbodyView(v);
        const double mean = centreMean(view.frames.at(0));
        EXPECT_LT(mean, previous) << board;
        previous = mean;
    }
}

TEST(PhysicalCamera, CameraPartsFollowTheBoardAsFirstOrderLags) {
    // A first-order lag (tau_p) driven by the board's exponential rise (tau_b) has the closed form
    // T(t) = a + share rise (1 - (tau_p e^(-t/tau_p) - tau_b e^(-t/tau_b)) / (tau_p - tau_b)).
    const ThermalParameters p;
    CameraThermal thermal(p, ShutterParameters{});
    for (double t : {60.0, 300.0, 900.0}) {
        thermal.switchOn(t);
        const auto& c = thermal.temperatures();
        auto expected = [&](double share, double tau) {
            const double tb = p.boardTimeConstantS;
            return p.ambientC + share * p.boardRiseK *
                                    (1.0 - (tau * std::exp(-t / tau) - tb * std::exp(-t / tb)) / (tau - tb));
        };
        EXPECT_NEAR(c.boardC, p.ambientC + p.boardRiseK * (1.0 - std::exp(-t / p.boardTimeConstantS)), 1e-9)
            << t;
        EXPECT_NEAR(c.housingC, expected(p.housingShare, p.housingTimeConstantS), 0.05) << t;
        EXPECT_NEAR(c.lensC, expected(p.lensShare, p.lensTimeConstantS), 0.05) << t;
        EXPECT_LT(c.shutterC, c.housingC) << t; // it trails the housing it hangs in
    }
    // A warm-up run delivers its frames in the order asked, each at its moment's temperatures.
    PhysicalCamera camera(quietCamera());
    const WarmUpSequence run = camera.warmUpView({30.0, p.ambientC, 120.0, 1, {300.0, 60.0, 900.0}, 1});
    ASSERT_EQ(run.frames.size(), 3u);
    for (const auto& f : run.frames) {
        thermal.switchOn(f.timeS);
        EXPECT_NEAR(f.temperatures.housingC, thermal.temperatures().housingC, 1e-9) << f.timeS;
    }
    EXPECT_EQ(run.frames[1].timeS, 60.0);
    thermal.switchOn(120.0);
    EXPECT_NEAR(run.shutterTemperatures.shutterC, thermal.temperatures().shutterC, 1e-9);
    thermal.settle(40.0);
    EXPECT_NEAR(thermal.temperatures().shutterC, thermal.temperatures().housingC - 0.5, 1e-9);
}

TEST(PhysicalCamera, HeatedGridLandsWhereOpenCvsLensModelPutsIt) {
    PhysicalCamera camera(quietCamera());
    GridView request;
    request.target.rotationDeg = {15.0, -20.0, 5.0};
    request.target.translation = {0.05, -0.02, 0.8};
    const GridTargetView v = camera.gridView(request);
    const auto& d = camera.parameters().distortion;
    const cv::Matx33d k(d.fx, 0, d.cx, 0, d.fy, d.cy, 0, 0, 1);
    const std::vector<double> dist{d.k1, d.k2, d.p1, d.p2, d.k3};
    std::vector<cv::Point3d> crossings, cells;
    const auto& g = request.target;
    for (int i = 0; i < g.rows; ++i)
        for (int j = 0; j < g.cols; ++j) {
            crossings.push_back(g.crossing(i, j));
            if (i + 1 < g.rows && j + 1 < g.cols) {
                const cv::Point3d a = g.crossing(i, j), b = g.crossing(i + 1, j + 1);
                cells.push_back((a + b) * 0.5);
            }
        }
    std::vector<cv::Point2d> atCrossings, atCells;
    cv::projectPoints(crossings, cv::Vec3d(), cv::Vec3d(), k, dist, atCrossings);
    cv::projectPoints(cells, cv::Vec3d(), cv::Vec3d(), k, dist, atCells);
    ASSERT_EQ(v.sensor.size(), atCrossings.size());
    const cv::Mat& raw = v.view.frames.at(0);
    auto at = [&](cv::Point2d p) {
        return double(raw.at<uint16_t>(int(std::lround(p.y)), int(std::lround(p.x))));
    };
    double hot = 0, cold = 0;
    for (size_t i = 0; i < atCrossings.size(); ++i) {
        EXPECT_NEAR(v.sensor[i].x, atCrossings[i].x, 0.01);
        EXPECT_NEAR(v.sensor[i].y, atCrossings[i].y, 0.01);
        hot += at(atCrossings[i]) / double(atCrossings.size());
    }
    for (const auto& p : atCells)
        cold += at(p) / double(atCells.size());
    // 45 C stripes on a 21 C board at about 40 counts/K, blurred by the PSF: well above the cells.
    EXPECT_GT(hot - cold, 400.0);

    // Warm dots instead of stripes: each covers its disc, pi (f r / z)^2 pixels when facing the camera.
    GridTarget dots;
    dots.dotRadius = 0.01;
    dots.translation = {0.0, 0.0, 0.7};
    double area = 0;
    for (int y = 0; y < 480; ++y)
        for (int x = 0; x < 640; ++x) {
            float board, warm;
            dots.coverage(float(x), float(y), d.fx, d.fy, d.cx, d.cy, board, warm);
            area += warm;
        }
    const double r = d.fx * dots.dotRadius / 0.7;
    EXPECT_NEAR(area / (dots.rows * dots.cols), kPi * r * r, 1.0);
}

TEST(PhysicalCamera, LaserSpotCollectsWhatALambertianReflectorSendsIntoTheAperture) {
    // A matt surface sends rho P cos(t) / pi per steradian at the angle t off its normal; the
    // aperture (diameter f / N, f = fx times the pixel pitch), seen at t from r metres away,
    // spans pi (f / 2N)^2 cos(t) / r^2 steradians.
    LaserParameters laser;
    laser.direction = {0.25, 0.0, 1.0}; // a tilted beam: an elongated footprint, the same power
    VisualSensorParameters sensor;
    sensor.speckle = false;
    LaserSpot spot(laser, sensor);
    const double f = sensor.lens.fx * sensor.pixelPitchM;
    const double photon = 6.62607015e-34 * 299792458.0 / (laser.wavelengthUm * 1e-6);
    for (auto [depth, rho] : {std::pair{2.0, 0.8}, std::pair{6.0, 0.8}, std::pair{6.0, 0.2}}) {
        LaserSpotTruth truth;
        const cv::Mat e = spot.electrons(depth, rho, &truth);
        const double ambient = e.at<float>(0, 0);
        const double r = cv::norm(truth.hit), cosT = truth.hit.z / r;
        const double collected =
            rho * laser.powerW * cosT / kPi * kPi * std::pow(f / (2 * sensor.fNumber), 2) * cosT / (r * r);
        const double expected = collected * sensor.exposureS / photon * sensor.quantumEfficiency;
        EXPECT_NEAR(cv::sum(e - ambient)[0], expected, 0.02 * expected) << depth << " " << rho;
        // The hit point lies on the beam at the surface's depth, and its image where OpenCV's lens
        // model puts it.
        EXPECT_NEAR(truth.hit.z, depth, 1e-9);
        std::vector<cv::Point2d> image;
        const auto& l = sensor.lens;
        cv::projectPoints(std::vector<cv::Point3d>{truth.hit}, cv::Vec3d(), cv::Vec3d(),
                          cv::Matx33d(l.fx, 0, l.cx, 0, l.fy, l.cy, 0, 0, 1),
                          std::vector<double>{l.k1, l.k2, l.p1, l.p2, l.k3}, image);
        EXPECT_NEAR(cv::norm(image.at(0) - truth.centre), 0.0, 0.01);
    }
    // Speckle leaves the mean and grains the spot.
    LaserSpot speckled(laser, VisualSensorParameters{});
    LaserSpotTruth truth;
    const cv::Mat e = speckled.electrons(6.0, 0.8, &truth);
    EXPECT_NEAR(cv::sum(e - e.at<float>(0, 0))[0], truth.totalElectrons, 0.1 * truth.totalElectrons);
}

TEST(PhysicalCamera, BadInputIsRefusedByName) {
    auto message = [](auto f) {
        try {
            f();
        } catch (const norda::Exception& e) {
            return std::string(e.what());
        }
        return std::string("no error");
    };
    AirParameters wet;
    wet.relativeHumidity = 1.5;
    EXPECT_NE(message([&] { Atmosphere a(wet); }).find("humidity"), std::string::npos);
    PhysicalCamera camera;
    PhysicalScene scene = PhysicalScene::hall();
    scene.surfaces.at(2).emissivity = -0.1;
    EXPECT_NE(message([&] { camera.render(scene, {}); }).find("crumpled foil"), std::string::npos);
    EXPECT_NE(message([&] { camera.renderShutter({}, 3); }).find("range"), std::string::npos);
    BlackbodyView v;
    v.frames = -1;
    EXPECT_NE(message([&] { camera.blackbodyView(v); }).find("frames"), std::string::npos);
}
#endif
