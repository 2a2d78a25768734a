#include "fscan/sort/memory_sorter.h"

#include <algorithm>
#include <numeric>

namespace fscan {

namespace {

// Up to here whole paths are compared.
constexpr std::size_t smallRange = 8;

// A directory as it is sorted: as a key of its own it ends before the "/".
std::string_view directoryText(SortKey key, const Match& match) {
    return key == SortKey::path ? match.directory() : match.path.substr(0, match.nameAt);
}

}  // namespace

bool MemorySorter::add(const Match& match) {
    const std::string_view directory = directoryText(order_.key, match);
    if (directories_.empty() || directoryTexts_.text(directories_.back().text) != directory) {
        if (!directoryTexts_.add(directory)) return false;
        directories_.push_back({directoryTexts_.last(), 0});
    }
    if (!names_.add(match.name(), match.facts)) return false;
    ++directories_.back().matches;
    ++size_;
    return true;
}

// The matches by the ranks of their directories.
void MemorySorter::makeIndex() {
    std::vector<std::size_t> next(directories_.size() + 1);
    for (const Directory& directory : directories_) next[directory.rank + 1] += directory.matches;
    std::partial_sum(next.begin(), next.end(), next.begin());
    index_.resize(size_);
    std::uint32_t directory = 0;
    std::size_t left = directories_.empty() ? 0 : directories_.front().matches;
    names_.forEach([&](TextPool::Place name) {
        while (left == 0) left = directories_[++directory].matches;
        --left;
        index_[next[directories_[directory].rank]++] = {0, name, directory};
    });
}

void MemorySorter::rankDirectories() {
    std::vector<SortEntry> order;
    order.reserve(directories_.size());
    for (const Directory& directory : directories_)
        order.push_back({0, directory.text, static_cast<std::uint32_t>(order.size())});
    std::uint32_t rank = 0;
    sortByText(order, directoryTexts_, [&](SortRange equal) {
        for (const SortEntry& entry : equal) directories_[entry.directory].rank = rank;
        ++rank;
    });
}

void MemorySorter::sort() {
    rankDirectories();
    makeIndex();
    const auto byPath = [this](SortRange ties) { sortByPath(ties); };
    switch (order_.key) {
        case SortKey::path:
            sortNames(index_);
            break;
        case SortKey::name:
            sortByText(index_, names_, byPath);
            break;
        case SortKey::pathname:
            sortNames(index_);
            index_ = nestDirectories(index_);
            break;
        case SortKey::size:
            for (SortEntry& entry : index_) entry.prefix = names_.facts(entry.text).size;
            sortByPrefix(index_);
            forEachRun(
                index_, [](const SortEntry& a, const SortEntry& b) { return a.prefix == b.prefix; },
                byPath);
            break;
    }
    if (order_.reversed) std::reverse(index_.begin(), index_.end());
}

// Sorts the names of each directory, where they stand beside each other.
void MemorySorter::sortNames(SortRange range) const {
    forEachDirectory(range, [this](SortRange same) { sortByText(same, names_, [](SortRange) {}); });
}

void MemorySorter::sortByPath(SortRange range) const {
    if (range.size() > smallRange) {
        for (SortEntry& entry : range) entry.prefix = rankOf(entry);
        sortByPrefix(range);
        sortNames(range);
        std::ranges::copy(nestDirectories(range), range.begin());
    } else if (range.size() > 1) {
        std::sort(range.begin(), range.end(),
                  [this](const SortEntry& a, const SortEntry& b) { return comesBefore(a, b); });
    }
}

// By the bytes of the paths. No name holds a "/": the rest of a directory's path, which
// ends with one, tells it from a name.
bool MemorySorter::comesBefore(const SortEntry& a, const SortEntry& b) const {
    std::string_view first = directoryOf(a), second = directoryOf(b);
    if (first == second) return compareBytes(nameOf(a), nameOf(b)) < 0;
    if (second.starts_with(first)) {
        second.remove_prefix(first.size());
        first = nameOf(a);
    } else if (first.starts_with(second)) {
        first.remove_prefix(second.size());
        second = nameOf(b);
    }
    return compareBytes(first, second) < 0;
}

// What is sorted by directory, with each that lies in another one put among the names of
// that: where its path belongs in the order of paths.
std::vector<SortEntry> MemorySorter::nestDirectories(SortRange range) const {
    struct Level {
        SortRange left;
        std::string_view directory;
    };
    std::vector<SortEntry> merged;
    merged.reserve(range.size());
    std::vector<Level> open;
    const auto take = [&merged](Level& level, std::size_t count) {
        const SortRange taken = level.left.first(count);
        merged.insert(merged.end(), taken.begin(), taken.end());
        level.left = level.left.subspan(count);
    };
    const auto close = [&] {
        take(open.back(), open.back().left.size());
        open.pop_back();
    };
    forEachDirectory(range, [&](SortRange names) {
        const std::string_view directory = directoryOf(names.front());
        while (!open.empty() && !directory.starts_with(open.back().directory)) close();
        if (!open.empty()) {
            Level& around = open.back();
            const std::string_view below = directory.substr(around.directory.size());
            const auto after = std::partition_point(
                around.left.begin(), around.left.end(),
                [&](const SortEntry& e) { return compareBytes(nameOf(e), below) < 0; });
            take(around, static_cast<std::size_t>(after - around.left.begin()));
        }
        open.push_back({names, directory});
    });
    while (!open.empty()) close();
    return merged;
}

Match MemorySorter::at(std::size_t place) const {
    const SortEntry& entry = index_[place];
    if (place + prefetchedAhead < size_) names_.prefetch(index_[place + prefetchedAhead].text);
    path_ = directoryOf(entry);
    if (!path_.empty() && !path_.ends_with('/')) path_ += '/';
    const std::size_t nameAt = path_.size();
    path_ += nameOf(entry);
    return {path_, nameAt, names_.facts(entry.text)};
}

std::size_t MemorySorter::bytes() const {
    // Nesting takes as much as the index.
    return names_.bytes() + directoryTexts_.bytes() + directories_.size() * sizeof(Directory) +
           2 * size_ * sizeof(SortEntry);
}

void MemorySorter::clear() {
    names_.clear();
    directoryTexts_.clear();
    directories_.clear();
    index_.clear();
    size_ = 0;
}

}  // namespace fscan
