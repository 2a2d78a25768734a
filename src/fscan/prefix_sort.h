#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "text_pool.h"

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

/// Sorts by the texts in the pool, which agree in their first `depth` bytes and hold no
/// zero byte. `ties` gets each run of equal ones.
///
/// Eight bytes of each are fetched at a time, so that the texts, which lie anywhere in
/// memory, are visited a few times and not at each comparison.
template <class Ties>
void sortByText(SortRange range, const TextPool& texts, Ties ties, std::size_t depth = 0) {
    if (range.size() == 1) return ties(range);
    for (std::size_t i = 0; i < range.size(); ++i) {
        if (i + prefetchedAhead < range.size()) texts.prefetch(range[i + prefetchedAhead].text);
        range[i].prefix = prefixOf(texts.text(range[i].text), depth);
    }
    sortByPrefix(range);
    const auto same = [](const SortEntry& a, const SortEntry& b) { return a.prefix == b.prefix; };
    forEachRun(range, same, [&](SortRange equal) {
        // A zero at the end says that the text is over.
        if ((equal.front().prefix & 0xFF) == 0) return ties(equal);
        sortByText(equal, texts, ties, depth + sizeof(std::uint64_t));
    });
}

}  // namespace fscan
