#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace fscanner {

/// The lookup table of a bit-reflected 32-bit CRC: for each byte value, its effect on the sum.
constexpr std::array<std::uint32_t, 256> crcTable(std::uint32_t reflectedPolynomial) {
    std::array<std::uint32_t, 256> values{};
    for (std::uint32_t i = 0; i < values.size(); ++i) {
        std::uint32_t value = i;
        for (int bit = 0; bit < 8; ++bit)
            value = value >> 1 ^ ((value & 1) != 0 ? reflectedPolynomial : 0);
        values[i] = value;
    }
    return values;
}

/// The CRC-32 of zip, PNG and Ethernet: polynomial 0x04C11DB7, bits reflected, all ones at
/// the start, complemented at the end. The sum of "123456789" is 0xCBF43926.
constexpr std::uint32_t crc32(std::string_view bytes) {
    constexpr auto table = crcTable(0xEDB88320);
    std::uint32_t crc = 0xFFFFFFFF;
    for (const char byte : bytes)
        crc = crc >> 8 ^ table[(crc ^ static_cast<unsigned char>(byte)) & 0xFF];
    return ~crc;
}
static_assert(crc32("123456789") == 0xCBF43926);

/// The CRC-32C (Castagnoli) of iSCSI and ext4: polynomial 0x1EDC6F41, bits reflected, all ones
/// at the start, complemented at the end. The sum of "123456789" is 0xE3069283.
///
/// Uses the processor's CRC instruction. On x86-64 the first call tests for SSE4.2; on ARMv8 the
/// compiler's target decides. Other processors use tables.
std::uint32_t crc32c(std::span<const std::byte> bytes);

/// The CRC-32C of three adjacent blocks of `size` bytes each; `size` is a multiple of 64. The
/// instruction has a latency of three cycles and a throughput of one per cycle, so three
/// independent sums take as long as one.
std::array<std::uint32_t, 3> crc32cOfThree(const std::byte* blocks, std::size_t size);

/// The same result by tables, on every processor.
std::uint32_t crc32cByTable(std::span<const std::byte> bytes);

}  // namespace fscanner
