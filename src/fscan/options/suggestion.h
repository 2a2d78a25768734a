#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace fscan {

/// Which of the known words may have been meant: one of which `word` is a part, or
/// that differs from it by little. Upper and lower case are the same.
std::optional<std::string> suggestion(std::string_view word, const std::vector<std::string>& known);

/// "; did you mean WORD?", or nothing.
std::string suggestionText(std::string_view word, const std::vector<std::string>& known);

}  // namespace fscan
