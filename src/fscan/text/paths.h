#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace fscan {

/// The path from "/" on: that of a match is absolute, or of the current directory.
std::string absolutePath(std::string_view path);

/// Whether the absolute path is `directory` or lies below it, by text alone.
/// Neither ends in "/", but for the root.
bool liesIn(std::wstring_view path, std::wstring_view directory);

/// The path of what has the name in the directory.
std::wstring joinedPath(std::wstring_view directory, std::wstring_view name);

/// The path without a "/" at its end, unless it is the root.
std::wstring_view withoutFinalSlash(std::wstring_view path);

/// Whether a GLOB of --path or -x may match anywhere: it begins neither with "/" nor with
/// the component "." or "..".
bool matchesAnywhere(std::string_view glob);

/// The pattern that such a GLOB stands for, from "/" on. One that begins with "/" or "*"
/// is that already; one that begins with "." or ".." starts at the current directory; any
/// other is the end of a path, behind "*/". Nothing where the current directory is needed
/// and gone.
std::optional<std::string> wholePathGlob(std::string_view glob);

}  // namespace fscan
