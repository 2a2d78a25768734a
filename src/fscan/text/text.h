#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace fscan {

/// Sets the user's locale. Where that is the C locale or unknown, sets C.UTF-8: names that are
/// not ASCII nearly always are UTF-8.
void useUsersLocale();

/// Convert between the locale's bytes and the library's wide text, both ways without loss.
std::wstring toWide(const std::string& bytes);
std::string toBytes(std::wstring_view text);
void appendBytes(std::string& bytes, std::wstring_view text);

/// Whether the character must be escaped on a terminal: it would move the cursor, start a
/// command or change the writing direction, or it stands for a byte that cannot be decoded
/// (U+DC80 to U+DCFF).
bool isHostile(wchar_t c);

/// The text, in the locale's encoding, with "\n", "\x1B", "\u202E" and the like
/// in place of hostile characters.
std::string escaped(std::string_view text);

/// The text as a value of CSV, by RFC 4180.
std::string csvText(std::string_view text);

/// The absolute path of a match, whose own is absolute or relative to the current directory.
std::string absolutePath(std::string_view path);

/// Whether the absolute path is `directory` or lies below it, by their texts.
/// Neither ends in "/", except the root.
bool liesIn(std::wstring_view path, std::wstring_view directory);

/// The path of the file with this name in the directory.
std::wstring joinedPath(std::wstring_view directory, std::wstring_view name);

/// The path without a "/" at its end, unless it is the root.
std::wstring_view withoutFinalSlash(std::wstring_view path);

/// Whether a GLOB of --path or -x may match anywhere: it begins neither with "/" nor with
/// the component "." or "..".
bool matchesAnywhere(std::string_view glob);

/// The pattern of whole paths that such a GLOB stands for. One that begins with "/" or "*"
/// is not changed. One that begins with "." or ".." starts at the current directory. Any
/// other one is the end of a path: "*/" is put before it. Nothing where the current directory
/// is needed and does not exist any more.
std::optional<std::string> wholePathGlob(std::string_view glob);

}  // namespace fscan
