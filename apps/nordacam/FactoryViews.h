#pragma once
// FactoryViews: the target views a camera maker captures at the factory, rendered by the physical
// camera simulator (sim/physics) and written as view folders (views.json and PXM frames, format in
// docs/calibration.md) for the calib *-fit commands. Only what a factory knows goes into the
// folder: the frames and the temperatures its instruments read, never the simulator's constants.
//
// check() is the honest figure of the radiometric calibration: fresh blackbody views at other
// blackbody and board temperatures, converted with a fitted radiometry.json through the
// library's camera model, against the temperatures the simulator's blackbody really had.

#include "apps/nordacam/sim/physics/Parameters.h"

#include <opencv2/core.hpp>

#include <functional>
#include <string>
#include <vector>

namespace nordacam {

struct FactoryViewOptions {
    sim::physics::CameraParameters camera; // the simulated camera (detector.seed: its pixel pattern)
    sim::physics::RigParameters rig;       // the visual camera and laser beside it
    std::vector<unsigned> ranges{1, 2};    // measurement ranges of the radiometry views and the check
    bool reduced = false;                  // the fewest views the fits accept (tests)
    // The climate chamber's board temperatures (°C) for the radiometry views (the camera settles
    // 18 K above the chamber's air), and other ones for the check's fresh views.
    std::vector<double> boardsC{30.0, 39.0, 48.0};
    std::vector<double> checkBoardsC{34.5, 43.5};
    // The chamber's air for the warm-up runs (the camera switched on cold in it, per range).
    std::vector<double> warmUpAmbientsC{15.0, 27.0};
    std::function<void(const std::string&)> progress;
};

// Errors of fresh blackbody views against the simulator's truth, per measurement range.
struct RadiometryCheck {
    unsigned range = 0;
    double bandBottomC = 0, bandTopC = 0;
    unsigned views = 0;
    double meanK = 0, rmsK = 0, worstK = 0; // error = measured - true
    double worstAtC = 0, worstBoardC = 0;
};

// A fitted distortion table against the simulator's lens: what remains after the best affine map
// (a camera matrix's scale and shift) between the table's output and the true ideal image.
struct DistortionCheck {
    unsigned points = 0;
    double rmsPx = 0, worstPx = 0;
};

// The calibrated registration against the simulator's rig, per surface distance: where the
// registration puts a visual pixel in the infrared sensor's image (through the fitted distortion
// table) against where the infrared camera truly sees that point; the laser's spot found in a
// fresh visual view, triangulated with the fitted ray.
struct RegistrationCheck {
    double distance = 0;
    double meanPx = 0, worstPx = 0;  // registration, infrared sensor pixels
    double laserPx = 0;              // the laser spot's infrared position error
    double laserDistancePercent = 0; // (measured - true) / true
};

// A uniform blackbody converted as the chain converts it (the shutter's four-frame offset
// subtracted), per pixel, with and without a fitted gain table: the spatial spread of one frame
// (robust sigma over the measured region) in kelvin at the simulator's own counts per kelvin, and
// the floor the detector's temporal noise sets (one frame's and the shutter average's).
struct GainCheck {
    double blackbodyC = 0;
    unsigned range = 0;
    double countsPerK = 0;
    double withoutK = 0, withK = 0, temporalK = 0;
    double trueTableK = 0;     // with a table of the simulator's own gains: what any fit could reach
    double gainErrorSigma = 0; // fitted gains against the true ones (robust sigma, all pixels)
};

class FactoryViews {
public:
    explicit FactoryViews(FactoryViewOptions options = {});

    // Blackbody views per range: 8+ temperatures over the band at 3 board temperatures, the
    // board warmed by 0 or 1.5 K since the shutter closed; and the warm-up runs (WarmUpRuns).
    void radiometry(const std::string& folder) const;
    // Flat fields at three blackbody temperatures.
    void badPixel(const std::string& folder) const;
    // A heated circle grid in ten or more poses covering the image.
    void distortion(const std::string& folder) const;

    // Registration: the grid target (dots warm for the infrared, printed black for the visual
    // camera) in ten or more poses both cameras see, and the laser's spot at several distances.
    void registration(const std::string& folder) const;

    std::vector<RadiometryCheck> checkRadiometry(const std::string& radiometryJson) const;
    DistortionCheck checkDistortion(const std::string& distortPxm) const;
    // Blackbodies at 85 °C (range 1) and 300 °C (range 2), the board at the first check board.
    std::vector<GainCheck> checkGain(const std::string& gainPxm) const;
    std::vector<RegistrationCheck> checkRegistration(const std::string& registrationJson,
                                                     const std::string& distortPxm) const;

    // The laser spot's centre in a visual view: the centroid of what rises above half its peak
    // over the ambient level (sub-pixel); (-1, -1) when no spot stands out.
    static cv::Point2d spotCentre(const cv::Mat& red);
    // Distances (metres) of the factory's laser views and of the check.
    static constexpr double kLaserDistances[] = {0.5, 1.0, 2.0, 4.0, 7.0, 10.0};
    static constexpr double kCheckDistances[] = {0.5, 1.0, 2.0, 3.0, 5.0, 7.5, 10.0};
    // The visual camera's exposure for the laser views: long enough that the spot at 10 m stands well
    // above the ambient light in 8 bits, the near spots saturating.
    static constexpr double kLaserExposureS = 0.004;
    static constexpr double kLaserReflectance = 0.5; // matt white card

    // The measured region of every blackbody view: the image's centre, away from the lens's
    // edge of field.
    static constexpr int kRegion[4] = {240, 180, 160, 120};

private:
    FactoryViewOptions m_options;
};

} // namespace nordacam
