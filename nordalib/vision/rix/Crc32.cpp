#include "nordalib/vision/rix/Crc32.h"

#include <array>

#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))
#define NORDA_CRC32_CLMUL 1
#include <immintrin.h>
#endif

namespace norda::vision {

namespace {
constexpr uint32_t kPolynomial = 0xEDB88320u;

// Slicing-by-8 tables: eight input bytes per step.
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

// The shift register (not inverted) after `size` more bytes.
uint32_t tableRegister(uint32_t c, const uint8_t* p, size_t size) {
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
    return c;
}

#ifdef NORDA_CRC32_CLMUL
#define NORDA_CLMUL_TARGET __attribute__((target("pclmul,sse4.1")))

NORDA_CLMUL_TARGET inline __m128i load16(const uint8_t* p) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
}

// x advanced over the bits that k's powers of x stand for, plus the next 16 bytes.
NORDA_CLMUL_TARGET inline __m128i fold(__m128i x, __m128i k, __m128i next) {
    return _mm_xor_si128(_mm_xor_si128(_mm_clmulepi64_si128(x, k, 0x00), _mm_clmulepi64_si128(x, k, 0x11)),
                         next);
}

// Folding with carry-less multiplication (the generic method of Gopal et al., "Fast CRC computation
// for generic polynomials using PCLMULQDQ", Intel 2009): four 16-byte lanes advance 64 bytes a
// step, are folded into one, reduced to 64 bits and then by Barrett reduction to the 32-bit
// register. The constants are x^k mod P, bit-reflected, for k = 4*128+-32 (k1, k2), 128+-32 (k3,
// k4) and 64 (k5), and Barrett's mu = x^64 / P with P itself. `size` is a multiple of 16, >= 64.
NORDA_CLMUL_TARGET uint32_t clmulRegister(uint32_t c, const uint8_t* p, size_t size) {
    const __m128i k1k2 = _mm_set_epi64x(0x1C6E41596ll, 0x154442BD4ll);
    const __m128i k3k4 = _mm_set_epi64x(0x0CCAA009Ell, 0x1751997D0ll);
    const __m128i k5 = _mm_set_epi64x(0, 0x163CD6124ll);
    const __m128i muP = _mm_set_epi64x(0x1F7011641ll, 0x1DB710641ll);
    const __m128i low32 = _mm_set_epi32(0, 0, 0, -1);

    __m128i x0 = _mm_xor_si128(load16(p), _mm_cvtsi32_si128(int(c)));
    __m128i x1 = load16(p + 16), x2 = load16(p + 32), x3 = load16(p + 48);
    for (p += 64, size -= 64; size >= 64; p += 64, size -= 64) {
        x0 = fold(x0, k1k2, load16(p));
        x1 = fold(x1, k1k2, load16(p + 16));
        x2 = fold(x2, k1k2, load16(p + 32));
        x3 = fold(x3, k1k2, load16(p + 48));
    }
    x0 = fold(fold(fold(x0, k3k4, x1), k3k4, x2), k3k4, x3);
    for (; size >= 16; p += 16, size -= 16)
        x0 = fold(x0, k3k4, load16(p));

    // 128 to 64 bits (appending the 32 zero bits of the division), then 64 to 32 by Barrett.
    x0 = _mm_xor_si128(_mm_srli_si128(x0, 8), _mm_clmulepi64_si128(k3k4, x0, 0x01));
    x0 = _mm_xor_si128(_mm_srli_si128(x0, 4), _mm_clmulepi64_si128(_mm_and_si128(x0, low32), k5, 0x00));
    __m128i t = _mm_clmulepi64_si128(_mm_and_si128(x0, low32), muP, 0x10);
    t = _mm_clmulepi64_si128(_mm_and_si128(t, low32), muP, 0x00);
    return static_cast<uint32_t>(_mm_extract_epi32(_mm_xor_si128(x0, t), 1));
}

bool clmulAvailable() {
    static const bool yes = [] {
        __builtin_cpu_init(); // may run before the runtime's own initialisation
        return __builtin_cpu_supports("pclmul") && __builtin_cpu_supports("sse4.1");
    }();
    return yes;
}
#endif
} // namespace

uint32_t Crc32::update(uint32_t crc, const void* data, size_t size) {
    const auto* p = static_cast<const uint8_t*>(data);
    uint32_t c = ~crc;
#ifdef NORDA_CRC32_CLMUL
    if (size >= 64 && clmulAvailable()) {
        const size_t blocks = size & ~size_t(15);
        c = clmulRegister(c, p, blocks);
        p += blocks;
        size -= blocks;
    }
#endif
    return ~tableRegister(c, p, size);
}

uint32_t Crc32::updateTable(uint32_t crc, const void* data, size_t size) {
    return ~tableRegister(~crc, static_cast<const uint8_t*>(data), size);
}

bool Crc32::hardware() {
#ifdef NORDA_CRC32_CLMUL
    return clmulAvailable();
#else
    return false;
#endif
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
