#pragma once
// CRC-32 (IEEE 802.3, reflected polynomial 0xEDB88320, initial value and final xor 0xFFFFFFFF),
// the checksum that guards every chunk of a radiometric image file. "123456789" gives 0xCBF43926.

#include <cstddef>
#include <cstdint>

namespace norda::vision {

class Crc32 {
public:
    // Continues a running checksum: crc = update(update(0, a), b) equals the checksum of a + b.
    static uint32_t update(uint32_t crc, const void* data, size_t size);
    static uint32_t compute(const void* data, size_t size) { return update(0, data, size); }
    // Bit-by-bit reference, for tests of the table-driven update.
    static uint32_t reference(const void* data, size_t size);
};

} // namespace norda::vision
