#pragma once
// The calibration tools of nordacam (calib ...): calibration files written from the simulator's own
// geometry, factory fits from folders of views, the simulator's factory views and the check of a
// fitted calibration against the simulator's truth.

#include <ostream>
#include <string>
#include <vector>

namespace nordacam {

struct DistortionParameters {
    double fx = 560.0, fy = 560.0, cx = 319.5, cy = 239.5;
    double k1 = -0.18, k2 = 0.06, p1 = 0.0, p2 = 0.0, k3 = 0.0;
    int width = 640, height = 480;
};
// Writes the distortion table of a lens (camera matrix and distortion coefficients) as distort.pxm.
int calibDistortion(const DistortionParameters& parameters, const std::string& outFile, std::ostream& out);

// Writes the infrared-visual registration of the simulated camera rig (registration.json): both
// lenses, their baseline and the laser pointer, from the simulator's geometry.
int calibRegistration(const std::string& outFile, std::ostream& out);

// Writes the factory bad-pixel list of the simulated detector (its dead and stuck pixels) as
// badpixel.pxm.
int calibBadPixel(const std::string& outFile, std::ostream& out);

// Factory calibration from a folder of views (views.json and PXM frames, see CalibrationViews and
// docs/calibration.md): fit, print the fit's figures (and each view's residual for radiometry),
// and write the file all or nothing. A refused fit throws naming the view; the old file stays.
// `lensesFrom`: a radiometry.json whose lens table the new file carries over (empty: none).
// `residualLimitK` above 0 replaces the fit's smallest residual limit (a view further off the fitted
// curve than that and its noise allows is refused).
int calibFitRadiometry(const std::string& folder, const std::string& outFile, const std::string& lensesFrom,
                       std::ostream& out, double residualLimitK = 0.0);
int calibFitBadPixel(const std::string& folder, const std::string& outFile, std::ostream& out);
// The pixels' relative gains (gain.pxm, see GainTable) from the same flat fields.
int calibFitGain(const std::string& folder, const std::string& outFile, std::ostream& out);
int calibFitDistortion(const std::string& folder, const std::string& outFile, std::ostream& out);
// The infrared lens is fitted from the infrared images of the same poses; without laser spots the
// laser ray is left straight ahead from the camera.
int calibFitRegistration(const std::string& folder, const std::string& outFile, std::ostream& out);

// The views a factory captures ("radiometry", "badpixel", "distortion", "registration"), rendered by the
// physical camera simulator into `folder` in the format the fits above read, with a line per view. `boardsC`:
// the radiometry views' board temperatures (empty: 30, 39, 48 °C).
int calibViews(const std::string& kind, const std::string& folder, unsigned seed,
               const std::vector<double>& boardsC, std::ostream& out);
// Fresh blackbody views of the physical simulator converted with `radiometryFile`, against the
// blackbody's true temperature: per range the mean, RMS and worst error. Returns 1 when a range
// misses RMS <= 0.1 K or worst <= 0.3 K. `boardsC`: the fresh views' board temperatures (empty:
// 34.5, 43.5 °C, between those of the calibration views).
// `distortionFile` (if not empty): a fitted distort.pxm against the simulator's lens (px RMS and
// worst over the image; returns 1 above 0.2 px RMS). `registrationFile` (if not empty, with a
// distortion file): the registration against the simulator's rig from 0.5 to 10 m and the laser's
// spot triangulated with it (returns 1 beyond 1 infrared px, or a distance off by more than 3 % up
// to 5 m, 6 % beyond). `gainFile` (if not empty): a fitted gain.pxm on uniform hot blackbodies
// (FactoryViews::checkGain): the spatial spread of a frame without and with it, with the
// simulator's own gains and the detector's temporal noise; figures without a goal.
int calibCheck(const std::string& radiometryFile, const std::string& distortionFile, unsigned seed,
               const std::vector<double>& boardsC, std::ostream& out,
               const std::string& registrationFile = {}, const std::string& gainFile = {});

} // namespace nordacam
