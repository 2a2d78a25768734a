#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace fscanner {

/// The most characters that the path of a searched directory, or of a file whose type is
/// asked for, may have: 1023, or any number where the process asked for long paths.
std::size_t longestPath();
/// Process-wide.
void setLongPaths(bool on);
bool hasLongPaths();

/// `remove` and `rename` of the multibyte names; 0 on success.
int removeFile(const wchar_t* name);
int renameFile(const wchar_t* from, const wchar_t* to);

/// Creates an empty file that only its owner can read and write. False, with
/// errno, when anything has that name (a link is not followed) or it cannot be made.
bool createExclusively(const char* name);

/// Creates, empty and exclusively, the first free "./" + `prefix` + n (null:
/// "./tav_" + n) for n = 0, 1, 2, ... and returns its name, released with
/// delete[]. Does not return while the current directory cannot be written.
char* getTempFile_Default(const char* prefix);

/// The per-user directory `base` + "/__" + user name; with `create` it is made with mode
/// 0700. A null `user` means the login name. Nothing when there is no name or the directory
/// cannot be made.
std::optional<std::wstring> userCacheDirectory(const wchar_t* base, const wchar_t* user,
                                               bool create);

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

// ---- Offered to hosts; nothing in fscanner uses what follows ----------------

/// `dir`, "/" unless it already ends with one, then `name`, as a new string
/// released with `free`. Null if either is null. An empty `dir` gives "/name".
wchar_t* getFullPathName(const wchar_t* dir, const wchar_t* name);

/// Splits at the last separator: `*dir` gets what leads up to and including it,
/// `*name` what follows; both new, released with `free`. False, and nothing is
/// stored, when there is no separator.
bool fullPath2Component(const wchar_t* fullPath, wchar_t separator, wchar_t** dir, wchar_t** name);

/// `userCacheDirectory` released with `free`, or null.
wchar_t* getUserCacheDir(const wchar_t* base, bool create);
wchar_t* getUserCacheDir(const wchar_t* base, const wchar_t* user, bool create);

}  // namespace fscanner
