#include "nordalib/vision/rix/Crc32.h"

#include <array>

namespace norda::vision {

namespace {
constexpr uint32_t kPolynomial = 0xEDB88320u;

// Slicing-by-8 tables: eight input bytes per step keep the checksum far below the cost of
// writing the file.
constexpr std::array<std::array<uint32_t, 256>, 8> makeTables() {
    std::array<std::array<uint32_t, 256>, 8> t{};
    for (uint32_t i = 0; i < 256; ++i) {
        uint32_t c = i;
        for (int k = 0; k < 8; ++k)
            c = (c & 1u) ? (c >> 1) ^ kPolynomial : c >> 1;
        t[0][i] = c;
    }
    for (uint32_t i = 0; i < 256; ++i)
        for (int s = 1; s < 8; ++s)
            t[s][i] = (t[s - 1][i] >> 8) ^ t[0][t[s - 1][i] & 0xFFu];
    return t;
}
constexpr auto kTables = makeTables();
} // namespace

uint32_t Crc32::update(uint32_t crc, const void* data, size_t size) {
    const auto* p = static_cast<const uint8_t*>(data);
    uint32_t c = ~crc;
    while (size >= 8) {
        const uint32_t lo =
            c ^ (uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24);
        const uint32_t hi =
            uint32_t(p[4]) | uint32_t(p[5]) << 8 | uint32_t(p[6]) << 16 | uint32_t(p[7]) << 24;
        c = kTables[7][lo & 0xFFu] ^ kTables[6][(lo >> 8) & 0xFFu] ^ kTables[5][(lo >> 16) & 0xFFu] ^
            kTables[4][lo >> 24] ^ kTables[3][hi & 0xFFu] ^ kTables[2][(hi >> 8) & 0xFFu] ^
            kTables[1][(hi >> 16) & 0xFFu] ^ kTables[0][hi >> 24];
        p += 8;
        size -= 8;
    }
    while (size--)
        c = kTables[0][(c ^ *p++) & 0xFFu] ^ (c >> 8);
    return ~c;
}

uint32_t Crc32::reference(const void* data, size_t size) {
    const auto* p = static_cast<const uint8_t*>(data);
    uint32_t c = 0xFFFFFFFFu;
    for (size_t i = 0; i < size; ++i) {
        c ^= p[i];
        for (int k = 0; k < 8; ++k)
            c = (c & 1u) ? (c >> 1) ^ kPolynomial : c >> 1;
    }
    return ~c;
}

} // namespace norda::vision
