#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace fscanner {

/// The words of a description or of a wanted type: what stands between runs of
/// blanks, commas and colons.
std::vector<std::wstring> splitTypeWords(std::wstring_view text);

/// What stands behind the first `pathLength` characters of a line
/// "path: description", its tabs and newlines turned into blanks.
std::wstring descriptionOf(std::wstring_view line, std::size_t pathLength);

}  // namespace fscanner
