#pragma once

#include <string>

#include "fscanner/export.h"

namespace fscanner {

// Text functions for hosts that show or take names. They are those of the library itself. None
// throws; each returns false if memory runs out or an argument is null. Any thread.

/// Sets `out` to the wide form of `text`, which is in the locale's encoding. A byte 0x80 to
/// 0xFF that the locale cannot decode becomes U+DC80 to U+DCFF.
FSCANNER_EXPORT bool fsToWide(const char* text, std::wstring& out);

/// Sets `out` to the multibyte form of `text`. For a name that the library has read, these are
/// the bytes of the name in the file system, in any locale.
FSCANNER_EXPORT bool fsToMultibyte(const wchar_t* text, std::string& out);

/// Whether `name` matches `glob`. In `glob`, "*" matches any run of characters and "?" any one
/// character; there is no escape. In `name`, no character is special.
FSCANNER_EXPORT bool fsNameMatches(const wchar_t* glob, const wchar_t* name, bool caseSensitive);

/// Whether the path entry `pattern` covers `path`, by the rules for the included and excluded
/// paths of a query. A `recursive` entry also covers everything below it.
FSCANNER_EXPORT bool fsPathMatches(const wchar_t* pattern, const wchar_t* path, bool recursive,
                                   bool caseSensitive);

}  // namespace fscanner
