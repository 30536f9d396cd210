#pragma once
// MeasPoint: a measurement at an image position; the value is a Temperature<MarkedFloat> or, in
// humidity mode, a Relation<MarkedFloat>, held as a Variant.

#include "nordalib/core/datatypes/Quantity.h"
#include "nordalib/core/datatypes/Variant.h"

#include <opencv2/core.hpp>

#include <cstdint>
#include <memory>

namespace norda::exp {

class MeasPoint {
public:
    MeasPoint();
    MeasPoint(unsigned short x, unsigned short y, std::shared_ptr<Variant> value);
    template <typename Q>
    requires std::is_base_of_v<quantity::QuantityBase<MarkedFloat>, Q>
    MeasPoint(unsigned short x, unsigned short y, const Q& quantity)
        : MeasPoint(x, y, std::make_shared<Variant_<Q>>(quantity)) {}

    cv::Point_<int> getPos() const { return {m_x, m_y}; }
    unsigned short getX() const { return m_x; }
    unsigned short getY() const { return m_y; }
    const std::shared_ptr<Variant>& getValue() const { return m_value; }
    void setValue(std::shared_ptr<Variant> value) { m_value = std::move(value); }

    // Equal when positions match and the values are equal (both empty counts as equal).
    bool operator==(const MeasPoint& other) const;
    bool operator!=(const MeasPoint& other) const { return !(*this == other); }

private:
    unsigned short m_x = 0;
    unsigned short m_y = 0;
    std::shared_ptr<Variant> m_value;
};

template <> struct Serializer<MeasPoint> {
    static constexpr bool available = true;
    static std::string tag() { return "MeasPoint"; }
    static void write(MemoryBinary& m, const MeasPoint& v, Endianness e);
    static MeasPoint read(MemoryBinary& m, Endianness e);
    static std::string toText(const MeasPoint& v);
    static MeasPoint fromText(const std::string& s);
};

} // namespace norda::exp
