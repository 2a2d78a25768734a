#include "fscanner/common/strings.h"

#include <cwchar>
#include <functional>
#include <new>
#include <string>

namespace fscanner {

bool wcs_stringCat(const wchar_t* prefix, wchar_t* s, unsigned room) {
    const std::size_t added = std::wcslen(prefix);
    const std::size_t length = std::wcslen(s);
    // The 4 is a reserve that callers count on.
    if (added + length + 4 > room) return false;
    const std::less<> before;
    // A prefix inside `s` moves with it.
    const bool inside = !before(prefix, s) && !before(s + length, prefix);
    std::wmemmove(s + added, s, length + 1);
    std::wmemmove(s, inside ? prefix + added : prefix, added);
    return true;
}

// ---- The list ---------------------------------------------------------------

template <typename T>
bool StringList<T>::insert(const T* s) {
    if (s == nullptr) return false;
    try {
        items_.emplace_back(s);
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

template <typename T>
int StringList<T>::find(const T* s) const {
    for (std::size_t i = 0; i < items_.size(); ++i) {
        if (items_[i] == s) return static_cast<int>(i);
    }
    return -1;
}

template <typename T>
const T* StringList<T>::at(int i) const {
    return i >= 0 && i < size() ? items_[static_cast<std::size_t>(i)].c_str() : nullptr;
}

template class StringList<char>;
template class StringList<wchar_t>;

}  // namespace fscanner
