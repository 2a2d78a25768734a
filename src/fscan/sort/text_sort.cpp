#include "fscan/sort/text_sort.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <utility>

namespace fscan {

namespace {

// Up to this size comparisons are faster than counting; found by measurement.
constexpr std::size_t kSmallRange = 128;
constexpr std::size_t kRadix = 256;

bool inOrder(const SortEntry& a, const SortEntry& b) {
    return a.prefix < b.prefix;
}

// The bits in which the prefixes differ.
std::uint64_t differences(SortRange range) {
    std::uint64_t found = 0;
    for (const SortEntry& entry : range) found |= entry.prefix ^ range.front().prefix;
    return found;
}

void sortByPrefix(SortRange range);

// Moves each entry into the part of the range that belongs to its byte ("American flag
// sort"), then sorts each part by the following bytes.
void sortByByte(SortRange range, unsigned shift) {
    const auto byteOf = [shift](const SortEntry& e) { return (e.prefix >> shift) & (kRadix - 1); };
    std::array<std::size_t, kRadix> next{}, end{};
    for (const SortEntry& entry : range) ++end[byteOf(entry)];
    for (std::size_t byte = 1; byte < kRadix; ++byte) {
        next[byte] = end[byte - 1];
        end[byte] += next[byte];
    }
    const auto begin = next;
    for (std::size_t byte = 0; byte < kRadix; ++byte) {
        while (next[byte] != end[byte]) {
            SortEntry moving = range[next[byte]];
            for (std::size_t to; (to = byteOf(moving)) != byte;)
                std::swap(moving, range[next[to]++]);
            range[next[byte]++] = moving;
        }
    }
    if (shift == 0) return;
    for (std::size_t byte = 0; byte < kRadix; ++byte)
        sortByPrefix(range.subspan(begin[byte], end[byte] - begin[byte]));
}

void sortByPrefix(SortRange range) {
    if (range.size() < 2) return;
    if (range.size() <= kSmallRange) return std::sort(range.begin(), range.end(), inOrder);
    const std::uint64_t differ = differences(range);
    if (differ == 0 || std::is_sorted(range.begin(), range.end(), inOrder)) return;
    sortByByte(range, static_cast<unsigned>(std::bit_width(differ) - 1) / 8 * 8);
}

// The eight bytes of a text from `depth` on, with zeros beyond its end.
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

// Takes the entries with the first one's prefix off the front.
SortRange takeEqual(SortRange& range) {
    const auto same = [&](const SortEntry& entry) { return entry.prefix == range.front().prefix; };
    const auto last = std::find_if_not(range.begin(), range.end(), same);
    const SortRange equal(range.begin(), last);
    range = SortRange(last, range.end());
    return equal;
}

// How many bytes all of the texts have in common, which is `depth` or more.
std::size_t commonDepth(SortRange range, std::size_t depth) {
    const std::string_view first = range.front().text();
    std::size_t end = first.size();
    for (const SortEntry& entry : range) {
        const std::string_view other = entry.text().substr(0, end);
        const auto differ = std::mismatch(first.begin() + depth, first.begin() + other.size(),
                                          other.begin() + depth);
        end = static_cast<std::size_t>(differ.first - first.begin());
    }
    return end;
}

}  // namespace

void TextSorter::enter(SortRange range, std::size_t depth) {
    for (std::size_t i = 0; i < range.size(); ++i) {
        if (i + kPrefetchDistance < range.size())
            __builtin_prefetch(range[i + kPrefetchDistance].bytes + depth);
        range[i].prefix = prefixOf(range[i].text(), depth);
    }
    sortByPrefix(range);
    open_.push_back({range, depth});
}

void TextSorter::sort(SortRange range, const Visit& visit) {
    if (!range.empty()) enter(range, 0);
    while (!open_.empty()) {
        Level& level = open_.back();
        const std::size_t all = level.left.size();
        const SortRange equal = takeEqual(level.left);
        std::size_t depth = level.depth + sizeof(std::uint64_t);
        if (level.left.empty()) open_.pop_back();
        // A prefix that ends with a zero byte reaches the end of the text.
        if (equal.size() == 1 || (equal.front().prefix & 0xFF) == 0) {
            if (visit) visit(equal);
        } else {
            // Long paths have much more in common than the next eight bytes.
            if (equal.size() == all) depth = commonDepth(equal, depth);
            enter(equal, depth);
        }
    }
}

}  // namespace fscan
