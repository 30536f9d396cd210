#pragma once
// MeasArea: a rectangular measurement area with its hot spot, cold spot and mean value.

#include "nordalib/core/datatypes/MeasPoint.h"

#include <type_traits>

namespace norda::exp {

class MeasArea {
public:
    MeasArea() = default;
    MeasArea(unsigned short x, unsigned short y, unsigned short width, unsigned short height);

    cv::Rect_<int> getAreaRect() const { return {m_x, m_y, m_width, m_height}; }
    void setHotSpot(const MeasPoint& p) { m_hot = p; }
    void setColdSpot(const MeasPoint& p) { m_cold = p; }
    const MeasPoint& getHotSpot() const { return m_hot; }
    const MeasPoint& getColdSpot() const { return m_cold; }

    // Only quantities built on MarkedFloat (Temperature<MarkedFloat>, Relation<MarkedFloat>).
    template <typename Q> void setMeanValue(Q value) {
        if constexpr (std::is_base_of_v<quantity::QuantityBase<MarkedFloat>, Q>)
            m_mean = std::make_shared<Variant_<Q>>(value);
        else
            throwNotAllowed();
    }
    const std::shared_ptr<Variant>& getMeanValue() const { return m_mean; }
    void setMeanVariant(std::shared_ptr<Variant> v) { m_mean = std::move(v); }

    bool operator==(const MeasArea& other) const;
    bool operator!=(const MeasArea& other) const { return !(*this == other); }

private:
    [[noreturn]] static void throwNotAllowed();

    unsigned short m_x = 0, m_y = 0, m_width = 0, m_height = 0;
    MeasPoint m_hot, m_cold;
    std::shared_ptr<Variant> m_mean =
        std::make_shared<Variant_<quantity::Temperature<MarkedFloat>>>(quantity::Temperature<MarkedFloat>());
};

template <> struct Serializer<MeasArea> {
    static constexpr bool available = true;
    static std::string tag() { return "MeasArea"; }
    static void write(MemoryBinary& m, const MeasArea& v, Endianness e);
    static MeasArea read(MemoryBinary& m, Endianness e);
    static std::string toText(const MeasArea& v);
    static MeasArea fromText(const std::string& s);
};

} // namespace norda::exp
