#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "fscanner/common/path_text.h"
#include "fscanner/discovery/drive_info.h"
#include "fscanner/discovery/path_info.h"
#include "fscanner/platform/paths.h"

namespace fscanner {

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

/// The resolved paths of one side of a query: its included or its excluded paths.
struct ResolvedPaths {
    std::vector<PathDrive> resolved;        ///< each path, with the drive on which it lies
    std::vector<PathDrive> parentResolved;  ///< mount points below a recursive path
    std::vector<PathDrive> excluded;        ///< on a file system that the query leaves out
    std::vector<PathDrive> unresolved;      ///< entries, as written, without an admitted drive
};

/// Finds for each path entry of a query the drive on which it lies and the drives below it. The
/// implementation of `PathHelper::pathResolver`, which explains the arguments. A list of the
/// result may contain a pair twice.
ResolvedPaths resolvePaths(const std::vector<PathInfo>& paths, const std::vector<DriveInfo>& drives,
                           const std::vector<PathInfo>& includedMounts,
                           const std::vector<PathInfo>& excludedMounts, const LinkGuard& mayTouch);

/// As `PathHelper::unix_path_resolver`, with the length of the drive's text given, because that
/// text may contain a ":" itself.
bool resolveText(const PathInfo& pathInfo, std::size_t driveLength, PathInfo& resolved,
                 PathInfo& parentResolved);

/// A path entry of a query, `[media::][drive:]path`, parsed into the drives that it admits and
/// an absolute path.
struct PathEntry {
    std::wstring text;       ///< as written
    unsigned mask = 0;       ///< mask of the admitted drive types
    std::wstring driveName;  ///< the only admitted drive; empty: any drive of these types
    bool valid = true;       ///< false if the drive prefix is unknown
    bool knownMedia = true;  ///< false if the media is unknown: the entry admits no drive
    std::wstring path;       ///< absolute; empty if none was given
    bool recursive = false;
};

/// The absolute path of an entry, whatever drives it admits. Symbolic links are resolved where
/// `mayTouch` allows it. Empty if the entry has no path.
std::wstring realPathOf(const PathInfo& entry, const LinkGuard& mayTouch = touchesAll);

/// Parses an entry. `drives` are the drives that a prefix may name. Symbolic links are resolved
/// where `mayTouch` allows it. Nothing for an entry without a text.
std::optional<PathEntry> parsePathEntry(const PathInfo& entry, const std::vector<DriveInfo>& drives,
                                        const LinkGuard& mayTouch = touchesAll);

/// The implementation of `PathHelper::expand_path_variable`, which documents it: copies `source`
/// into `destination` and expands %NAME% references.
int expandPathVariables(const wchar_t* source, wchar_t* destination, unsigned limit);

// ---- Offered to hosts; nothing in fscanner uses what follows ----------------

/// Index of the covering entry with the longest text, the first of equals; or -1.
int checkPathListEx(const wchar_t* path, const std::vector<PathInfo>& list, bool caseFlag);

/// The same over the pairs whose drive type is in `typeMask`.
int checkPathDriveListEx(const wchar_t* path, const std::vector<PathDrive>& list, unsigned typeMask,
                         bool caseFlag);

}  // namespace fscanner
