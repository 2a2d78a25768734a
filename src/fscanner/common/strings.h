#pragma once

#include <memory>
#include <string>
#include <vector>

namespace fscanner {

/// Text helpers. A blank is the space U+0020 only.

/// Removes leading (trailing) blanks in place and returns `s`.
wchar_t* ltrim(wchar_t* s);
wchar_t* rtrim(wchar_t* s);

/// Replaces every `from` by `to` in place; null is ignored.
void replaceChar(wchar_t* s, wchar_t from, wchar_t to);

/// The first position p with first <= p <= last and *p == c, or null.
wchar_t* wcsbtw(wchar_t* first, wchar_t* last, wchar_t c);

/// The first occurrence of `needle`; an empty needle gives `haystack`.
const wchar_t* my_wcswcs(const wchar_t* haystack, const wchar_t* needle);

/// Copies `src` into the heap string `*dst` (malloc; the caller frees it), which
/// grows when it is shorter. A null `src` changes nothing. Returns `*dst`, null
/// when memory runs out (`*dst` is null then).
wchar_t* __wcscpy(wchar_t** dst, const wchar_t* src);

/// Puts `prefix` in front of `s` in place, where `room` is the room of `s` in
/// characters. False, nothing changed, when both lengths plus 4 exceed it.
/// `prefix` may lie within `s`.
bool wcs_stringCat(const wchar_t* prefix, wchar_t* s, unsigned room);

/// A new string (released with `free`) in which the first character of every
/// occurrence of `find` is replaced by `insert`; scanning resumes one character
/// after the occurrence's start, so that the rest of a longer `find` stays:
/// "a%sb" with "%s" and "X" gives "aXsb". An empty `find` occurs nowhere. Null for
/// null arguments.
wchar_t* insertAndReplaceString(const wchar_t* s, const wchar_t* find, const wchar_t* insert);

/// A scanner with static state, one scan at a time in the process: a non-null
/// `s` starts (and must outlive) a scan, null continues it. Tokens are single
/// "(", ")", "&", "|", "!" or runs up to one of them, blanks left out; quoted
/// runs are copied verbatim without the quotes. False, and the scan stays where
/// it was, when a token does not fit in `size` characters, terminator included; an
/// operator wants a `size` above 4.
bool tokenize(const wchar_t* s, wchar_t* out, unsigned size);

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
