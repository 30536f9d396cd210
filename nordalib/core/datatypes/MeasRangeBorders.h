#pragma once
// MeasRangeBorders: the four temperature limits of a measurement range, in degrees Celsius.
//
// The tolerance band is where the range measures within its stated accuracy; the display band is
// what the range can show at all (beyond it the sensor saturates). A border that carries a mark
// itself (MarkedFloat not valid) means the range's limits are unknown, and values are then passed
// on with the mark the radiometry gave them.

#include "nordalib/core/datatypes/MarkedFloat.h"

namespace norda::exp {

struct MeasRangeBorders {
    MarkedFloat toleranceTop;
    MarkedFloat toleranceBottom;
    MarkedFloat displayTop;
    MarkedFloat displayBottom;

    // Whether every border is itself valid (unmarked).
    bool allValid() const {
        return toleranceTop.isValid() && toleranceBottom.isValid() && displayTop.isValid() &&
               displayBottom.isValid();
    }
    bool operator==(const MeasRangeBorders&) const = default;
};

template <> struct Serializer<MeasRangeBorders> {
    static constexpr bool available = true;
    static std::string tag() { return "MeasRangeBorders"; }
    static void write(MemoryBinary& m, const MeasRangeBorders& v, Endianness e) {
        for (const MarkedFloat* f : {&v.toleranceTop, &v.toleranceBottom, &v.displayTop, &v.displayBottom})
            m.writeScalar<uint32_t>(f->raw(), e);
    }
    static MeasRangeBorders read(MemoryBinary& m, Endianness e) {
        MeasRangeBorders v;
        for (MarkedFloat* f : {&v.toleranceTop, &v.toleranceBottom, &v.displayTop, &v.displayBottom})
            *f = MarkedFloat::fromRaw(m.readScalar<uint32_t>(e));
        return v;
    }
    // Four escaped MarkedFloat texts, comma separated, in declaration order.
    static std::string toText(const MeasRangeBorders& v);
    static MeasRangeBorders fromText(const std::string& s);
};

} // namespace norda::exp
