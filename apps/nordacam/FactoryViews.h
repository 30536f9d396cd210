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

#include <functional>
#include <string>
#include <vector>

namespace nordacam {

struct FactoryViewOptions {
    sim::physics::CameraParameters camera; // the simulated camera (detector.seed: its pixel pattern)
    std::vector<unsigned> ranges{1, 2};    // measurement ranges of the radiometry views and the check
    bool reduced = false;                  // the fewest views the fits accept (tests)
    // The climate chamber's board temperatures (°C) for the radiometry views (the camera settles
    // 18 K above the chamber's air), and other ones for the check's fresh views.
    std::vector<double> boardsC{30.0, 39.0, 48.0};
    std::vector<double> checkBoardsC{34.5, 43.5};
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

class FactoryViews {
public:
    explicit FactoryViews(FactoryViewOptions options = {});

    // Blackbody views per range: 8+ temperatures over the band at 3 board temperatures, the
    // board warmed by 0 or 1.5 K since the shutter closed.
    void radiometry(const std::string& folder) const;
    // Flat fields at three blackbody temperatures.
    void badPixel(const std::string& folder) const;
    // A heated circle grid in ten or more poses covering the image.
    void distortion(const std::string& folder) const;

    std::vector<RadiometryCheck> checkRadiometry(const std::string& radiometryJson) const;
    DistortionCheck checkDistortion(const std::string& distortPxm) const;

    // The measured region of every blackbody view: the image's centre, away from the lens's
    // edge of field.
    static constexpr int kRegion[4] = {240, 180, 160, 120};

private:
    FactoryViewOptions m_options;
};

} // namespace nordacam
