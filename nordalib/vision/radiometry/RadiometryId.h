#pragma once
// Ids of the measurement conditions a radiometry model takes through RadiometryBase::setData, and
// of its model parameters. Each id has a fixed value type (checked by setData):
//
//   Emis                float, object emissivity, (0, 1]
//   Treflected          Temperature, reflected (ambient) temperature
//   TboardCurrent       Temperature, detector board temperature now
//   TboardShuttering    Temperature, detector board temperature when the shutter was last closed
//   TShutterShuttering  Temperature, shutter temperature when it was last closed
//   MeasRange           unsigned char, measurement range number (selects the calibration constants)
//   UpTime              unsigned long long, milliseconds since power-on (kept for diagnostics)
//   TBoardSlope         float, board temperature slope, kelvin per minute
//   LensIndex           unsigned char, attached lens (type B)
//   LensSerial          std::string, serial number of the attached lens (type B)
//   TlensCurrent        Temperature, lens housing temperature (type B)
//   TauPg               float, protective glass transmission, (0, 1]; 1 without glass
//   EmisPg              float, protective glass emissivity, [0, 1); 0 without glass
//   SlowFrameActive     bool, model parameter: detector runs in slow-frame mode (type B)

#include <string>

namespace norda::vision {

struct RadiometryId {
    static constexpr unsigned Emis = 0;
    static constexpr unsigned Treflected = 1;
    static constexpr unsigned TboardCurrent = 2;
    static constexpr unsigned TboardShuttering = 3;
    static constexpr unsigned TShutterShuttering = 4;
    static constexpr unsigned MeasRange = 5;
    static constexpr unsigned UpTime = 6;
    static constexpr unsigned TBoardSlope = 7;
    static constexpr unsigned LensIndex = 8;
    static constexpr unsigned LensSerial = 9;
    static constexpr unsigned TlensCurrent = 10;
    static constexpr unsigned TauPg = 11;
    static constexpr unsigned EmisPg = 12;
    static constexpr unsigned SlowFrameActive = 13;
    static constexpr unsigned Count = 14;

    // "Emis", "Treflected", ...; "id <n>" for unknown ids.
    static std::string name(unsigned id);
};

} // namespace norda::vision
