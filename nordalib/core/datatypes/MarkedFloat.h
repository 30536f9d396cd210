#pragma once
// MarkedFloat: a measured value with a 3-bit validity mark, packed into 4 bytes.
//
// The mark lives in the three least significant mantissa bits of the float, so a MarkedFloat is
// exactly as large as a float; the value loses 3 of its 24 significant bits (a relative error
// below 1e-6, far under any sensor's resolution). Marks in use:
//   0 valid, 1 outside the tolerance band (shown, accuracy not guaranteed),
//   3 below the display band (under range), 5 above the display band (over range).
// Infinite values cannot carry a mark; they are stored as the largest finite float.

#include "nordalib/core/memory/Memory.h"

#include <cstdint>
#include <string>

namespace norda::exp {

class MarkedFloat {
public:
    enum MarkedFloatValidity : uint8_t {
        Valid = 0,
        OutOfTolerance = 1, // bit 0: not guaranteed
        UnderRange = 3,     // bits 0 and 1
        OverRange = 5,      // bits 0 and 2
    };
    static constexpr uint32_t kMarkMask = 0x7;

    MarkedFloat() : MarkedFloat(0.0f, Valid) {}
    MarkedFloat(float value, MarkedFloatValidity validity = Valid);
    // Any 3-bit mark.
    static MarkedFloat withMark(float value, uint8_t mark);

    float toFloat() const;
    uint8_t getMark() const { return static_cast<uint8_t>(m_bits & kMarkMask); }
    MarkedFloatValidity getValidity() const { return static_cast<MarkedFloatValidity>(getMark()); }
    bool isValid() const { return getMark() == 0; }
    void setValid() { m_bits &= ~kMarkMask; }
    void setMark(uint8_t mark) { m_bits = (m_bits & ~kMarkMask) | (mark & kMarkMask); }
    void setValue(float value); // keeps the mark

    uint32_t raw() const { return m_bits; }
    static MarkedFloat fromRaw(uint32_t bits) {
        MarkedFloat m;
        m.m_bits = bits;
        return m;
    }

    // Equality compares value and mark.
    bool operator==(const MarkedFloat& o) const { return m_bits == o.m_bits; }
    bool operator!=(const MarkedFloat& o) const { return m_bits != o.m_bits; }

private:
    static uint32_t pack(float value);
    uint32_t m_bits = 0;
};

std::string toString(const MarkedFloat& m);

template <> struct Serializer<MarkedFloat> {
    static constexpr bool available = true;
    static std::string tag() { return "MarkedFloat"; }
    static void write(MemoryBinary& m, const MarkedFloat& v, Endianness e) {
        m.writeScalar<uint32_t>(v.raw(), e);
    }
    static MarkedFloat read(MemoryBinary& m, Endianness e) {
        return MarkedFloat::fromRaw(m.readScalar<uint32_t>(e));
    }
    static std::string toText(const MarkedFloat& v);
    static MarkedFloat fromText(const std::string& s);
};

} // namespace norda::exp
