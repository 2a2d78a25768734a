#pragma once

#include <cstdint>
#include <vector>

#include "match.h"
#include "sort_order.h"

namespace fscan {

/// Keeps matches in memory and sorts them: their bytes stay where they are, and
/// an index is sorted that holds the beginning of each key.
class MemorySorter {
public:
    explicit MemorySorter(SortOrder order) : order_(order) {}

    /// False when there is no room: at 4 GiB of texts.
    bool add(const Match& match);
    void sort();
    std::size_t size() const { return entries_.size(); }
    /// The match at a place of the order (of adding, until it is sorted).
    Match at(std::size_t place) const { return matchOf(entries_[place]); }
    /// The memory in use, about.
    std::size_t bytes() const { return store_.size() + entries_.size() * sizeof(Entry); }
    /// Forgets all and keeps the memory.
    void clear();

private:
    struct Entry {
        std::uint64_t prefix;  // of the key, to be compared as a number
        std::uint32_t at;
        std::uint32_t length;
        std::uint32_t nameAt;
    };

    Match matchOf(const Entry& entry) const;
    std::size_t commonPrefix() const;
    std::uint64_t prefixOf(const Match& match, std::size_t skipped) const;

    SortOrder order_;
    std::vector<char> store_;  // facts and path of each match
    std::vector<Entry> entries_;
};

}  // namespace fscan
