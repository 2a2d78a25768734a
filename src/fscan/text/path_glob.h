#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace fscan {

/// Whether a GLOB of --path or -x may match anywhere: it begins neither with "/" nor with
/// the component "." or "..".
bool matchesAnywhere(std::string_view glob);

/// The pattern that such a GLOB stands for, from "/" on. One that begins with "/" or "*"
/// is that already; one that begins with "." or ".." starts at the current directory; any
/// other is the end of a path, behind "*/". Nothing where the current directory is needed
/// and gone.
std::optional<std::string> wholePathGlob(std::string_view glob);

}  // namespace fscan
