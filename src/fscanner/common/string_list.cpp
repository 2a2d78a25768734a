#include "fscanner/common/string_list.h"

#include <new>

namespace fscanner {

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
