#pragma once

#include <algorithm>
#include <cstring>
#include <string_view>

#include "fscan/match/match.h"

namespace fscan {

enum class SortKey { path, name, pathname, size };

/// A total order of matches: by the key, then by the path name. Texts are compared by their
/// bytes.
struct SortOrder {
    SortKey key = SortKey::pathname;
    bool reversed = false;  ///< as a whole
};

inline int compareBytes(std::string_view a, std::string_view b) {
    const int order = std::memcmp(a.data(), b.data(), std::min(a.size(), b.size()));
    if (order != 0) return order;
    return a.size() < b.size() ? -1 : a.size() > b.size() ? 1 : 0;
}

/// The text that a match is sorted by; empty when it is sorted by its size.
inline std::string_view keyText(SortKey key, const Match& match) {
    switch (key) {
        case SortKey::path:
            return match.directory();
        case SortKey::name:
            return match.name();
        case SortKey::pathname:
            return match.path;
        case SortKey::size:
            break;
    }
    return {};
}

/// Compares by the key alone, not reversed.
inline int compareKeys(SortKey key, const Match& a, const Match& b) {
    if (key != SortKey::size) return compareBytes(keyText(key, a), keyText(key, b));
    return a.facts.size < b.facts.size ? -1 : a.facts.size > b.facts.size ? 1 : 0;
}

inline bool comesBefore(SortOrder order, const Match& a, const Match& b) {
    int result = compareKeys(order.key, a, b);
    if (result == 0) result = compareBytes(a.path, b.path);
    return order.reversed ? result > 0 : result < 0;
}

}  // namespace fscan
