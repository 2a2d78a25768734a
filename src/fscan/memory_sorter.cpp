#include "memory_sorter.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <limits>

namespace fscan {

bool MemorySorter::add(const Match& match) {
    const std::size_t at = store_.size();
    const std::size_t end = at + sizeof(FileFacts) + match.path.size();
    if (end > std::numeric_limits<std::uint32_t>::max()) return false;
    store_.resize(end);
    std::memcpy(store_.data() + at, &match.facts, sizeof(FileFacts));
    std::memcpy(store_.data() + at + sizeof(FileFacts), match.path.data(), match.path.size());
    entries_.push_back({0, static_cast<std::uint32_t>(at),
                        static_cast<std::uint32_t>(match.path.size()),
                        static_cast<std::uint32_t>(match.nameAt)});
    return true;
}

Match MemorySorter::matchOf(const Entry& entry) const {
    const char* at = store_.data() + entry.at;
    Match match;
    std::memcpy(&match.facts, at, sizeof(FileFacts));
    match.path = {at + sizeof(FileFacts), entry.length};
    match.nameAt = entry.nameAt;
    return match;
}

// The length of what all keys begin with: paths often share their first part, and
// the prefixes would all be equal.
std::size_t MemorySorter::commonPrefix() const {
    if (order_.key == SortKey::size || entries_.empty()) return 0;
    const std::string_view first = keyText(order_.key, at(0));
    std::size_t common = first.size();
    for (const Entry& entry : entries_) {
        const Match match = matchOf(entry);
        const std::string_view key = keyText(order_.key, match).substr(0, common);
        common = static_cast<std::size_t>(
            std::mismatch(key.begin(), key.end(), first.begin()).first - key.begin());
    }
    return common;
}

// The eight bytes behind what is skipped, zeros where the key ends: no path has
// one in it.
std::uint64_t MemorySorter::prefixOf(const Match& match, std::size_t skipped) const {
    if (order_.key == SortKey::size) return match.facts.size;
    const std::string_view rest = keyText(order_.key, match).substr(skipped);
    std::uint64_t prefix = 0;
    std::memcpy(&prefix, rest.data(), std::min(rest.size(), sizeof prefix));
    if constexpr (std::endian::native == std::endian::little) prefix = __builtin_bswap64(prefix);
    return prefix;
}

void MemorySorter::sort() {
    const std::size_t skipped = commonPrefix();
    for (Entry& entry : entries_) entry.prefix = prefixOf(matchOf(entry), skipped);
    std::sort(entries_.begin(), entries_.end(), [this](const Entry& a, const Entry& b) {
        if (a.prefix != b.prefix) return (a.prefix < b.prefix) != order_.reversed;
        return comesBefore(order_, matchOf(a), matchOf(b));
    });
}

void MemorySorter::clear() {
    store_.clear();
    entries_.clear();
}

}  // namespace fscan
