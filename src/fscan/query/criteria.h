#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "fscan/process/exit_status.h"

namespace fscan {

class Output;

/// The text without blanks at its ends, which the criteria language does not accept.
std::wstring trimmed(std::wstring_view text);

/// Appends a condition with "&&". Both may be empty.
void andAlso(std::wstring& criteria, std::wstring_view condition);

/// Joins the user's criteria: "(a) && (b)"; empty where there are none. Each is compiled
/// alone first, so that none can close our parentheses. Nothing, with a message, where one
/// does not compile.
std::optional<std::wstring> combineCriteria(const std::vector<std::string>& texts);

/// Prints how the library compiles the criteria.
ExitStatus checkCriteria(const std::string& text, bool caseSensitive, Output& out);

}  // namespace fscan
