#pragma once

#include <algorithm>
#include <cstddef>
#include <set>
#include <string_view>
#include <utility>
#include <vector>

namespace fscanner {

/// Removes, in place, every element for which `seen` answers true when the list is
/// walked from its end; the order of the rest stays. True when any was removed.
/// Elements are moved, so texts that they own stay where they are.
template <typename T, typename Seen>
bool removeFromEnd(std::vector<T>& list, Seen seen) {
    std::vector<T> kept;
    for (auto element = list.rbegin(); element != list.rend(); ++element) {
        if (!seen(*element)) kept.push_back(std::move(*element));
    }
    std::reverse(kept.begin(), kept.end());
    const bool removed = kept.size() != list.size();
    list = std::move(kept);
    return removed;
}

/// Of elements with equal keys the last one stays. `keyOf` may return views of texts
/// that the element owns.
template <typename T, typename KeyOf>
bool removeEarlierDuplicates(std::vector<T>& list, KeyOf keyOf) {
    std::set<decltype(keyOf(list.front()))> keys;
    return removeFromEnd(list,
                         [&](const T& element) { return !keys.insert(keyOf(element)).second; });
}

/// A text as part of a key: null differs from empty.
inline std::pair<bool, std::wstring_view> textKey(const wchar_t* text) {
    return text ? std::pair(true, std::wstring_view(text)) : std::pair(false, std::wstring_view());
}

}  // namespace fscanner
