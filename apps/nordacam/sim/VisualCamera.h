#pragma once
// A simulated visual camera beside the infrared one: UYVY frames (CV_8UC2) of the same scene.
//
// It follows Viscam.CurrentImageResolution the way a real sensor changes mode: "QVGA" 320 x 240,
// "VGA" 640 x 480 (the live stream), "XGA" 1024 x 768 in the live stream (slot 6), and "QSXGA":
// the live stream goes on at the last live size while every cycle also gives one full-resolution
// 2592 x 1944 still (slot 7). Frames carry Viscam.CaptureTime (the frame period, which sizes the
// image buffer), Viscam.Timestamp (the moment shown, on the infrared frames' uptime clock) and
// Viscam.FrameCounter.
//
// Its frames reach the host at once while the infrared frames arrive `infraredLagFrames` late, so
// the visual frame of cycle n shows the moment of the infrared frame of cycle n + lag: the image
// buffer delays the visual frames to line them up.
//
// The picture: every pixel's line of sight through the visual lens's own distortion and the rig's
// rotation and baseline (physics::VisualRig) is intersected with the scene's objects, nearest first
// (Scene); what never moves is rendered once per size, the hot object, the board and the laser's
// spot every frame. The spot is the physical simulator's (physics::LaserSpot: its brightness from
// the beam's power, divergence, distance and the surface's reflectance, its speckle); a little
// sensor noise on top.
// For tests it can drop frames or swap neighbours (late and out-of-order delivery).

#include "apps/nordacam/sim/Scene.h"
#include "apps/nordacam/sim/physics/VisualRig.h"

#include "nordalib/core/dataproxy/DataProxy.h"
#include "nordalib/core/datatypes/Frame.h"

#include <map>
#include <memory>
#include <mutex>

namespace nordacam::sim {

struct VisualConfig {
    double fps = 30.0;
    int infraredLagFrames = 3;
    unsigned long long uptimeStartMs = 110000;
    float noise = 1.5f; // luma noise, one sigma
    // The exposure the laser's spot collects over, as an auto-exposure sets it in the dim hall
    // (about 0.6 W m^-2 in the red channel's band, some 100 lux): white surfaces near the full well.
    double exposureS = 0.010;
    bool laser = true; // the laser pointer is on
    int dropEvery = 0; // faults for tests: every n-th frame is not delivered
    int swapEvery = 0; // every n-th pair of frames arrives in the wrong order
    unsigned seed = 5;
};

struct VisualTruth {
    unsigned long long frame = 0;
    double timeS = 0;
    unsigned long long timestampMs = 0;
    LaserTruth laser;
    cv::Point2d laserVisual; // at the live size
    cv::Size liveSize;
};

class VisualCamera {
public:
    VisualCamera(norda::exp::DataProxy<std::string>& store, const Scene& scene, VisualConfig config);

    // The live stream's next frame (slot 6); empty for a dropped frame.
    std::unique_ptr<norda::exp::Frame> nextLive();
    // The full-resolution still of this cycle (slot 7), only in QSXGA mode; call after nextLive.
    std::unique_ptr<norda::exp::Frame> nextStill();

    // RGB picture of the scene at time t (for tests and tools).
    cv::Mat render(cv::Size size, double timeS);
    static cv::Mat toUyvy(const cv::Mat& rgb, const std::vector<float>* noise = nullptr, size_t offset = 0);
    static cv::Size sizeOf(const std::string& resolution); // empty for an unknown name
    // Where the simulated lens puts a point (infrared camera coordinates) in a frame of `size`.
    cv::Point2d projectTruth(const cv::Point3d& p, cv::Size size) const { return m_rig.project(p, size); }
    VisualTruth truth() const;
    const VisualConfig& config() const { return m_config; }

private:
    static physics::RigParameters rigOf(const Rig& rig);
    const cv::Mat& rays(cv::Size size);
    cv::Vec3f shade(const cv::Vec3f& ray, const std::vector<SceneObject>& objects) const;
    void shadeBox(cv::Mat& rgb, const cv::Mat& rays, const std::vector<SceneObject>& objects,
                  const SceneObject& o) const;
    void drawLaser(cv::Mat& rgb, const LaserTruth& laser) const;
    std::unique_ptr<norda::exp::Frame> frameAt(cv::Size size, unsigned long long n);

    norda::exp::DataProxy<std::string>& m_store;
    const Scene& m_scene;
    VisualConfig m_config;
    physics::VisualRig m_rig;
    std::map<std::pair<int, int>, cv::Mat> m_static; // per size
    std::map<std::pair<int, int>, cv::Mat> m_rays;   // per size: lines of sight (CV_32FC3)
    std::vector<float> m_noiseBank;
    cv::RNG m_rng;
    unsigned long long m_frame = 0;
    cv::Size m_liveSize{640, 480};
    bool m_warnedResolution = false;
    mutable std::mutex m_truthMutex;
    VisualTruth m_truth;
};

} // namespace nordacam::sim
