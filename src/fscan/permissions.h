#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace fscan {

/// Reads "x", "u+w", "go+r", "u+w,o+r" and makes criteria of it. Bits with a "who"
/// must all be set; of bits without one any of the three. Nothing where the text is
/// none of these.
std::optional<std::wstring> permissionCriteria(std::string_view text);

}  // namespace fscan
