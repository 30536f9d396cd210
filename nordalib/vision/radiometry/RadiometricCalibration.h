#pragma once
// The radiometric calibration of a camera: Planck constants and drift gains per measurement range,
// transmission per lens. Stored as JSON in the calibration directory under kFileName:
//
//   {
//     "version": 1,
//     "ranges": [
//       { "range": 1, "R1": 300000.0, "R2": 1.0, "B": 1428.0, "F": 1.0, "O": -40.0,
//         "boardDriftGain": 14.0, "boardSlopeGain": 2.5, "slowFrameGain": 1.0,
//         "responsivityExponent": 2.0, "responsivityReference": 30.0,
//         "bandBottom": -20.0, "bandTop": 150.0 },
//       ...
//     ],
//     "lenses": [ { "index": 1, "serial": "L25-000001", "transmission": 0.97 }, ... ]
//   }
//
// R1, R2, B, F, O, T0: the Planck camera equation S(T) = R1 / (R2 (exp(B / (T + T0)) - F)) - O, T in
// kelvin, S in counts (see RadiometricTools.h); T0 (kelvin) is optional, default 0. bandBottom/bandTop: the
// calibrated object temperature band in °C. boardDriftGain, boardSlopeGain, slowFrameGain, boardEmissionGain,
// boardLagGain, boardLagTimeConstant (seconds) and boardLagShare (optional, written only when their gain is
// not 0): see RangeCalibration. responsivityExponent (default 0: no board dependence) and
// responsivityReference (°C, default 30): the detector gain (Tref / Tboard)^n of RadiometricTools.h; written
// only when the exponent is not 0. "lenses" is needed by type B cameras only; an empty serial accepts any
// lens in that slot.
//
// Loading checks every constant: a missing file, malformed JSON, a missing or non-numeric key, or
// constants that would make the inversion of the Planck curve undefined inside the band raise a
// norda::Exception naming the file and the key ("ranges[0].F").

#include "nordalib/vision/radiometry/RadiometricTools.h"

#include <map>
#include <string>

namespace norda::vision {

struct LensCalibration {
    std::string serial;
    double transmission = 1.0;
};

class RadiometricCalibration {
public:
    static constexpr const char* kFileName = "radiometry.json";

    std::map<unsigned, RangeCalibration> ranges;
    std::map<unsigned, LensCalibration> lenses;

    static RadiometricCalibration load(const std::string& file);
    void save(const std::string& file) const;

    // The calibration of a typical 640 x 480 microbolometer core with a low range (-20..150 °C),
    // a high range (0..350 °C) and three lenses; data/calibration/radiometry.json holds it.
    static RadiometricCalibration makeDefault();

    // Throws (naming `source`) when a range's constants cannot be inverted over its band.
    static void check(const RangeCalibration& range, const std::string& source, const std::string& key);
};

} // namespace norda::vision
