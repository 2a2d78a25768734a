#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "fscan/match/match.h"
#include "fscan/sort/prefix_sort.h"
#include "fscan/sort/sort_order.h"
#include "fscan/sort/text_pool.h"

namespace fscan {

/// Keeps matches in memory and sorts them: the directory of matches that come after
/// one another is kept once, and directories are sorted before the names in them.
class MemorySorter {
public:
    explicit MemorySorter(SortOrder order) : order_(order) {}

    /// False when there is no room: at about 4 GiB.
    bool add(const Match& match);
    void sort();
    std::size_t size() const { return size_; }
    /// The match at a place of the order, once it is sorted. Its path lasts until the
    /// next call.
    Match at(std::size_t place) const;
    /// The bytes in use, with those that sorting takes.
    std::size_t bytes() const;
    /// Forgets all and keeps some memory.
    void clear();

private:
    struct Directory {
        TextPool::Place text;    // up to the name
        std::size_t matches;     // that came after one another
        std::uint32_t rank = 0;  // its place among the directories
    };

    void makeIndex();
    void rankDirectories();
    template <class Act>
    void forEachDirectory(SortRange range, Act act) const {
        forEachRun(
            range,
            [this](const SortEntry& a, const SortEntry& b) { return rankOf(a) == rankOf(b); }, act);
    }
    void sortNames(SortRange range) const;
    void sortByPath(SortRange range) const;
    std::vector<SortEntry> nestDirectories(SortRange range) const;
    bool comesBefore(const SortEntry& a, const SortEntry& b) const;
    std::string_view nameOf(const SortEntry& entry) const { return names_.text(entry.text); }
    std::string_view directoryOf(const SortEntry& entry) const {
        return directoryTexts_.text(directories_[entry.directory].text);
    }
    std::uint32_t rankOf(const SortEntry& entry) const {
        return directories_[entry.directory].rank;
    }

    SortOrder order_;
    TextPool names_;
    TextPool directoryTexts_;
    std::vector<Directory> directories_;
    std::vector<SortEntry> index_;
    std::size_t size_ = 0;
    mutable std::string path_;  // of the match given last
};

}  // namespace fscan
