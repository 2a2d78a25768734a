#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace fscan {

class Output;

/// The text without the blanks around it, which the language takes no part in.
std::wstring trimmed(std::wstring_view text);

/// Adds a condition to criteria, which may be empty, and so may the condition.
void andAlso(std::wstring& criteria, std::wstring_view condition);

/// All the user's criteria in one: "(a) && (b)"; empty where there are none.
/// Each is compiled on its own first, so that none can close a parenthesis of
/// ours. Nothing, with a message, where one does not compile.
std::optional<std::wstring> combineCriteria(const std::vector<std::string>& texts);

/// Prints what the library makes of the criteria; returns the exit status.
int checkCriteria(const std::string& text, bool caseSensitive, Output& out);

}  // namespace fscan
