#pragma once

#include <cstddef>
#include <string_view>
#include <vector>

#include "fscanner/discovery/drive_info.h"
#include "fscanner/discovery/path_info.h"

namespace fscanner {

/// How one path lies to another, by whole components.
enum class PathRelation {
    APART,
    SAME,
    INSIDE,  ///< strictly below the other
    AROUND,  ///< strictly above the other
};

/// How `path` lies to `other`. Exact case; a final "/" changes nothing.
PathRelation relatePaths(std::wstring_view path, std::wstring_view other);

/// How many components a path has; 0 for the root.
std::size_t componentCount(std::wstring_view path);

/// The path without a "/" at its end: the root is the empty text.
std::wstring_view withoutFinalSeparator(std::wstring_view path);

/// Hands `path` and then each of its ancestors, all without a final separator, to
/// `accepts` until that is true for one of them. True when it was for any.
template <typename Accepts>
bool climb(std::wstring_view path, Accepts accepts) {
    for (path = withoutFinalSeparator(path);; path = path.substr(0, path.rfind(L'/'))) {
        if (accepts(path)) return true;
        if (path.find(L'/') == path.npos) return false;
    }
}

/// A place to search, and the drive that it lies on.
struct PathDrive {
    PathInfo path;
    DriveInfo drive;
};

/// Membership of a path in a list of path patterns. Entries without a text match
/// nothing; an empty list matches nothing.

/// Whether some entry covers `path`. With `recursiveOnly`, only recursive entries
/// take part.
bool checkPathList(const wchar_t* path, const std::vector<PathInfo>& list, bool caseFlag,
                   bool recursiveOnly);

/// Index of the covering entry with the longest text, the first of equals; or -1.
int checkPathListEx(const wchar_t* path, const std::vector<PathInfo>& list, bool caseFlag);

/// The same over the pairs whose drive type is in `typeMask`.
int checkPathDriveListEx(const wchar_t* path, const std::vector<PathDrive>& list, unsigned typeMask,
                         bool caseFlag);

}  // namespace fscanner
