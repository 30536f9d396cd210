#pragma once
// CRC-32 (IEEE 802.3, reflected polynomial 0xEDB88320, initial value and final xor 0xFFFFFFFF),
// the checksum that guards every chunk of a radiometric image file. "123456789" gives 0xCBF43926.
// Reading an archive is mostly this checksum over megabytes of pixels: on x86-64 processors with
// carry-less multiplication it folds 64 bytes a step; elsewhere a slicing-by-8 table does it.

#include <cstddef>
#include <cstdint>

namespace norda::vision {

class Crc32 {
public:
    // Continues a running checksum: crc = update(update(0, a), b) equals the checksum of a + b.
    static uint32_t update(uint32_t crc, const void* data, size_t size);
    static uint32_t compute(const void* data, size_t size) { return update(0, data, size); }
    // The portable slicing-by-8 table path (what update runs without carry-less multiplication).
    static uint32_t updateTable(uint32_t crc, const void* data, size_t size);
    // Whether update uses the processor's carry-less multiplication.
    static bool hardware();
    // Bit-by-bit reference, for tests of the faster paths.
    static uint32_t reference(const void* data, size_t size);
};

} // namespace norda::vision
