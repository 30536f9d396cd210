#include "nordalib/core/memory/MemoryBinary.h"

#include "nordalib/core/exception/Exception.h"

namespace norda::exp {

void MemoryBinary::write(const void* data, size_t size) {
    if (size == 0)
        return;
    auto p = static_cast<const uint8_t*>(data);
    m_data.insert(m_data.end(), p, p + size);
}

void MemoryBinary::read(void* data, size_t size) {
    if (size > remaining())
        NORDA_THROW("MemoryBinary: read of " + std::to_string(size) + " bytes past the end (" +
                        std::to_string(remaining()) + " left)",
                    "norda::exp::MemoryBinary::read");
    if (size)
        std::memcpy(data, m_data.data() + m_readPos, size);
    m_readPos += size;
}

void MemoryBinary::skip(size_t size) {
    if (size > remaining())
        NORDA_THROW("MemoryBinary: skip of " + std::to_string(size) + " bytes past the end",
                    "norda::exp::MemoryBinary::skip");
    m_readPos += size;
}

uint32_t MemoryBinary::readCount(size_t minElementSize, Endianness e) {
    auto n = readScalar<uint32_t>(e);
    if (minElementSize > 0 && static_cast<uint64_t>(n) * minElementSize > remaining())
        NORDA_THROW("MemoryBinary: count " + std::to_string(n) + " exceeds the remaining " +
                        std::to_string(remaining()) + " bytes",
                    "norda::exp::MemoryBinary::readCount");
    return n;
}

void MemoryBinary::writeString(const std::string& s, Endianness e) {
    writeScalar<uint32_t>(static_cast<uint32_t>(s.size()), e);
    write(s.data(), s.size());
}

std::string MemoryBinary::readString(Endianness e) {
    auto n = readCount(1, e);
    std::string s(n, '\0');
    read(s.data(), n);
    return s;
}

} // namespace norda::exp
