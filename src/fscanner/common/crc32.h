#pragma once

#include <array>
#include <cstdint>
#include <string_view>

namespace fscanner {

/// What a byte adds to a checksum of 32 bits whose bits are reflected, for each value of it.
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
/// the start, complemented at the end. That of "123456789" is 0xCBF43926.
constexpr std::uint32_t crc32(std::string_view bytes) {
    constexpr auto table = crcTable(0xEDB88320);
    std::uint32_t crc = 0xFFFFFFFF;
    for (const char byte : bytes)
        crc = crc >> 8 ^ table[(crc ^ static_cast<unsigned char>(byte)) & 0xFF];
    return ~crc;
}
static_assert(crc32("123456789") == 0xCBF43926);

}  // namespace fscanner
