#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace fscanner {

/// The target of the symbolic link `path`. Nothing, and errno says why, when it
/// is no link (EINVAL) or cannot be read.
std::optional<std::string> readLink(const std::string& path);

/// Whether a link test may touch this path. One on a dead server never returns.
using LinkGuard = std::function<bool(std::string_view path)>;
/// The one that allows any.
inline bool touchesAll(std::string_view) {
    return true;
}

/// `path` made absolute, without ".", ".." and repeated "/". Links are resolved
/// where `mayRead` allows it; what it refuses counts as no link. Nothing, and errno
/// says why, when it cannot be done within the limits of length (`longestPath`, in bytes)
/// and links.
std::optional<std::string> resolvePath(std::string_view path, const LinkGuard& mayRead);

}  // namespace fscanner
