#pragma once

#include <cstdlib>
#include <cwchar>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace fscanner {

/// Inserts `prefix` before `s` in place; `room` is the capacity of `s` in characters.
/// False, and nothing is changed, when both lengths plus 4 exceed `room`. `prefix` may
/// point into `s`.
bool wcs_stringCat(const wchar_t* prefix, wchar_t* s, unsigned room);

/// An ordered list of owned string copies; `T` is `char` or `wchar_t`.
template <typename T>
class StringList {
public:
    /// Appends a copy. False for null, or when memory runs out.
    bool insert(const T* s);
    /// Index of the first element equal to `s`, or -1.
    int find(const T* s) const;
    /// Element `i`, owned by the list and valid until it changes; null out of range.
    const T* at(int i) const;
    int size() const { return static_cast<int>(items_.size()); }
    void clear() { items_.clear(); }

private:
    std::vector<std::basic_string<T>> items_;
};

extern template class StringList<char>;
extern template class StringList<wchar_t>;

/// Releases what malloc gave.
struct FreeDeleter {
    void operator()(void* block) const { std::free(block); }
};

/// Owns a wide string of the interfaces that promise `free`.
using HeapText = std::unique_ptr<wchar_t, FreeDeleter>;

/// A terminated copy in malloc's memory, for the interfaces whose callers
/// release with `free`. Null when memory runs out.
inline wchar_t* mallocCopy(std::wstring_view text) {
    auto* copy = static_cast<wchar_t*>(std::malloc((text.size() + 1) * sizeof(wchar_t)));
    if (copy == nullptr) return nullptr;
    std::wmemcpy(copy, text.data(), text.size());
    copy[text.size()] = 0;
    return copy;
}

// The texts that the value classes of the public face own through a plain pointer, so that
// their layout does not depend on the library's string type.

/// A copy of `text` for `freeText`; null for null. Throws when memory runs out.
inline wchar_t* copyText(const wchar_t* text) {
    if (!text) return nullptr;
    const std::size_t size = std::wcslen(text) + 1;
    return std::wmemcpy(new wchar_t[size], text, size);
}

inline void freeText(wchar_t* text) noexcept {
    delete[] text;
}

/// Both null, or both the same characters.
inline bool sameText(const wchar_t* a, const wchar_t* b) noexcept {
    if (!a || !b) return a == b;
    return std::wcscmp(a, b) == 0;
}

}  // namespace fscanner
