#ifdef NORDACAM_CORE
// The live camera's frames come from the physical camera: its warm-up, window and gains, and the
// surroundings the hall's surfaces reflect, read off the raw frames with the shutter frames as the
// dark reference, as the chain's offset does.
#include "apps/nordacam/sim/SceneSimulator.h"

#include "nordalib/core/datatypes/Quantity.h"
#include "nordalib/core/keys/DefaultParameters.h"
#include "nordalib/core/keys/Keys.h"

#include <gtest/gtest.h>
#include <opencv2/calib3d.hpp>

#include <cmath>
#include <vector>

using namespace norda::exp;
using nordacam::sim::Scene;
using nordacam::sim::SceneSimulator;
using Temp = quantity::Temperature<MarkedFloat>;

namespace {

struct Shots {
    double boardC = 0, boardAtShutterC = 0;
    unsigned long long uptimeMs = 0;
    int range = 0;
    double hotSignal = 0; // hot object less wall, counts above the shutter frame
    // The foil's and the painted panel's signal less the wall's beside the foil, in units of the
    // wall's less the cold object's.
    double foil = 0, panel = 0;
};

double mean(const cv::Mat& m, cv::Point c) {
    return cv::mean(m(cv::Rect(c.x - 8, c.y - 8, 16, 16)))[0];
}

// Where the lens puts an undistorted image position on the sensor (OpenCV's model of the same lens).
cv::Point onSensor(const nordacam::sim::LensModel& l, cv::Point2f ideal) {
    const cv::Matx33d k(l.fx, 0, l.cx, 0, l.fy, l.cy, 0, 0, 1);
    const std::vector<cv::Point3d> ray{{(ideal.x - l.cx) / l.fx, (ideal.y - l.cy) / l.fy, 1.0}};
    std::vector<cv::Point2d> seen;
    cv::projectPoints(ray, cv::Vec3d(), cv::Vec3d(), k, std::vector<double>{l.k1, l.k2, l.p1, l.p2, l.k3},
                      seen);
    return cv::Point(seen[0]);
}

Shots run(bool window, unsigned char range) {
    DataProxy<std::string> store;
    setDefaultParameters(store);
    store.setValue(Id::ProtectiveGlass::Attached, window, false);
    store.setValue<unsigned char>(Id::ActiveMeasRange::Name, range, false);
    store.flush();
    SceneSimulator sim(store, {});
    Shots r;
    cv::Mat shutter, scene;
    for (int i = 0; i < 12; ++i) {
        auto frame = sim.nextFrame();
        const auto& meta = frame->getMetaData();
        if (i == 0) {
            r.boardC = meta.get<Temp>(Id::Temperatures::Current::TBoardSens50).celsius();
            r.uptimeMs = meta.get<unsigned long long>(Id::DeviceInfo::Uptime);
        }
        if (meta.get<bool>(Id::Shutter::Closed))
            frame->getFrameData().convertTo(shutter, CV_64F);
        else
            frame->getFrameData().convertTo(scene, CV_64F);
        r.boardAtShutterC = meta.get<Temp>(Id::Temperatures::Shuttering::TBoardSens50).celsius();
        r.range = meta.get<unsigned char>(Id::ActiveMeasRange::Name);
    }
    EXPECT_FALSE(shutter.empty() || scene.empty());
    const cv::Mat signal = scene - shutter;
    const cv::Point2f hot = sim.truth().hotCentre; // the disc's radius of 30 px spans the distortion
    r.hotSignal = mean(signal, cv::Point(hot)) - mean(signal, {40, 40});
    const auto& hall = sim.scene();
    auto at = [&](cv::Point2f ideal) { return mean(signal, onSensor(sim.config().lens, ideal)); };
    auto centre = [](const cv::Rect2f& r) { return (r.tl() + r.br()) * 0.5f; };
    const double wall = at({615, 250}), cold = at(sim.truth().coldCentre);
    r.foil = (at(centre(hall.staticObject(Scene::kReflectorName).rect)) - wall) / (wall - cold);
    r.panel = (at(centre(hall.staticObject(Scene::kPanelName).rect)) - wall) / (wall - cold);
    return r;
}

} // namespace

TEST(SceneSimulator, LiveFramesFollowTheCamerasWarmUpWindowAndGain) {
    const Shots plain = run(false, 1), window = run(true, 1), high = run(false, 2);
    // Switched on 110 s ago in 21 C: the board 18 K above ambient with 90 s to settle.
    EXPECT_EQ(plain.uptimeMs, 110000u);
    EXPECT_NEAR(plain.boardC, 21.0 + 18.0 * (1.0 - std::exp(-110.0 / 90.0)), 0.01);
    // The shutter closed at the first frame, while the board was still warming.
    EXPECT_NEAR(plain.boardAtShutterC, plain.boardC, 0.02);
    EXPECT_GT(plain.hotSignal, 1000.0); // 85 C against a 22 C wall
    // Every surface reflects surroundings at 24 C: Planck's law over 8-14 um for the foil (0.05 at
    // 21 C), the panel (0.6 at 45 C), the wall (0.95 at 21.98 C) and the cold object (0.95 at 4 C)
    // gives 0.114 and 1.026 (-0.116 and 0.936 were the surroundings at 20 C).
    EXPECT_NEAR(plain.foil, 0.114, 0.02);
    EXPECT_NEAR(plain.panel, 1.026, 0.03);
    // The window passes 90 % of the scene; the high range has a quarter of the gain.
    EXPECT_NEAR(window.hotSignal / plain.hotSignal, 0.90, 0.02);
    EXPECT_EQ(high.range, 2);
    EXPECT_NEAR(high.hotSignal / plain.hotSignal, 0.25, 0.02);
}
#endif
