#pragma once

#include <string>
#include <string_view>

namespace fscan {

/// Between the locale's bytes and the library's wide text, both ways without loss.
std::wstring toWide(const std::string& bytes);
std::string toBytes(std::wstring_view text);
void appendBytes(std::string& bytes, std::wstring_view text);

/// Whether the absolute path is `directory` or lies below it, by text alone.
/// Neither ends in "/", but for the root.
bool liesIn(std::wstring_view path, std::wstring_view directory);

/// The path of what has the name in the directory.
std::wstring joinedPath(std::wstring_view directory, std::wstring_view name);

/// The path without a "/" at its end, unless it is the root.
std::wstring_view withoutFinalSlash(std::wstring_view path);

}  // namespace fscan
