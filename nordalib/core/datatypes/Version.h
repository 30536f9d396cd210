#pragma once
// Version: major.minor.patch of a file format or program.

#include "nordalib/core/memory/Memory.h"

#include <compare>
#include <cstdint>
#include <string>

namespace norda::exp {

class Version {
public:
    Version() = default;
    Version(uint16_t major, uint16_t minor, uint16_t patch)
        : m_major(major), m_minor(minor), m_patch(patch) {}

    uint16_t getMajor() const { return m_major; }
    uint16_t getMinor() const { return m_minor; }
    uint16_t getPatch() const { return m_patch; }
    std::string toString() const; // "2.0.0"
    static Version fromString(const std::string& text);

    auto operator<=>(const Version&) const = default;

private:
    uint16_t m_major = 0, m_minor = 0, m_patch = 0;
};

template <> struct Serializer<Version> {
    static constexpr bool available = true;
    static std::string tag() { return "Version"; }
    static void write(MemoryBinary& m, const Version& v, Endianness e) {
        m.writeScalar<uint16_t>(v.getMajor(), e);
        m.writeScalar<uint16_t>(v.getMinor(), e);
        m.writeScalar<uint16_t>(v.getPatch(), e);
    }
    static Version read(MemoryBinary& m, Endianness e) {
        auto a = m.readScalar<uint16_t>(e);
        auto b = m.readScalar<uint16_t>(e);
        auto c = m.readScalar<uint16_t>(e);
        return {a, b, c};
    }
    static std::string toText(const Version& v) { return v.toString(); }
    static Version fromText(const std::string& s) { return Version::fromString(s); }
};

} // namespace norda::exp
