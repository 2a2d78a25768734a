#include "fscanner/common/crc32.h"

#include <cstring>

#if defined(__x86_64__)
#include <cpuid.h>
#include <nmmintrin.h>
#define FSCANNER_CRC_INSTRUCTION [[gnu::target("sse4.2")]]
#elif defined(__ARM_FEATURE_CRC32) && defined(__AARCH64EL__)
#include <arm_acle.h>
#define FSCANNER_CRC_INSTRUCTION
#endif

namespace fscanner {

namespace {

constexpr std::uint32_t kStart = 0xFFFFFFFF;  // not 0, so that leading zero bytes count

/// Tables for "slicing by eight": slice N holds the effect of a byte that N more bytes follow.
/// Eight lookups that do not depend on each other replace eight that do.
constexpr auto kSlices = [] {
    std::array<std::array<std::uint32_t, 256>, 8> slices{crcTable(0x82F63B78)};
    for (std::size_t n = 1; n < slices.size(); ++n)
        for (std::size_t i = 0; i < 256; ++i)
            slices[n][i] = slices[n - 1][i] >> 8 ^ slices[0][slices[n - 1][i] & 0xFF];
    return slices;
}();

std::uint32_t byteAt(const std::byte* at) {
    return std::to_integer<std::uint32_t>(*at);
}

}  // namespace

std::uint32_t crc32cByTable(std::span<const std::byte> bytes) {
    std::uint32_t crc = kStart;
    const std::byte* at = bytes.data();
    std::size_t left = bytes.size();
    for (; left >= 8; left -= 8, at += 8) {
        std::uint32_t next = 0;
        for (unsigned i = 0; i < 4; ++i)
            next ^= kSlices[7 - i][(crc >> (8 * i) & 0xFF) ^ byteAt(at + i)] ^
                    kSlices[3 - i][byteAt(at + 4 + i)];
        crc = next;
    }
    for (; left > 0; --left, ++at) crc = crc >> 8 ^ kSlices[0][(crc & 0xFF) ^ byteAt(at)];
    return ~crc;
}

#ifdef FSCANNER_CRC_INSTRUCTION

namespace {

// memcpy: the address may be unaligned.
std::uint64_t wordAt(const std::byte* at) {
    std::uint64_t word;
    std::memcpy(&word, at, sizeof word);
    return word;
}

#if defined(__x86_64__)

// Not __builtin_cpu_supports: that asks the processor many times at each start, whether a checksum
// is needed or not, and under a hypervisor each time costs microseconds.
bool hasInstruction() {
    static const bool has = [] {
        unsigned a = 0, b = 0, c = 0, d = 0;
        return __get_cpuid(1, &a, &b, &c, &d) != 0 && (c & bit_SSE4_2) != 0;
    }();
    return has;
}

using Crc = std::uint64_t;

FSCANNER_CRC_INSTRUCTION inline Crc addWord(Crc crc, const std::byte* at) {
    return _mm_crc32_u64(crc, wordAt(at));
}

FSCANNER_CRC_INSTRUCTION inline Crc addByte(Crc crc, const std::byte* at) {
    return _mm_crc32_u8(static_cast<std::uint32_t>(crc), std::to_integer<unsigned char>(*at));
}

#else

constexpr bool hasInstruction() {
    return true;
}

using Crc = std::uint32_t;

inline Crc addWord(Crc crc, const std::byte* at) {
    return __crc32cd(crc, wordAt(at));
}

inline Crc addByte(Crc crc, const std::byte* at) {
    return __crc32cb(crc, std::to_integer<std::uint8_t>(*at));
}

#endif

FSCANNER_CRC_INSTRUCTION std::uint32_t byInstruction(std::span<const std::byte> bytes) {
    Crc crc = kStart;
    const std::byte* at = bytes.data();
    std::size_t left = bytes.size();
    for (; left >= 8; left -= 8, at += 8) crc = addWord(crc, at);
    for (; left > 0; --left, ++at) crc = addByte(crc, at);
    return ~static_cast<std::uint32_t>(crc);
}

// Hardware prefetchers stop at page boundaries, so each step prefetches the same line of the next
// three blocks. A prefetch behind the last block is harmless.
FSCANNER_CRC_INSTRUCTION std::array<std::uint32_t, 3> threeByInstruction(const std::byte* blocks,
                                                                         std::size_t size) {
    constexpr std::size_t line = 64;
    Crc a = kStart, b = kStart, c = kStart;
    for (const std::byte* const end = blocks + size; blocks != end; blocks += line) {
        for (std::size_t block = 3; block < 6; ++block) __builtin_prefetch(blocks + block * size);
        for (std::size_t i = 0; i < line; i += 8) {
            a = addWord(a, blocks + i);
            b = addWord(b, blocks + size + i);
            c = addWord(c, blocks + 2 * size + i);
        }
    }
    return {~static_cast<std::uint32_t>(a), ~static_cast<std::uint32_t>(b),
            ~static_cast<std::uint32_t>(c)};
}

}  // namespace

std::uint32_t crc32c(std::span<const std::byte> bytes) {
    return hasInstruction() ? byInstruction(bytes) : crc32cByTable(bytes);
}

std::array<std::uint32_t, 3> crc32cOfThree(const std::byte* blocks, std::size_t size) {
    if (hasInstruction()) return threeByInstruction(blocks, size);
    return {crc32c({blocks, size}), crc32c({blocks + size, size}),
            crc32c({blocks + 2 * size, size})};
}

#else

std::uint32_t crc32c(std::span<const std::byte> bytes) {
    return crc32cByTable(bytes);
}

std::array<std::uint32_t, 3> crc32cOfThree(const std::byte* blocks, std::size_t size) {
    return {crc32c({blocks, size}), crc32c({blocks + size, size}),
            crc32c({blocks + 2 * size, size})};
}

#endif

}  // namespace fscanner
