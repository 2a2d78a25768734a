#pragma once

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

}  // namespace fscan
