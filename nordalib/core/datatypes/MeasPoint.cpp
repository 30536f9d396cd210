#include "nordalib/core/datatypes/MeasPoint.h"

#include "nordalib/core/datatypes/VariantRegistry.h"

namespace norda::exp {

MeasPoint::MeasPoint()
    : m_value(std::make_shared<Variant_<quantity::Temperature<MarkedFloat>>>(
          quantity::Temperature<MarkedFloat>())) {}

MeasPoint::MeasPoint(unsigned short x, unsigned short y, std::shared_ptr<Variant> value)
    : m_x(x), m_y(y), m_value(std::move(value)) {}

bool MeasPoint::operator==(const MeasPoint& other) const {
    if (m_x != other.m_x || m_y != other.m_y)
        return false;
    if (!m_value || !other.m_value)
        return !m_value && !other.m_value;
    return *m_value == *other.m_value;
}

void Serializer<MeasPoint>::write(MemoryBinary& m, const MeasPoint& v, Endianness e) {
    m.writeScalar<uint16_t>(v.getX(), e);
    m.writeScalar<uint16_t>(v.getY(), e);
    m.writeScalar<uint8_t>(v.getValue() ? 1 : 0, e);
    if (v.getValue())
        writeVariant(m, *v.getValue(), e);
}

MeasPoint Serializer<MeasPoint>::read(MemoryBinary& m, Endianness e) {
    auto x = m.readScalar<uint16_t>(e);
    auto y = m.readScalar<uint16_t>(e);
    std::shared_ptr<Variant> value;
    if (m.readScalar<uint8_t>(e))
        value = readVariant(m, e);
    return MeasPoint(x, y, value);
}

std::string Serializer<MeasPoint>::toText(const MeasPoint& v) {
    MemoryBinary m;
    write(m, v, Endianness::no_swap);
    return MemoryAcsii::toBase64(m.data().data(), m.size());
}

MeasPoint Serializer<MeasPoint>::fromText(const std::string& s) {
    MemoryBinary m(MemoryAcsii::fromBase64(s));
    return read(m, Endianness::no_swap);
}

} // namespace norda::exp
