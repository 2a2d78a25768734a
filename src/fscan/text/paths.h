#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace fscan {

/// The absolute path of a match, whose own is absolute or relative to the current directory.
std::string absolutePath(std::string_view path);

/// Whether the absolute path is `directory` or lies below it, by their texts.
/// Neither ends in "/", except the root.
bool liesIn(std::wstring_view path, std::wstring_view directory);

/// The path of the file with this name in the directory.
std::wstring joinedPath(std::wstring_view directory, std::wstring_view name);

/// The path without a "/" at its end, unless it is the root.
std::wstring_view withoutFinalSlash(std::wstring_view path);

/// Whether a GLOB of --path or -x may match anywhere: it begins neither with "/" nor with
/// the component "." or "..".
bool matchesAnywhere(std::string_view glob);

/// The pattern of whole paths that such a GLOB stands for. One that begins with "/" or "*"
/// is not changed. One that begins with "." or ".." starts at the current directory. Any
/// other one is the end of a path: "*/" is put before it. Nothing where the current directory
/// is needed and does not exist any more.
std::optional<std::string> wholePathGlob(std::string_view glob);

}  // namespace fscan
