#pragma once

#include <string>
#include <string_view>

namespace fscan {

/// Whether a terminal must not get the character as it is: it would move the
/// cursor, send a command, turn the writing direction, or is no character at all
/// (an undecodable byte, U+DC80 to U+DCFF).
bool isHostile(wchar_t c);

/// The text, in the locale's encoding, with "\n", "\x1B", "\u202E" and the like
/// in place of hostile characters.
std::string escaped(std::string_view text);

}  // namespace fscan
