#pragma once

#include <string>

#include "fscanner/export.h"

namespace fscanner {

/// How the library reads and writes texts, for hosts that show or take names.
/// None of these throws; false where memory runs out or an argument is null.

/// Sets `out` to the wide form of `text`, which is in the locale's encoding. A
/// byte 0x80 to 0xFF that the locale cannot decode becomes U+DC80 to U+DCFF.
FSCANNER_EXPORT bool fsToWide(const char* text, std::wstring& out);

/// Sets `out` to the multibyte form of `text`: the same bytes that a name was
/// read from, whatever the locale.
FSCANNER_EXPORT bool fsToMultibyte(const wchar_t* text, std::string& out);

/// Whether `name` matches `glob`: "*" is any run of characters, "?" exactly one;
/// there is no escape. In `name` nothing is special.
FSCANNER_EXPORT bool fsNameMatches(const wchar_t* glob, const wchar_t* name, bool caseSensitive);

/// Whether the path entry `pattern` covers `path`, the way included and excluded
/// paths of a query are read; a `recursive` entry covers all that lies below it.
FSCANNER_EXPORT bool fsPathMatches(const wchar_t* pattern, const wchar_t* path, bool recursive,
                                   bool caseSensitive);

}  // namespace fscanner
