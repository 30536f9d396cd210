#include "nordalib/core/datatypes/Version.h"

namespace norda::exp {

std::string Version::toString() const {
    return fmt::format("{}.{}.{}", m_major, m_minor, m_patch);
}

Version Version::fromString(const std::string& text) {
    auto parts = MemoryAcsii::splitEscaped(text, '.');
    if (parts.size() != 3)
        NORDA_THROW("not a version: \"" + text + "\"", "norda::exp::Version::fromString");
    return {static_cast<uint16_t>(MemoryAcsii::parseUnsigned(parts[0], 65535)),
            static_cast<uint16_t>(MemoryAcsii::parseUnsigned(parts[1], 65535)),
            static_cast<uint16_t>(MemoryAcsii::parseUnsigned(parts[2], 65535))};
}

} // namespace norda::exp
