#pragma once

#include <cwctype>

#include "fscanner/common/relation.h"

namespace fscanner {

/// Comparison and wildcard matching of terminated wide strings.
///
/// "*" stands for any run of characters, "/" included; "?" for exactly one.
/// There is no escape character. Only the pattern's characters are special.
/// Folding of case is `towlower`'s in the process's locale. Nothing allocates;
/// no argument may be null.

/// `wcscmp`, or `wcscasecmp` when not case-sensitive.
int wcsvccmp(const wchar_t* a, const wchar_t* b, bool caseSensitive);
/// `wcsncmp`, or `wcsncasecmp`, over at most `n` characters.
int wcsnvccmp(const wchar_t* a, const wchar_t* b, unsigned n, bool caseSensitive);

/// 1 if `text` matches `pattern`, else 0. With `partial`, a text that is used up
/// after the pattern's literal start counts as matching.
int wildcmp(const wchar_t* pattern, const wchar_t* text, bool partial);
/// The same with both characters lowered before they are compared.
int wildcasecmp(const wchar_t* pattern, const wchar_t* text, bool partial);
/// `wildcmp` or `wildcasecmp`, never partial.
int wildvccmp(const wchar_t* pattern, const wchar_t* text, bool caseSensitive);

/// 1 if `path` matches the path pattern; `recursive` lets a directory cover all
/// that lies below it.
int wildpathcmp(const wchar_t* pattern, const wchar_t* path, bool recursive);
int wildcasepathcmp(const wchar_t* pattern, const wchar_t* path, bool recursive);
int wildvcpathcmp(const wchar_t* pattern, const wchar_t* path, bool recursive, bool caseSensitive);

/// Whether `s` holds a "*" or a "?".
bool checkWildCard(const wchar_t* s);

/// `v op r` by operator code, unsigned; an unknown code gives false.
bool checkSimpleExpression(unsigned char v, unsigned op, unsigned char r);
bool checkSimpleExpression(unsigned short v, unsigned op, unsigned short r);
bool checkSimpleExpression(unsigned v, unsigned op, unsigned r);
bool checkSimpleExpression(unsigned long long v, unsigned op, unsigned long long r);
/// `v op r` on texts. For "==" and "!=" the reference `r` is a pattern.
bool checkSimpleExpression(const wchar_t* v, unsigned op, const wchar_t* r, bool caseSensitive);

/// `towupper`; "i" is the one ASCII letter whose capital depends on the locale.
inline wchar_t upperCase(wchar_t c) {
    const auto code = static_cast<wint_t>(c);
    if (code < 0x80 && c != L'i') return code - L'a' < 26u ? static_cast<wchar_t>(code - 32) : c;
    return static_cast<wchar_t>(std::towupper(code));
}
/// Copies `src` to `dst` in upper case (`towupper`), terminator included.
void wcsupper(const wchar_t* src, wchar_t* dst);
/// The same in place.
void wcsupper(wchar_t* s);

}  // namespace fscanner
