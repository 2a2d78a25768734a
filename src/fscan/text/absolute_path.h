#pragma once

#include <string>
#include <string_view>

namespace fscan {

/// The path from "/" on: that of a match is absolute, or of the current directory.
std::string absolutePath(std::string_view path);

}  // namespace fscan
