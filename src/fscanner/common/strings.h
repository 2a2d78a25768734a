#pragma once

#include <string>
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

}  // namespace fscanner
