#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <string_view>
#include <vector>

namespace fscan {

/// What is moved while matches, or directories, are sorted.
struct SortEntry {
    std::uint64_t prefix;  ///< the part of the key that is compared now, as a number
    const char* bytes;     ///< the text
    std::uint32_t length : 31;
    std::uint32_t hasFacts : 1;  ///< of a match: a `FileFacts` lies in front of the text
    std::uint32_t directory;     ///< the number of its directory

    SortEntry(std::string_view text, bool withFacts, std::size_t ofDirectory)
        : prefix(0),
          bytes(text.data()),
          length(static_cast<std::uint32_t>(text.size()) & 0x7FFFFFFF),
          hasFacts(withFacts),
          directory(static_cast<std::uint32_t>(ofDirectory)) {}
    std::string_view text() const { return {bytes, length}; }
};
using SortRange = std::span<SortEntry>;

/// How many entries ahead a loop should prefetch the texts; found by measurement.
inline constexpr std::size_t kPrefetchDistance = 16;

/// Sorts entries by the bytes of their texts, which hold no zero byte.
///
/// This is a radix sort from the first byte on. It loads eight bytes of each text at a
/// time and sorts the entries by them, so that the texts, which are scattered in memory,
/// are visited a few times and not at each comparison.
class TextSorter {
public:
    using Visit = std::function<void(SortRange)>;

    /// `visit`, unless it is null, gets each run of entries with equal texts, in order. It
    /// may sort the run, but not with this object.
    void sort(SortRange range, const Visit& visit = nullptr);

private:
    struct Level {
        SortRange left;     // sorted by the eight bytes from `depth` on
        std::size_t depth;  // in bytes
    };
    void enter(SortRange range, std::size_t depth);

    // A list and no recursion: texts of megabytes may agree in most of their bytes.
    std::vector<Level> open_;
};

}  // namespace fscan
