#include "nordalib/core/datatypes/MarkedFloat.h"

#include <cmath>
#include <cstring>
#include <limits>

namespace norda::exp {

uint32_t MarkedFloat::pack(float value) {
    if (std::isinf(value))
        value = value > 0 ? std::numeric_limits<float>::max() : -std::numeric_limits<float>::max();
    uint32_t bits;
    std::memcpy(&bits, &value, 4);
    return bits & ~kMarkMask;
}

MarkedFloat::MarkedFloat(float value, MarkedFloatValidity validity)
    : m_bits(pack(value) | (validity & kMarkMask)) {}

MarkedFloat MarkedFloat::withMark(float value, uint8_t mark) {
    MarkedFloat m(value);
    m.setMark(mark);
    return m;
}

float MarkedFloat::toFloat() const {
    uint32_t bits = m_bits & ~kMarkMask;
    float f;
    std::memcpy(&f, &bits, 4);
    return f;
}

void MarkedFloat::setValue(float value) {
    m_bits = pack(value) | (m_bits & kMarkMask);
}

std::string toString(const MarkedFloat& m) {
    return fmt::format("{}{}", m.toFloat(), m.isValid() ? "" : fmt::format(" (mark {})", m.getMark()));
}

std::string Serializer<MarkedFloat>::toText(const MarkedFloat& v) {
    return fmt::format("{},{}", v.toFloat(), v.getMark());
}

MarkedFloat Serializer<MarkedFloat>::fromText(const std::string& s) {
    auto parts = MemoryAcsii::splitEscaped(s);
    if (parts.size() != 2)
        NORDA_THROW("not a MarkedFloat: \"" + s + "\"", "norda::exp::intern::fromStringTimpl");
    return MarkedFloat::withMark(Serializer<float>::fromText(parts[0]),
                                 static_cast<uint8_t>(MemoryAcsii::parseUnsigned(parts[1], 7)));
}

} // namespace norda::exp
