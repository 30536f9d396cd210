#pragma once
// BadPixel: one defective detector pixel, its position and how it was found. Lists of them
// (std::vector<BadPixel>) travel through the parameter store under Id::IrSensor::BadPixelList and
// can be stored with the rest of a camera's settings (text form "x:y:origin").

#include "nordalib/core/memory/Memory.h"

#include <cstdint>
#include <string>
#include <vector>

namespace norda::vision {

enum class BadPixelOrigin : uint8_t {
    Factory = 0, // listed in the calibration file
    Dead = 1,    // reads 0 in the offset frame
    Stuck = 2,   // reads full scale in the offset frame
    Outlier = 3, // deviates from its neighbourhood by more than the detector's threshold
};

struct BadPixel {
    uint16_t x = 0;
    uint16_t y = 0;
    BadPixelOrigin origin = BadPixelOrigin::Factory;

    bool operator==(const BadPixel&) const = default;
};

using BadPixelList = std::vector<BadPixel>;

// "factory", "dead", "stuck", "outlier".
std::string toString(BadPixelOrigin origin);

} // namespace norda::vision

namespace norda::exp {

template <> struct Serializer<vision::BadPixel> {
    static constexpr bool available = true;
    static std::string tag() { return "BadPixel"; }
    static void write(MemoryBinary& m, const vision::BadPixel& v, Endianness e);
    static vision::BadPixel read(MemoryBinary& m, Endianness e);
    static std::string toText(const vision::BadPixel& v);
    static vision::BadPixel fromText(const std::string& s);
};

} // namespace norda::exp
