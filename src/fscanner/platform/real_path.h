#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace fscanner {

/// The target of the symbolic link `path`. Empty, with errno, when `path` is no
/// link (EINVAL) or cannot be read.
std::optional<std::string> readLink(const std::string& path);

/// Decides whether `readlink` may be called for this path. A call for a path on a
/// server that is gone may never return.
using LinkGuard = std::function<bool(std::string_view path)>;
/// The guard that allows every path.
inline bool touchesAll(std::string_view) {
    return true;
}

/// `path` made absolute, without ".", ".." and repeated "/". Symbolic links are
/// resolved if `mayRead` allows their path; a refused path counts as no link. Empty,
/// with errno: ENAMETOOLONG beyond `longestPath` bytes, ELOOP beyond 32 links, or the
/// error of a link that cannot be read (ENOENT if it is absent).
std::optional<std::string> resolvePath(std::string_view path, const LinkGuard& mayRead);

}  // namespace fscanner
