#pragma once

/// The shared helpers: matching, numbers and bits, strings and their encodings, time. This header
/// includes all of them; each idea has a file of its own.
///
/// What stands here itself is offered to hosts: text helpers, a directory entry by name and type,
/// and the boolean evaluator. Nothing in fscanner uses it; a reader of the engine can skip it.

#include <string>
#include <utility>

#include "fscanner/common/numbers.h"
#include "fscanner/common/strings.h"
#include "fscanner/common/time.h"
#include "fscanner/common/utf8.h"
#include "fscanner/common/wildcard.h"

namespace fscanner {

/// Offered to hosts: text helpers and an evaluator. Nothing in fscanner uses what stands here; a
/// reader of the engine can skip this file. A blank is the space U+0020 only.

/// Removes leading (trailing) blanks in place and returns `s`.
wchar_t* ltrim(wchar_t* s);
wchar_t* rtrim(wchar_t* s);

/// Replaces every `from` by `to` in place; null is ignored.
void replaceChar(wchar_t* s, wchar_t from, wchar_t to);

/// The first position p with first <= p <= last and *p == c, or null.
wchar_t* wcsbtw(wchar_t* first, wchar_t* last, wchar_t c);

/// The first occurrence of `needle`; an empty needle gives `haystack`.
const wchar_t* my_wcswcs(const wchar_t* haystack, const wchar_t* needle);

/// Copies `src` into the heap string `*dst` (from malloc; the caller frees it). When
/// the present string is shorter than `src`, it is freed and replaced. A null `src`
/// changes nothing. Returns `*dst`, which is null when memory runs out.
wchar_t* __wcscpy(wchar_t** dst, const wchar_t* src);

/// Returns a new string (release it with `free`) in which the first character of
/// every occurrence of `find` is replaced by `insert`. The other characters of the
/// occurrence stay: "a%sb" with "%s" and "X" gives "aXsb". The search continues one
/// character after the start of the occurrence. An empty `find` occurs nowhere. Null
/// for null arguments and when memory runs out.
wchar_t* insertAndReplaceString(const wchar_t* s, const wchar_t* find, const wchar_t* insert);

/// Writes the next token to `out`. The state is static: one scan at a time in the
/// process. A non-null `s` starts a scan and must outlive it; null continues it. At
/// the end of the text the token is empty.
///
/// A token is one of the operators "(", ")", "&", "|", "!", or the text up to the
/// next operator without its blanks. Text in double quotes is copied unchanged,
/// without the quotes. False, and the scan does not move on, when the token and its
/// terminator do not fit in `size` characters; an operator needs a `size` above 4.
bool tokenize(const wchar_t* s, wchar_t* out, unsigned size);

/// A directory entry's name, which it owns, and its type code.
class FileInfo {
public:
    FileInfo(std::wstring entry, unsigned type) : entry_(std::move(entry)), type_(type) {}

    /// Valid as long as the object.
    const wchar_t* getEntry() const { return entry_.c_str(); }
    unsigned getType() const { return type_; }

private:
    std::wstring entry_;
    unsigned type_;
};

/// Evaluates boolean expressions over the characters "0" and "1":
/// exp = orExp; orExp = andExp { "|" andExp }; andExp = simpExp { "&" simpExp };
/// simpExp = "(" orExp ")" | "!" orExp | "0" | "1". No blanks, no short circuit.
/// "!" negates everything to its right: "!0|1" is false.
class Evaluator {
public:
    /// The value of `text`; false with `error()` set for null or bad text.
    bool execute(const wchar_t* text);
    bool error() const { return error_; }

private:
    void advance();
    bool exp();
    bool orExp();
    bool andExp();
    bool simpExp();

    int position_ = 0;
    wchar_t current_ = 0;
    const wchar_t* text_ = nullptr;
    bool error_ = false;
    int depth_ = 0;
};

}  // namespace fscanner
