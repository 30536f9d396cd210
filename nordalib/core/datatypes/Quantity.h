#pragma once
// Physical quantities over a value type V (float or MarkedFloat).
//
// Temperature<V> knows its unit (Celsius, Kelvin, Fahrenheit) and converts between them, keeping
// the validity mark of a MarkedFloat. Relation<V> is a dimensionless ratio (emissivity, relative
// humidity) held as a fraction 0..1 and shown in percent. Both derive from QuantityBase<V>, which
// is how MeasArea::setMeanValue recognises an allowed quantity.

#include "nordalib/core/datatypes/MarkedFloat.h"

#include <cstdint>
#include <string>

namespace norda::exp::quantity {

namespace detail {
inline float toFloat(float v) {
    return v;
}
inline float toFloat(double v) {
    return static_cast<float>(v);
}
inline float toFloat(const MarkedFloat& v) {
    return v.toFloat();
}
// A V with a new value and the mark of `like`.
inline float withValue(float, float value) {
    return value;
}
inline double withValue(double, float value) {
    return value;
}
inline MarkedFloat withValue(const MarkedFloat& like, float value) {
    MarkedFloat m = like;
    m.setValue(value);
    return m;
}
} // namespace detail

template <typename V> class QuantityBase {
public:
    QuantityBase() = default;
    explicit QuantityBase(V value) : m_value(value) {}
    const V& getValue() const { return m_value; }
    void setValue(V value) { m_value = value; }

protected:
    V m_value{};
};

enum class TemperatureUnit : uint8_t { Celsius = 0, Kelvin = 1, Fahrenheit = 2 };

const char* unitSymbol(TemperatureUnit unit); // "°C", "K", "°F"

template <typename V> class Temperature : public QuantityBase<V> {
public:
    Temperature() = default;
    explicit Temperature(V value, TemperatureUnit unit = TemperatureUnit::Celsius)
        : QuantityBase<V>(value), m_unit(unit) {}

    static Temperature fromCelsius(V value) { return Temperature(value, TemperatureUnit::Celsius); }
    static Temperature fromKelvin(V value) { return Temperature(value, TemperatureUnit::Kelvin); }

    TemperatureUnit getUnit() const { return m_unit; }
    // The same temperature in another unit (the mark travels along).
    Temperature convertTo(TemperatureUnit unit) const {
        return Temperature(detail::withValue(this->m_value, in(unit)), unit);
    }
    // The value as a float in the given unit.
    float in(TemperatureUnit unit) const {
        const float v = detail::toFloat(this->m_value);
        if (unit == m_unit)
            return v;
        double kelvin = m_unit == TemperatureUnit::Kelvin    ? v
                        : m_unit == TemperatureUnit::Celsius ? v + 273.15
                                                             : (v - 32.0) * 5.0 / 9.0 + 273.15;
        switch (unit) {
        case TemperatureUnit::Kelvin:
            return static_cast<float>(kelvin);
        case TemperatureUnit::Celsius:
            return static_cast<float>(kelvin - 273.15);
        case TemperatureUnit::Fahrenheit:
            return static_cast<float>((kelvin - 273.15) * 9.0 / 5.0 + 32.0);
        }
        return v;
    }
    float celsius() const { return in(TemperatureUnit::Celsius); }
    float kelvin() const { return in(TemperatureUnit::Kelvin); }
    float fahrenheit() const { return in(TemperatureUnit::Fahrenheit); }

    bool operator==(const Temperature& o) const { return m_unit == o.m_unit && this->m_value == o.m_value; }
    bool operator!=(const Temperature& o) const { return !(*this == o); }

private:
    TemperatureUnit m_unit = TemperatureUnit::Celsius;
};

template <typename V> class Relation : public QuantityBase<V> {
public:
    Relation() = default;
    // `ratio` as a fraction: 0.5 is 50 %.
    explicit Relation(V ratio) : QuantityBase<V>(ratio) {}
    static Relation fromPercent(float percent) { return Relation(V(percent / 100.0f)); }

    float ratio() const { return detail::toFloat(this->m_value); }
    float percent() const { return ratio() * 100.0f; }

    bool operator==(const Relation& o) const { return this->m_value == o.m_value; }
    bool operator!=(const Relation& o) const { return !(*this == o); }
};

} // namespace norda::exp::quantity

namespace norda::exp {

template <> struct Serializer<quantity::Temperature<MarkedFloat>> {
    using T = quantity::Temperature<MarkedFloat>;
    static constexpr bool available = true;
    static std::string tag() { return "Temperature"; }
    static void write(MemoryBinary& m, const T& v, Endianness e) {
        m.writeScalar<uint32_t>(v.getValue().raw(), e);
        m.writeScalar<uint8_t>(static_cast<uint8_t>(v.getUnit()), e);
    }
    static T read(MemoryBinary& m, Endianness e);
    static std::string toText(const T& v);
    static T fromText(const std::string& s);
};

template <> struct Serializer<quantity::Relation<MarkedFloat>> {
    using T = quantity::Relation<MarkedFloat>;
    static constexpr bool available = true;
    static std::string tag() { return "Relation"; }
    static void write(MemoryBinary& m, const T& v, Endianness e) {
        m.writeScalar<uint32_t>(v.getValue().raw(), e);
    }
    static T read(MemoryBinary& m, Endianness e) {
        return T(MarkedFloat::fromRaw(m.readScalar<uint32_t>(e)));
    }
    static std::string toText(const T& v) { return Serializer<MarkedFloat>::toText(v.getValue()); }
    static T fromText(const std::string& s) { return T(Serializer<MarkedFloat>::fromText(s)); }
};

} // namespace norda::exp
