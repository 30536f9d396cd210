#include "nordalib/core/datatypes/MeasArea.h"

#include "nordalib/core/datatypes/VariantRegistry.h"

namespace norda::exp {

MeasArea::MeasArea(unsigned short x, unsigned short y, unsigned short width, unsigned short height)
    : m_x(x), m_y(y), m_width(width), m_height(height) {}

void MeasArea::throwNotAllowed() {
    throw Exception(
        "Only QuantityBase<MarkedFloat> types are allowed!",
        formatLocation("nordalib/core/datatypes/MeasArea", __LINE__, "norda::exp::MeasArea::setMeanValue"));
}

bool MeasArea::operator==(const MeasArea& o) const {
    if (getAreaRect() != o.getAreaRect() || m_hot != o.m_hot || m_cold != o.m_cold)
        return false;
    if (!m_mean || !o.m_mean)
        return !m_mean && !o.m_mean;
    return *m_mean == *o.m_mean;
}

void Serializer<MeasArea>::write(MemoryBinary& m, const MeasArea& v, Endianness e) {
    auto r = v.getAreaRect();
    for (int x : {r.x, r.y, r.width, r.height})
        m.writeScalar<uint16_t>(static_cast<uint16_t>(x), e);
    Serializer<MeasPoint>::write(m, v.getHotSpot(), e);
    Serializer<MeasPoint>::write(m, v.getColdSpot(), e);
    m.writeScalar<uint8_t>(v.getMeanValue() ? 1 : 0, e);
    if (v.getMeanValue())
        writeVariant(m, *v.getMeanValue(), e);
}

MeasArea Serializer<MeasArea>::read(MemoryBinary& m, Endianness e) {
    uint16_t r[4];
    for (auto& x : r)
        x = m.readScalar<uint16_t>(e);
    MeasArea a(r[0], r[1], r[2], r[3]);
    a.setHotSpot(Serializer<MeasPoint>::read(m, e));
    a.setColdSpot(Serializer<MeasPoint>::read(m, e));
    std::shared_ptr<Variant> mean;
    if (m.readScalar<uint8_t>(e))
        mean = readVariant(m, e);
    a.setMeanVariant(mean);
    return a;
}

std::string Serializer<MeasArea>::toText(const MeasArea& v) {
    MemoryBinary m;
    write(m, v, Endianness::no_swap);
    return MemoryAcsii::toBase64(m.data().data(), m.size());
}

MeasArea Serializer<MeasArea>::fromText(const std::string& s) {
    MemoryBinary m(MemoryAcsii::fromBase64(s));
    return read(m, Endianness::no_swap);
}

} // namespace norda::exp
