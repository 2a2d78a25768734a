#pragma once

#include <string>
#include <string_view>

namespace fscan {

/// Sets the user's locale; C.UTF-8 where that is the C locale or unknown, so that
/// names beyond ASCII are read as what they nearly always are.
void useUsersLocale();

/// Between the locale's bytes and the library's wide text, both ways without loss.
std::wstring toWide(const std::string& bytes);
std::string toBytes(std::wstring_view text);
void appendBytes(std::string& bytes, std::wstring_view text);

/// Whether a terminal must not get the character as it is: it would move the
/// cursor, send a command, turn the writing direction, or is no character at all
/// (an undecodable byte, U+DC80 to U+DCFF).
bool isHostile(wchar_t c);

/// The text, in the locale's encoding, with "\n", "\x1B", "\u202E" and the like
/// in place of hostile characters.
std::string escaped(std::string_view text);

}  // namespace fscan
