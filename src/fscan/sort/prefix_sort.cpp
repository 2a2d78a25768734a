#include "fscan/sort/prefix_sort.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <utility>

namespace fscan {

namespace {

// Up to here comparisons are quicker than counting.
constexpr std::size_t smallRange = 128;
constexpr std::size_t radix = 256;

// The bits in which the prefixes differ.
std::uint64_t differences(SortRange range) {
    std::uint64_t found = 0;
    for (const SortEntry& entry : range) found |= entry.prefix ^ range.front().prefix;
    return found;
}

bool inOrder(const SortEntry& a, const SortEntry& b) {
    return a.prefix < b.prefix;
}

// Moves each entry among those of the same byte, and sorts these by what follows it.
void sortByByte(SortRange range, unsigned shift) {
    const auto byteOf = [shift](const SortEntry& e) { return (e.prefix >> shift) & (radix - 1); };
    std::array<std::size_t, radix> next{}, end{};
    for (const SortEntry& entry : range) ++end[byteOf(entry)];
    for (std::size_t byte = 1; byte < radix; ++byte) {
        next[byte] = end[byte - 1];
        end[byte] += next[byte];
    }
    const auto begin = next;
    for (std::size_t byte = 0; byte < radix; ++byte) {
        while (next[byte] != end[byte]) {
            SortEntry moving = range[next[byte]];
            for (std::size_t to; (to = byteOf(moving)) != byte;)
                std::swap(moving, range[next[to]++]);
            range[next[byte]++] = moving;
        }
    }
    if (shift == 0) return;
    for (std::size_t byte = 0; byte < radix; ++byte)
        sortByPrefix(range.subspan(begin[byte], end[byte] - begin[byte]));
}

}  // namespace

std::uint64_t prefixOf(std::string_view text, std::size_t depth) {
    text.remove_prefix(std::min(depth, text.size()));
    std::uint64_t prefix = 0;
    if (text.size() >= sizeof prefix) {
        std::memcpy(&prefix, text.data(), sizeof prefix);
    } else if (!text.empty()) {
        std::memcpy(&prefix, text.data(), text.size());
    }
    if constexpr (std::endian::native == std::endian::little) prefix = __builtin_bswap64(prefix);
    return prefix;
}

void sortByPrefix(SortRange range) {
    if (range.size() < 2) return;
    if (range.size() <= smallRange) return std::sort(range.begin(), range.end(), inOrder);
    const std::uint64_t differ = differences(range);
    if (differ == 0 || std::is_sorted(range.begin(), range.end(), inOrder)) return;
    sortByByte(range, static_cast<unsigned>(std::bit_width(differ) - 1) / 8 * 8);
}

}  // namespace fscan
