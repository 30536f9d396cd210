#include "nordalib/core/datatypes/Quantity.h"

namespace norda::exp {

namespace quantity {
const char* unitSymbol(TemperatureUnit unit) {
    switch (unit) {
    case TemperatureUnit::Celsius:
        return "°C";
    case TemperatureUnit::Kelvin:
        return "K";
    case TemperatureUnit::Fahrenheit:
        return "°F";
    }
    return "?";
}
} // namespace quantity

using quantity::TemperatureUnit;

quantity::Temperature<MarkedFloat> Serializer<quantity::Temperature<MarkedFloat>>::read(MemoryBinary& m,
                                                                                        Endianness e) {
    auto raw = m.readScalar<uint32_t>(e);
    auto unit = m.readScalar<uint8_t>(e);
    if (unit > 2)
        NORDA_THROW("unknown temperature unit " + std::to_string(unit), "norda::exp::Memory::deserializeT");
    return T(MarkedFloat::fromRaw(raw), static_cast<TemperatureUnit>(unit));
}

std::string Serializer<quantity::Temperature<MarkedFloat>>::toText(const T& v) {
    static const char* units[] = {"C", "K", "F"};
    return Serializer<MarkedFloat>::toText(v.getValue()) + "," + units[static_cast<int>(v.getUnit())];
}

quantity::Temperature<MarkedFloat>
Serializer<quantity::Temperature<MarkedFloat>>::fromText(const std::string& s) {
    auto parts = MemoryAcsii::splitEscaped(s);
    if (parts.size() != 3 || parts[2].size() != 1)
        NORDA_THROW("not a temperature: \"" + s + "\"", "norda::exp::intern::fromStringTimpl");
    TemperatureUnit unit;
    switch (parts[2][0]) {
    case 'C':
        unit = TemperatureUnit::Celsius;
        break;
    case 'K':
        unit = TemperatureUnit::Kelvin;
        break;
    case 'F':
        unit = TemperatureUnit::Fahrenheit;
        break;
    default:
        NORDA_THROW("unknown temperature unit in \"" + s + "\"", "norda::exp::intern::fromStringTimpl");
    }
    return T(Serializer<MarkedFloat>::fromText(parts[0] + "," + parts[1]), unit);
}

} // namespace norda::exp
