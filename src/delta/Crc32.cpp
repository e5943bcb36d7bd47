#include "Crc32.h"

#include <zlib.h>

#if defined(__x86_64__) && defined(__GNUC__)
#define CORE_CRC_FOLDING 1
#include <cpuid.h>
#include <immintrin.h>
#endif

namespace Delta {

namespace {

std::uint32_t crcByTable(std::uint32_t crc, const unsigned char* data, std::size_t n)
{
    return std::uint32_t(crc32_z(crc, data, n));
}

#ifdef CORE_CRC_FOLDING

bool canFold()
{
    unsigned eax = 0, ebx = 0, ecx = 0, edx = 0;
    if (!__get_cpuid(1, &eax, &ebx, &ecx, &edx))
        return false;
    return (ecx & bit_PCLMUL) && (ecx & bit_SSE4_1);
}

// The message is a polynomial over GF(2) with its bits reflected; 128 bits at a distance d before
// the next block are moved there by multiplying each half by x to a power near d, reduced modulo the
// CRC's polynomial. The constants are those powers for d = 512 (four blocks) and d = 128 (one).
constexpr long long kFold512Low = 0x154442bd4LL;
constexpr long long kFold512High = 0x1c6e41596LL;
constexpr long long kFold128Low = 0x1751997d0LL;
constexpr long long kFold128High = 0x0ccaa009eLL;

__attribute__((target("pclmul,sse4.1"))) inline __m128i load(const unsigned char* at)
{
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(at));
}

__attribute__((target("pclmul,sse4.1"))) inline __m128i fold(__m128i x, __m128i k, __m128i next)
{
    return _mm_xor_si128(
        _mm_xor_si128(_mm_clmulepi64_si128(x, k, 0x00), _mm_clmulepi64_si128(x, k, 0x11)), next);
}

// At least 64 bytes. Folding keeps a 128-bit value with the same remainder as the bytes so far; its
// own CRC, taken by table from a zero register, is where the rest carries on.
__attribute__((target("pclmul,sse4.1"))) std::uint32_t crcByFolding(
    std::uint32_t crc, const unsigned char* data, std::size_t n)
{
    __m128i x0 = _mm_xor_si128(load(data), _mm_cvtsi32_si128(int(~crc)));
    __m128i x1 = load(data + 16), x2 = load(data + 32), x3 = load(data + 48);
    data += 64;
    n -= 64;
    const __m128i by512 = _mm_set_epi64x(kFold512High, kFold512Low);
    for (; n >= 64; data += 64, n -= 64) {
        x0 = fold(x0, by512, load(data));
        x1 = fold(x1, by512, load(data + 16));
        x2 = fold(x2, by512, load(data + 32));
        x3 = fold(x3, by512, load(data + 48));
    }
    const __m128i by128 = _mm_set_epi64x(kFold128High, kFold128Low);
    x0 = fold(fold(fold(x0, by128, x1), by128, x2), by128, x3);
    for (; n >= 16; data += 16, n -= 16)
        x0 = fold(x0, by128, load(data));
    unsigned char folded[16];
    _mm_storeu_si128(reinterpret_cast<__m128i*>(folded), x0);
    return crcByTable(crcByTable(0xffffffffu, folded, sizeof folded), data, n);
}

#endif

} // namespace

std::uint32_t Crc32(std::uint32_t crc, const unsigned char* data, std::size_t n)
{
#ifdef CORE_CRC_FOLDING
    static const bool folding = canFold();
    if (folding && n >= 64)
        return crcByFolding(crc, data, n);
#endif
    return crcByTable(crc, data, n);
}

} // namespace Delta
