#pragma once

#include <string>
#include <string_view>

namespace fscan {

class Output;

/// Standard error, as `complain` writes to it.
Output& errors();

/// Writes "fscan: TEXT" to standard error, escaped where that is a terminal; then
/// the lines of `detail`, which must be harmless.
void complain(std::string_view text, std::string_view detail = {});
/// "fscan: TEXT: what the system says to this errno".
void complain(std::string_view text, int systemError);

/// The text in one line, and under it a caret below the character `position`:
/// both indented, columns counted as a terminal shows them. What a terminal could
/// not show in its place is a "?".
std::string pointAt(std::wstring_view text, std::size_t position);

}  // namespace fscan
