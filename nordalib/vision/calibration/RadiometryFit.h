#pragma once
// RadiometryFit: the radiometric constants of each measurement range from views of a blackbody.
//
// A view is the blackbody filling a region of the image at a known temperature, with the camera's
// state at that moment: range, board temperature now and when the shutter last closed, shutter
// temperature, board slope and, for type B cameras, slow-frame mode, lens transmission and lens
// temperature. Its signal is the offset-corrected signal of the region: given as a number (mean and
// its noise) or measured from frames (raw frames against a shutter frame, or corrected frames).
//
// Model (RadiometricTools): C = gain (Tref / Tboard)^n (S(Tbb) - S(Tshutter) + driftGain dTboard +
// slopeGain slope + lagGain dS(Tlag)) with S(T) = R1 / (R2 (exp(B / (T + T0)) - F)) - O, for an
// emissivity-1 blackbody without protective glass. Fitted per range by Levenberg-Marquardt, weighting
// each view by its noise: R1 (with R2 = 1), B, F, T0 (unless the settings leave it 0) and boardDriftGain;
// the board lag's gain and time constant when warm-up views are given; the responsivity exponent n (Tref
// fixed by the settings; the views at several board temperatures determine it); boardSlopeGain when the
// views' board slopes differ; slowFrameGain when some views are in slow-frame mode and some not. O cancels
// from every offset-corrected signal (it adds to the object's and the shutter's signal alike), so views
// cannot determine it: it keeps its value from the settings (it matters only behind a protective glass whose
// transmission and emissivity add up to less than 1).
//
// Warm-up views: a camera switched on cold in a climate chamber, looking at a blackbody, its shutter
// closing now and then; each view carries the log of the board's temperature since switching on. In
// such views the housing has not followed the board as it has in settled views, which separates the
// lag term from the board's own drift; runs at two or more ambient temperatures are needed (one run
// is refused), since in one run the lag's gain and time constant trade against the drift gain.
//
// Each range needs views at `minTemperatures` blackbody temperatures and `minBoardTemperatures`
// board temperatures, and board warmings since the shutter closed that differ (else the drift gain
// is not determined). The fit is refused, with a norda::Exception naming the range or the view, when
// a view is unusable (see FrameStack), too few views are given, the fit does not converge, or a
// view's residual is far above its noise: the views then disagree with the model (a mislabelled
// temperature or range, a blackbody not settled). The residual of a view is the temperature the
// fitted constants give its signal minus the blackbody temperature.

#include "nordalib/vision/calibration/FrameStack.h"
#include "nordalib/vision/radiometry/RadiometricCalibration.h"

#include <opencv2/core.hpp>

#include <functional>
#include <limits>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace norda::vision {

// Board temperatures (uptime in seconds since switching on, board in kelvin) in time order.
using BoardLog = std::vector<std::pair<double, double>>;

struct BlackbodyView {
    std::string name; // names the view in messages (a file name, say)
    unsigned range = 1;
    double blackbodyK = 0;
    // Board, board at shuttering, shutter, slope; emissivity/reflected for a blackbody of emissivity
    // below 1; lens transmission and temperature (type B). `gain` is ignored: see slowFrame.
    RadiometricConditions conditions;
    bool slowFrame = false;
    // A warm-up view: the board's log from switching on, the uptime of the frames and of the shutter's
    // last closing (seconds). Views without a log were taken settled.
    std::shared_ptr<const BoardLog> boardLog;
    double uptimeS = 0, shutterUptimeS = 0;

    // Either the signal as numbers ...
    double signal = std::numeric_limits<double>::quiet_NaN(); // mean corrected signal (counts)
    double noise = std::numeric_limits<double>::quiet_NaN();  // its standard deviation (counts)
    // ... or frames of the blackbody: CV_16UC1 raw frames with the raw shutter frame of the same
    // offset cycle, or CV_16SC1 corrected frames (no shutter frame). An empty region is the whole
    // frame.
    std::vector<cv::Mat> frames;
    cv::Mat shutter;
    cv::Rect region;
};

struct RadiometryFitSettings {
    unsigned minTemperatures = 8;
    unsigned minBoardTemperatures = 3;
    double minBoardWarmingSpreadK = 0.5; // spread of dTboard that determines the drift gain
    double initialB = 1428.0;            // start of B (c2 / 10 um for the 8-14 um band)
    double initialF = 1.0;
    double offsetO = 0.0;                   // not determined by views (see above)
    bool fitResponsivity = true;            // fit n; false keeps the detector gain independent of the board
    bool fitTemperatureShift = true;        // fit T0; false keeps the three-constant curve (T0 = 0)
    double initialLagTimeConstantS = 100.0; // start of the board lag's time constant
    double responsivityReferenceK = 303.15; // Tref: the board temperature R1 holds at
    double residualSigmas = 6.0;            // a view's residual may reach this many noise deviations ...
    double minResidualLimitK = 0.02;        // ... or this, whichever is larger
    double noiseFloorCounts = 0.01;         // lower bound of a view's noise (numbers without noise get it)
    FrameStackSettings frames;
    // Calibrated band per range in kelvin (bottom, top); default the span of the views.
    std::map<unsigned, std::pair<double, double>> bands;
    std::function<void(const std::string&)> progress;
};

struct ViewResidual {
    std::string name;
    double blackbodyK = 0;
    double signal = 0;
    double residualK = 0; // fitted temperature minus blackbody temperature
    double noiseK = 0;    // the view's noise in kelvin
};

struct RangeFit {
    RangeCalibration constants;
    std::vector<ViewResidual> views;
    unsigned iterations = 0;
    double rmsK = 0;
    double maxK = 0; // largest |residual|
    bool responsivityFitted = false;
    bool slopeGainFitted = false;
    bool slowFrameGainFitted = false;
    bool lagFitted = false;
};

class RadiometryFit {
public:
    explicit RadiometryFit(RadiometryFitSettings settings = {}) : m_settings(std::move(settings)) {}

    std::map<unsigned, RangeFit> fit(const std::vector<BlackbodyView>& views) const;

    // The calibration of the fitted ranges, with the lens table of `lenses`.
    static RadiometricCalibration calibration(const std::map<unsigned, RangeFit>& fits,
                                              const std::map<unsigned, LensCalibration>& lenses = {});
    // Writes `calibration` as radiometry.json to `file` (see CalibrationFile: all or nothing).
    static void write(const RadiometricCalibration& calibration, const std::string& file);

private:
    struct Measured {
        const BlackbodyView* view;
        double signal;
        double noise;
    };
    Measured measure(const BlackbodyView& view) const;
    RangeFit fitRange(unsigned range, const std::vector<Measured>& views) const;

    RadiometryFitSettings m_settings;
};

} // namespace norda::vision
