#pragma once

#include <string>
#include <string_view>

namespace fscan {

class Output;

/// Standard error.
Output& errors();

/// Writes "fscan: TEXT" to standard error, escaped where that is a terminal; then
/// the lines of `detail`, which must be harmless.
void complain(std::string_view text, std::string_view detail = {});
/// Writes "fscan: TEXT: " and the message for this errno.
void complain(std::string_view text, int systemError);

/// Two indented lines: the text, and a caret below its character `position`. Columns are
/// counted as a terminal shows them; characters that it could not show become "?".
std::string pointAt(std::wstring_view text, std::size_t position);

}  // namespace fscan
