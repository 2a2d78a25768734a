#pragma once

#include <cstdint>
#include <memory_resource>
#include <string>
#include <string_view>
#include <vector>

#include "fscan/match/match.h"
#include "fscan/sort/sort_order.h"
#include "fscan/sort/text_sort.h"

namespace fscan {

/// Keeps matches in memory and sorts them.
///
/// Consecutive matches share the text of their directory. To sort by path name, the
/// directories are sorted first, then the names in each of them, and at last the
/// directories are nested, as "a/b/c" lies between "a/a" and "a/c": most comparisons
/// are then of short texts that lie close together.
class MemorySorter {
public:
    explicit MemorySorter(const SortOrder& order);

    void add(const Match& match);
    void sort();
    std::size_t size() const { return matches_.size(); }
    /// The match at a place of the order, once it is sorted. Its path is valid until the
    /// next call.
    Match at(std::size_t place) const;
    /// The memory in use, in bytes, and what `sort` will need.
    std::size_t bytes() const;
    /// Forgets all matches.
    void clear();

private:
    struct Directory {
        std::string_view text;  // up to the name
        std::size_t first;      // of the matches that were added in a row
    };

    std::string_view keep(std::string_view text, const FileFacts& facts);
    void groupByDirectory();
    void nestDirectories();
    void sortStably(SortKey key);
    bool comesBefore(const SortEntry& a, const SortEntry& b) const;
    std::string_view directoryOf(const SortEntry& entry) const {
        return directories_[entry.directory].text;
    }

    SortOrder order_;
    std::pmr::monotonic_buffer_resource texts_{std::size_t{1} << 16};
    std::size_t textBytes_ = 0;
    std::vector<Directory> directories_;
    std::vector<SortEntry> matches_;
    std::vector<SortEntry> other_;  // the next order of the matches, before it is swapped in
    TextSorter sorter_;
    mutable std::string path_;  // of the match given last
};

}  // namespace fscan
