#pragma once

#include <string>
#include <string_view>

namespace fscanner {

/// Paths as texts: joining them, taking them apart, and how one lies to another. Nothing
/// here looks at the file system. Exact case.

/// Appends "/" unless the path ends with one; an empty path becomes "/".
template <class Text>
void endWithSeparator(Text& path) {
    if (!path.ends_with('/')) path += '/';
}

/// The path without a "/" at its end: the root is the empty text.
inline std::wstring_view withoutFinalSeparator(std::wstring_view path) {
    if (path.ends_with(L'/')) path.remove_suffix(1);
    return path;
}

/// `directory`, "/" unless it ends with one, then `name`. An empty directory is the root.
std::wstring joinPath(std::wstring_view directory, std::wstring_view name);

/// Whether a "/" belongs between `directory` and a name where an empty directory stands for
/// none: the joined name is relative then.
inline bool needsSeparator(std::wstring_view directory) {
    return !directory.empty() && !directory.ends_with(L'/');
}
inline bool needsSeparator(std::string_view directory) {
    return !directory.empty() && !directory.ends_with('/');
}

/// What follows the last "/"; all where there is none.
std::wstring lastName(std::wstring_view path);

/// How many components a path has; 0 for the root.
std::size_t componentCount(std::wstring_view path);

/// How one path lies to another, by whole components.
enum class PathRelation {
    APART,
    SAME,
    INSIDE,  ///< strictly below the other
    AROUND,  ///< strictly above the other
};

/// How `path` lies to `other`. A final "/" changes nothing.
PathRelation relatePaths(std::wstring_view path, std::wstring_view other);

/// Whether `path` is `directory` or lies below it.
bool isWithin(std::wstring_view path, std::wstring_view directory);

/// Hands `path` and then each of its ancestors, all without a final separator, to
/// `accepts` until that is true for one of them. True when it was for any.
template <typename Accepts>
bool climb(std::wstring_view path, Accepts accepts) {
    for (path = withoutFinalSeparator(path);; path = path.substr(0, path.rfind(L'/'))) {
        if (accepts(path)) return true;
        if (path.find(L'/') == path.npos) return false;
    }
}

}  // namespace fscanner
