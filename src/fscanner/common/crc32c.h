#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

namespace fscanner {

/// The CRC-32C (Castagnoli) of iSCSI and ext4: polynomial 0x1EDC6F41, bits reflected, all ones
/// at the start, complemented at the end. That of "123456789" is 0xE3069283.
///
/// Processors have an instruction for it: SSE4.2 is looked for when the first sum is made, the
/// CRC extension of ARMv8 is used where the compiler may. Others go by table.
std::uint32_t crc32c(std::span<const std::byte> bytes);

/// Those of three blocks, one behind the other, of `size` bytes each, a multiple of 64. The
/// instruction takes three cycles and can begin in each of them, so that three sums at a time
/// take as long as one.
std::array<std::uint32_t, 3> crc32cOfThree(const std::byte* blocks, std::size_t size);

/// The same by table, wherever it runs.
std::uint32_t crc32cByTable(std::span<const std::byte> bytes);

}  // namespace fscanner
