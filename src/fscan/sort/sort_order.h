#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <vector>

#include "fscan/match/match.h"

namespace fscan {

enum class SortKey { path, name, pathname, size, modified };

/// A total order of matches: by each of the keys, then by the path name. Texts are compared by
/// their bytes.
struct SortOrder {
    std::vector<SortKey> keys = {SortKey::pathname};  ///< the first one counts first
    bool reversed = false;                            ///< as a whole

    /// By texts alone, or by them where the numbers are equal.
    SortKey textKey() const;
};

inline bool isNumber(SortKey key) {
    return key == SortKey::size || key == SortKey::modified;
}

inline SortKey SortOrder::textKey() const {
    return isNumber(keys.back()) ? SortKey::pathname : keys.back();
}

/// What a match is sorted by, if that is a number.
inline std::uint64_t keyNumber(SortKey key, const FileFacts& facts) {
    constexpr std::uint64_t half = std::uint64_t{1} << 63;  // times may be negative
    return key == SortKey::size ? facts.size : static_cast<std::uint64_t>(facts.modified) + half;
}

inline int compareBytes(std::string_view a, std::string_view b) {
    const int order = std::memcmp(a.data(), b.data(), std::min(a.size(), b.size()));
    if (order != 0) return order;
    return a.size() < b.size() ? -1 : a.size() > b.size() ? 1 : 0;
}

/// The text that a match is sorted by; empty when it is sorted by a number.
inline std::string_view keyText(SortKey key, const Match& match) {
    switch (key) {
        case SortKey::path:
            return match.directory();
        case SortKey::name:
            return match.name();
        case SortKey::pathname:
            return match.path;
        default:
            return {};
    }
}

/// Compares by the key alone, not reversed.
inline int compareKeys(SortKey key, const Match& a, const Match& b) {
    if (!isNumber(key)) return compareBytes(keyText(key, a), keyText(key, b));
    const std::uint64_t first = keyNumber(key, a.facts), second = keyNumber(key, b.facts);
    return first < second ? -1 : first > second ? 1 : 0;
}

inline bool comesBefore(const SortOrder& order, const Match& a, const Match& b) {
    int result = 0;
    for (const SortKey key : order.keys)
        if (result == 0) result = compareKeys(key, a, b);
    if (result == 0) result = compareBytes(a.path, b.path);
    return order.reversed ? result > 0 : result < 0;
}

}  // namespace fscan
