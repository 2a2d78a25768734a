#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <memory_resource>
#include <span>
#include <string_view>
#include <vector>

#include "fscan/sort/text_pool.h"

namespace fscan {

/// What stands for a match, or a directory, while it is sorted.
struct SortEntry {
    std::uint64_t prefix;     ///< of what is left of its key, to be compared as a number
    std::uint32_t text;       ///< the place of its text
    std::uint32_t directory;  ///< the number of its directory
};
using SortRange = std::span<SortEntry>;

/// How many entries ahead texts are brought from memory.
inline constexpr std::size_t prefetchedAhead = 16;

/// Sorts by the prefixes, radix by radix.
void sortByPrefix(SortRange range);

/// The eight bytes of a text from `depth` on, zeros beyond its end.
std::uint64_t prefixOf(std::string_view text, std::size_t depth);

/// Calls `act` with each run of neighbours that are the `same`.
template <class Same, class Act>
void forEachRun(SortRange range, Same same, Act act) {
    for (auto first = range.begin(); first != range.end();) {
        auto last = first + 1;
        while (last != range.end() && same(*first, *last)) ++last;
        act(SortRange(first, last));
        first = last;
    }
}

/// Takes the run of neighbours with one prefix off the front.
inline SortRange takeEqual(SortRange& range) {
    const auto same = [&](const SortEntry& entry) { return entry.prefix == range.front().prefix; };
    const auto last = std::find_if_not(range.begin(), range.end(), same);
    const SortRange equal(range.begin(), last);
    range = SortRange(last, range.end());
    return equal;
}

/// Sorts by the eight bytes of each text from `depth` on.
inline void sortAt(SortRange range, const TextPool& texts, std::size_t depth) {
    for (std::size_t i = 0; i < range.size(); ++i) {
        if (i + prefetchedAhead < range.size()) texts.prefetch(range[i + prefetchedAhead].text);
        range[i].prefix = prefixOf(texts.text(range[i].text), depth);
    }
    sortByPrefix(range);
}

/// How many bytes all of the texts agree in, which is `depth` or more.
inline std::size_t commonDepth(SortRange range, const TextPool& texts, std::size_t depth) {
    const std::string_view first = texts.text(range.front().text);
    std::size_t end = first.size();
    for (const SortEntry& entry : range) {
        const std::string_view other = texts.text(entry.text).substr(0, end);
        const auto differ = std::mismatch(first.begin() + static_cast<std::ptrdiff_t>(depth),
                                          first.begin() + static_cast<std::ptrdiff_t>(other.size()),
                                          other.begin() + static_cast<std::ptrdiff_t>(depth));
        end = static_cast<std::size_t>(differ.first - first.begin());
    }
    return end;
}

/// Sorts by the texts in the pool, which hold no zero byte. `ties` gets each run of equal
/// ones, in order.
///
/// Eight bytes of each are fetched at a time, so that the texts, which lie anywhere in
/// memory, are visited a few times and not at each comparison. What is sorted so far and
/// waits for its next bytes is a list, as texts of megabytes may agree in most of them.
template <class Ties>
void sortByText(SortRange range, const TextPool& texts, Ties ties) {
    if (range.size() < 2) return range.empty() ? void() : ties(range);
    struct Level {
        SortRange left;
        std::size_t depth;
    };
    std::array<std::byte, 16 * sizeof(Level)> usual;
    std::pmr::monotonic_buffer_resource memory(usual.data(), usual.size());
    std::pmr::vector<Level> open(&memory);
    open.reserve(8);
    const auto enter = [&](SortRange part, std::size_t depth) {
        sortAt(part, texts, depth);
        open.push_back({part, depth});
    };
    enter(range, 0);
    while (!open.empty()) {
        const std::size_t all = open.back().left.size();
        const SortRange equal = takeEqual(open.back().left);
        std::size_t next = open.back().depth + sizeof(std::uint64_t);
        if (open.back().left.empty()) open.pop_back();
        // A zero at the end says that the text is over.
        if (equal.size() == 1 || (equal.front().prefix & 0xFF) == 0) {
            ties(equal);
        } else {
            // Long paths agree in much more than the next eight bytes.
            if (equal.size() == all) next = commonDepth(equal, texts, next);
            enter(equal, next);
        }
    }
}

}  // namespace fscan
