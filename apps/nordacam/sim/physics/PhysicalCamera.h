#pragma once
// A radiometric infrared camera computed from physics: scene -> air -> window -> lens -> detector.
//
// For each ideal image pixel, the in-band radiance arriving at the window (surface emission and
// reflected surroundings attenuated by the air, plus the air's own emission); the point-spread
// function; the window's and the lens's transmission, emission and reflection; the lens's
// distortion; and the microbolometer's response to the net radiance it absorbs, with the housing
// around it and its own emission. Band integrals are tabulated per spectral weight (per distance
// where the air enters), so a frame costs a look-up per surface, a blur, a remap and the read-out.
//
// It uses no part of the library's radiometric model, registration or distortion correction:
// whatever the chain measures from its frames is measured, not put in.

#include "apps/nordacam/sim/physics/Atmosphere.h"
#include "apps/nordacam/sim/physics/CameraThermal.h"
#include "apps/nordacam/sim/physics/LensDistortion.h"
#include "apps/nordacam/sim/physics/Microbolometer.h"
#include "apps/nordacam/sim/physics/Optics.h"
#include "apps/nordacam/sim/physics/Parameters.h"
#include "apps/nordacam/sim/physics/PhysicalScene.h"
#include "apps/nordacam/sim/physics/RadianceTable.h"
#include "apps/nordacam/sim/physics/SpectralBand.h"

#include <opencv2/core.hpp>

#include <map>
#include <memory>
#include <optional>
#include <vector>

namespace nordacam::sim::physics {

// A request for calibration views of a blackbody.
struct BlackbodyView {
    double blackbodyC = 30.0;
    double boardC = 39.0; // the camera settled at this board temperature (ambient: board - rise)
    int frames = 1;
    int shutterFrames = 0; // frames of the closed shutter taken at the same moment
    int range = 1;
    cv::Rect2d region; // ideal pixels covered by the source; empty: the whole view
};

struct TargetView {
    std::vector<cv::Mat> frames;  // raw CV_16UC1
    std::vector<cv::Mat> shutter; // raw CV_16UC1, shutter closed
    CameraTemperatures temperatures;
};

// A request for a warm-up run: switched on at time 0 in `ambientC`, looking at a blackbody; the
// shutter closes once at `shutterAtS`; frames at each of `timesS` (seconds after switching on). What
// the board-drift constants are fitted to.
struct WarmUpView {
    double blackbodyC = 30.0;
    double ambientC = 21.0;
    double shutterAtS = 60.0;
    int shutterFrames = 1;
    std::vector<double> timesS;
    int range = 1;
};

struct WarmUpFrame {
    double timeS = 0.0;
    cv::Mat raw;
    CameraTemperatures temperatures;
};

struct WarmUpSequence {
    std::vector<cv::Mat> shutter;
    CameraTemperatures shutterTemperatures;
    std::vector<WarmUpFrame> frames; // in the order of timesS
};

// A request for views of a heated grid in a pose (distortion calibration).
struct GridView {
    GridTarget target;
    double boardC = 39.0;
    int frames = 1;
    int range = 1;
};

struct GridTargetView {
    TargetView view;
    // Stripe crossings, row by row: where the ideal pinhole camera puts them and where they land on
    // the sensor through the lens's distortion.
    std::vector<cv::Point2d> ideal, sensor;
};

class PhysicalCamera {
public:
    explicit PhysicalCamera(const CameraParameters& p = {});

    // Raw frame of `scene` with the camera's parts at `t`, shutter open.
    cv::Mat render(const PhysicalScene& scene, const CameraTemperatures& t, int range = 1);
    // Raw frame of an ideal radiance image (what sceneRadiance gives, CV_32F of the sensor's size),
    // which the point-spread function blurs in place: for callers that compose scenes of their own.
    cv::Mat renderRadiance(cv::Mat& ideal, const CameraTemperatures& t, int range = 1);
    // Raw frame with the shutter closed.
    cv::Mat renderShutter(const CameraTemperatures& t, int range = 1);
    // In-band radiance arriving at the window from a grey surface at `distance` through `air`,
    // reflecting surroundings at `reflectedC`, the air's own emission included.
    double surfaceRadiance(const AirParameters& air, double reflectedC, double distance, double celsius,
                           double emissivity);
    // Puts the protective window in front of the lens or takes it away.
    void setWindow(bool attached);
    // Calibration views: the camera settled at the board temperature, looking at a blackbody.
    TargetView blackbodyView(const BlackbodyView& request);
    GridTargetView gridView(const GridView& request);
    WarmUpSequence warmUpView(const WarmUpView& request);

    // In-band radiance (W m^-2 sr^-1) arriving at the window from each ideal pixel of `scene`
    // (before the optics), CV_32F of the sensor's size.
    const cv::Mat& sceneRadiance(const PhysicalScene& scene);
    // Through the lens only: in-band radiance, detector response times lens transmission.
    double lensPathRadiance(double celsius) const { return m_lensPath.radiance(celsius); }
    // Detector response only.
    double detectorRadiance(double celsius) const { return m_detector.radiance(celsius); }

    const CameraParameters& parameters() const { return m_p; }
    const Microbolometer& detector() const { return m_bolometer; }
    const Optics& optics() const { return m_optics; }
    const LensDistortion& distortion() const { return m_distortion; }
    const SpectralBand& band() const { return m_band; }

private:
    // Tables for a path of `metres` through `air`: black-body radiance through air and lens, and
    // the air's own emission over that path through the lens.
    struct PathTables {
        RadianceTable through;
        double airEmission = 0.0;
    };
    const PathTables& path(const AirParameters& air, double metres);
    // The heated grid over the ideal image, stripes and board at the given scene radiances.
    void drawGrid(const GridTarget& g, float hot, float cold);
    // Net radiance the detector absorbs besides the scene term: Phi = a * L + b.
    void netRadianceTerms(const CameraTemperatures& t, double& a, double& b) const;

    CameraParameters m_p;
    SpectralBand m_band;
    Optics m_optics;
    LensDistortion m_distortion;
    Microbolometer m_bolometer;
    std::vector<double> m_lensWeight; // detector response times lens transmission
    std::shared_ptr<const RadianceTable::Basis> m_basis;
    RadianceTable m_detector, m_lensPath, m_lensEmission;
    std::optional<AirParameters> m_air;
    Atmosphere m_atmosphere;
    std::map<long long, PathTables> m_paths;  // per distance in millimetres, for m_air
    cv::Mat m_sensorMap, m_sensorMapFraction; // fixed-point remap tables
    cv::Mat m_ideal, m_sensor;
};

} // namespace nordacam::sim::physics
