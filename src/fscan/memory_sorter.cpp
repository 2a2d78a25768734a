#include "memory_sorter.h"

#include <algorithm>
#include <bit>
#include <cstring>

namespace fscan {

namespace {

constexpr std::size_t prefixSize = sizeof(std::uint64_t);
// Up to here whole matches are compared, which is quicker than to begin again.
constexpr std::size_t smallRange = 6;

std::uint64_t prefixOf(SortKey key, const Match& match, std::size_t depth) {
    if (key == SortKey::size) return match.facts.size;
    std::string_view rest = keyText(key, match);
    rest.remove_prefix(std::min(depth, rest.size()));
    std::uint64_t prefix = 0;
    if (!rest.empty()) std::memcpy(&prefix, rest.data(), std::min(rest.size(), prefixSize));
    if constexpr (std::endian::native == std::endian::little) prefix = __builtin_bswap64(prefix);
    return prefix;
}

// Whether keys that agree in this prefix agree in all: no path holds a zero byte, so
// that one at the end says that the key is over.
bool isWholeKey(SortKey key, std::uint64_t prefix) {
    return key == SortKey::size || (prefix & 0xFF) == 0;
}

template <class Value>
char* put(char* at, const Value& value) {
    std::memcpy(at, &value, sizeof value);
    return at + sizeof value;
}

}  // namespace

struct MemorySorter::Header {
    std::uint32_t length;
    std::uint32_t nameAt;
    bool hasFacts;
};

// A place for as many bytes, noted in a new entry; null where there is none.
char* MemorySorter::makeRoom(std::size_t bytes) {
    if (bytes > chunkSize) return nullptr;
    if (used_ + bytes > chunkSize) {
        if (chunks_.size() == maxChunks) return nullptr;
        chunks_.push_back(std::make_unique_for_overwrite<char[]>(chunkSize));
        used_ = 0;
    }
    index_.push_back({0, static_cast<std::uint32_t>((chunks_.size() - 1) * chunkSize + used_)});
    used_ += bytes;
    return chunks_.back().get() + used_ - bytes;
}

bool MemorySorter::add(const Match& match) {
    const bool hasFacts = !match.facts.none();
    const std::size_t facts = hasFacts ? sizeof(FileFacts) : 0;
    char* at = makeRoom(sizeof(Header) + facts + match.path.size());
    if (at == nullptr) return false;
    at = put(at, Header{static_cast<std::uint32_t>(match.path.size()),
                        static_cast<std::uint32_t>(match.nameAt), hasFacts});
    if (hasFacts) at = put(at, match.facts);
    std::memcpy(at, match.path.data(), match.path.size());
    return true;
}

Match MemorySorter::matchOf(const Entry& entry) const {
    const char* at = chunks_[entry.at / chunkSize].get() + entry.at % chunkSize;
    Header header;
    std::memcpy(&header, at, sizeof header);
    at += sizeof header;
    Match match;
    if (header.hasFacts) {
        std::memcpy(&match.facts, at, sizeof match.facts);
        at += sizeof match.facts;
    }
    match.path = {at, header.length};
    match.nameAt = header.nameAt;
    return match;
}

void MemorySorter::sort() {
    sortRange(index_, order_.key, 0);
}

// False when all are equal.
bool MemorySorter::fetchPrefixes(Range range, SortKey key, std::size_t depth) const {
    bool differ = false;
    for (Entry& entry : range) {
        entry.prefix = prefixOf(key, matchOf(entry), depth);
        differ = differ || entry.prefix != range.front().prefix;
    }
    return differ;
}

void MemorySorter::sortByPrefix(Range range) const {
    if (order_.reversed) {
        std::sort(range.begin(), range.end(),
                  [](const Entry& a, const Entry& b) { return a.prefix > b.prefix; });
    } else {
        std::sort(range.begin(), range.end(),
                  [](const Entry& a, const Entry& b) { return a.prefix < b.prefix; });
    }
}

// Sorts matches whose keys agree in their first `depth` bytes.
void MemorySorter::sortRange(Range range, SortKey key, std::size_t depth) const {
    if (range.size() <= smallRange) {
        std::sort(range.begin(), range.end(), [this](const Entry& a, const Entry& b) {
            return comesBefore(order_, matchOf(a), matchOf(b));
        });
        return;
    }
    if (fetchPrefixes(range, key, depth)) sortByPrefix(range);
    for (auto first = range.begin(); first != range.end();) {
        const std::uint64_t prefix = first->prefix;
        const auto last =
            std::find_if(first, range.end(), [=](const Entry& e) { return e.prefix != prefix; });
        const Range equal(first, last);
        if (!isWholeKey(key, prefix)) {
            sortRange(equal, key, depth + prefixSize);
        } else if (key != SortKey::pathname) {
            sortRange(equal, SortKey::pathname, 0);
        }
        first = last;
    }
}

std::size_t MemorySorter::bytes() const {
    const std::size_t full = chunks_.empty() ? 0 : (chunks_.size() - 1) * chunkSize + used_;
    return full + index_.size() * sizeof(Entry);
}

void MemorySorter::clear() {
    if (chunks_.size() > 1) chunks_.resize(1);
    used_ = chunks_.empty() ? chunkSize : 0;
    index_.clear();
}

}  // namespace fscan
