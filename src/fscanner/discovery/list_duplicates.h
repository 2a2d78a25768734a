#pragma once

#include <algorithm>
#include <cstddef>
#include <set>
#include <string_view>
#include <utility>
#include <vector>

namespace fscanner {

/// Calls `seen` for each element, from the last to the first, and removes those for which it
/// returns true. The order of the others stays. True if any was removed. Elements are moved, so
/// pointers to heap texts that they own stay valid.
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

/// Removes all but the last of the elements with equal keys. `keyOf` may return views of heap
/// texts that the element owns. True if any was removed.
template <typename T, typename KeyOf>
bool removeEarlierDuplicates(std::vector<T>& list, KeyOf keyOf) {
    std::set<decltype(keyOf(list.front()))> keys;
    return removeFromEnd(list,
                         [&](const T& element) { return !keys.insert(keyOf(element)).second; });
}

/// A text as part of a key, so that null differs from empty.
inline std::pair<bool, std::wstring_view> textKey(const wchar_t* text) {
    return text ? std::pair(true, std::wstring_view(text)) : std::pair(false, std::wstring_view());
}

}  // namespace fscanner
