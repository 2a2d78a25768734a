#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "match.h"
#include "sort_order.h"

namespace fscan {

/// Keeps matches in memory and sorts them: their bytes stay where they are, and
/// an index is sorted that holds eight bytes of each key. Only among matches that
/// agree in those the next eight are fetched, so that the bytes, which lie anywhere
/// in memory, are visited a few times and not at each comparison.
class MemorySorter {
public:
    explicit MemorySorter(SortOrder order) : order_(order) {}

    /// False when there is no room: at about 4 GiB, or for a path of a megabyte.
    bool add(const Match& match);
    void sort();
    std::size_t size() const { return index_.size(); }
    /// The match at a place of the order (of adding, until it is sorted).
    Match at(std::size_t place) const { return matchOf(index_[place]); }
    /// The bytes in use.
    std::size_t bytes() const;
    /// Forgets all and keeps some memory.
    void clear();

private:
    struct Entry {
        std::uint64_t prefix;  // of the rest of the key, to be compared as a number
        std::uint32_t at;      // chunk and place in it
    };
    struct Header;
    using Range = std::span<Entry>;

    // Pieces that stay where they are: one that grows would be copied over and over.
    static constexpr std::size_t chunkSize = std::size_t{1} << 20;
    static constexpr std::size_t maxChunks = std::size_t{1} << 12;

    char* makeRoom(std::size_t bytes);
    Match matchOf(const Entry& entry) const;
    bool fetchPrefixes(Range range, SortKey key, std::size_t depth) const;
    void sortByPrefix(Range range) const;
    void sortRange(Range range, SortKey key, std::size_t depth) const;

    SortOrder order_;
    // Of each match its header, its facts if there are any, its path.
    std::vector<std::unique_ptr<char[]>> chunks_;
    std::size_t used_ = chunkSize;  // of the last chunk
    std::vector<Entry> index_;
};

}  // namespace fscan
