#include "fscan/sort/memory_sorter.h"

#include <algorithm>
#include <cstring>

namespace fscan {

namespace {

/// The directory's part of a key: to be sorted by path alone, it ends before the "/".
std::string_view directoryText(SortKey key, const Match& match) {
    return key == SortKey::path ? match.directory() : match.path.substr(0, match.nameAt);
}

FileFacts factsOf(const SortEntry& entry) {
    FileFacts facts;
    if (entry.hasFacts) std::memcpy(&facts, entry.bytes - sizeof facts, sizeof facts);
    return facts;
}

/// Calls `act` with the matches of each directory, which have been grouped.
template <class Act>
void forEachDirectory(SortRange range, Act act) {
    for (auto first = range.begin(); first != range.end();) {
        const auto last = std::find_if(first, range.end(), [&](const SortEntry& entry) {
            return entry.directory != first->directory;
        });
        act(SortRange(first, last));
        first = last;
    }
}

}  // namespace

// Reserved at once, as growing would copy the entries and touch new pages. Pages that are not
// used cost nothing.
MemorySorter::MemorySorter(const SortOrder& order) : order_(order) {
    constexpr std::size_t usuallyEnough = std::size_t{1} << 20;
    matches_.reserve(usuallyEnough);
}

/// Copies a text to where it stays, behind the facts unless there are none.
std::string_view MemorySorter::keep(std::string_view text, const FileFacts& facts) {
    const std::size_t before = facts.none() ? 0 : sizeof facts;
    char* const at = static_cast<char*>(texts_.allocate(before + text.size(), 1));
    if (before != 0) std::memcpy(at, &facts, sizeof facts);
    text.copy(at + before, text.size());
    textBytes_ += before + text.size();
    return {at + before, text.size()};
}

void MemorySorter::add(const Match& match) {
    const std::string_view directory = directoryText(order_.textKey(), match);
    if (directories_.empty() || directories_.back().text != directory)
        directories_.push_back({keep(directory, {}), matches_.size()});
    const bool hasFacts = !match.facts.none();
    matches_.emplace_back(keep(match.name(), match.facts), hasFacts, directories_.size() - 1);
}

/// Orders the matches by the texts of their directories; matches of equal ones get the same
/// number.
void MemorySorter::groupByDirectory() {
    std::vector<SortEntry> order;
    order.reserve(directories_.size());
    for (const Directory& directory : directories_)
        order.emplace_back(directory.text, false, order.size());
    other_.clear();
    other_.reserve(size());
    sorter_.sort(order, [&](SortRange equal) {
        for (const SortEntry& entry : equal) {
            const Directory* const directory = &directories_[entry.directory];
            const bool last = directory == &directories_.back();
            const std::size_t end = last ? size() : directory[1].first;
            for (std::size_t i = directory->first; i < end; ++i) {
                other_.push_back(matches_[i]);
                other_.back().directory = equal.front().directory;
            }
        }
    });
    matches_.swap(other_);
}

void MemorySorter::sort() {
    const SortKey text = order_.textKey();
    if (text == SortKey::name) {
        sorter_.sort(matches_, [this](SortRange equal) {
            const auto before = [this](const auto& a, const auto& b) { return comesBefore(a, b); };
            if (equal.size() > 1) std::sort(equal.begin(), equal.end(), before);
        });
    } else {
        groupByDirectory();
        forEachDirectory(matches_, [this](SortRange names) { sorter_.sort(names); });
        if (text != SortKey::path) nestDirectories();
    }
    // The last key first, so that the first one counts most.
    const std::size_t left = order_.keys.size() - (isNumber(order_.keys.back()) ? 0 : 1);
    for (std::size_t i = left; i > 0; --i) sortStably(order_.keys[i - 1]);
    if (order_.reversed) std::reverse(matches_.begin(), matches_.end());
}

/// Sorts by one key; matches that it does not tell apart stay in their order.
void MemorySorter::sortStably(SortKey key) {
    if (isNumber(key)) {
        for (SortEntry& entry : matches_) entry.prefix = keyNumber(key, factsOf(entry));
        std::ranges::stable_sort(matches_, {}, &SortEntry::prefix);
        return;
    }
    const auto textOf = [&](const SortEntry& entry) -> std::string {
        std::string directory(directoryOf(entry));
        if (key == SortKey::path) {
            // As `Match::directory` has it, whatever the text of the order is.
            if (directory.size() > 1 && directory.ends_with('/')) directory.pop_back();
            return directory;
        }
        return (key == SortKey::name ? "" : directory) + std::string(entry.text());
    };
    std::ranges::stable_sort(matches_, [&](const SortEntry& a, const SortEntry& b) {
        return compareBytes(textOf(a), textOf(b)) < 0;
    });
}

/// Compares paths. No name holds a "/", so the rest of the longer directory, which ends with
/// one, is different from any name.
bool MemorySorter::comesBefore(const SortEntry& a, const SortEntry& b) const {
    std::string_view first = directoryOf(a), second = directoryOf(b);
    if (second.starts_with(first)) {
        second.remove_prefix(first.size());
        first = a.text();
    } else if (first.starts_with(second)) {
        first.remove_prefix(second.size());
        second = b.text();
    }
    return compareBytes(first, second) < 0;
}

/// Turns the order by directory into the order by path: each directory is put between the
/// names of the directory around it.
void MemorySorter::nestDirectories() {
    struct Level {
        SortRange left;
        std::string_view directory;
    };
    other_.clear();
    std::vector<Level> open;
    const auto take = [this](Level& level, std::size_t count) {
        const SortRange taken = level.left.first(count);
        other_.insert(other_.end(), taken.begin(), taken.end());
        level.left = level.left.subspan(count);
    };
    const auto close = [&] {
        take(open.back(), open.back().left.size());
        open.pop_back();
    };
    forEachDirectory(matches_, [&](SortRange names) {
        const std::string_view directory = directoryOf(names.front());
        while (!open.empty() && !directory.starts_with(open.back().directory)) close();
        if (!open.empty()) {
            Level& around = open.back();
            const std::string_view below = directory.substr(around.directory.size());
            const auto after = std::partition_point(
                around.left.begin(), around.left.end(),
                [&](const SortEntry& e) { return compareBytes(e.text(), below) < 0; });
            take(around, static_cast<std::size_t>(after - around.left.begin()));
        }
        open.push_back({names, directory});
    });
    while (!open.empty()) close();
    matches_.swap(other_);
}

Match MemorySorter::at(std::size_t place) const {
    const SortEntry& entry = matches_[place];
    if (place + kPrefetchDistance < size())
        __builtin_prefetch(matches_[place + kPrefetchDistance].bytes);
    path_ = directoryOf(entry);
    if (!path_.empty() && !path_.ends_with('/')) path_ += '/';
    const std::size_t nameAt = path_.size();
    path_ += entry.text();
    return {path_, nameAt, factsOf(entry)};
}

std::size_t MemorySorter::bytes() const {
    // Sorting copies the entries once.
    return textBytes_ + directories_.size() * (sizeof(Directory) + sizeof(SortEntry)) +
           2 * matches_.size() * sizeof(SortEntry);
}

void MemorySorter::clear() {
    directories_.clear();
    matches_.clear();
    texts_.release();
    textBytes_ = 0;
}

}  // namespace fscan
