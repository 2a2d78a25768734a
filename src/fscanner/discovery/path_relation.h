#pragma once

#include <vector>

#include "fscanner/common/path_text.h"
#include "fscanner/discovery/drive_info.h"
#include "fscanner/discovery/path_info.h"

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

// ---- Offered to hosts; nothing in fscanner uses what follows ----------------

/// Index of the covering entry with the longest text, the first of equals; or -1.
int checkPathListEx(const wchar_t* path, const std::vector<PathInfo>& list, bool caseFlag);

/// The same over the pairs whose drive type is in `typeMask`.
int checkPathDriveListEx(const wchar_t* path, const std::vector<PathDrive>& list, unsigned typeMask,
                         bool caseFlag);

}  // namespace fscanner
