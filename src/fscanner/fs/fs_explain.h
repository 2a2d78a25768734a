#pragma once

#include <string>
#include <vector>

#include "fscanner/discovery/drive_info.h"
#include "fscanner/export.h"
#include "fscanner/fs/fs_inspect.h"

namespace fscanner {

class FsQuery;

/// How a path of a query would be searched.
enum class FsSearchWay {
    direct,       ///< by walking the file system
    cached,       ///< by reading the cache
    rebuilt,      ///< by walking the file system into the cache, then reading the cache
    left,         ///< not at all: the query excludes it
    noDirectory,  ///< not at all: it does not exist, or is not a directory
};

/// One (path, drive) pair of a plan.
struct FSCANNER_EXPORT FsPlanStep {
    std::wstring path;                      ///< absolute, without symbolic links
    bool recursive = false;                 ///< whether the whole subtree is searched
    std::wstring mountPoint;                ///< mount point of the path's drive
    std::wstring fileSystem;                ///< file-system type of that drive
    DriveType type = DRIVE_UNKNOWN;         ///< type of that drive
    FsSearchWay way = FsSearchWay::direct;  ///< how the path would be searched
    bool inCache = false;                   ///< whether the cache holds a tree of this path
    unsigned ageSeconds = 0;                ///< age of that tree
    bool verified = false;                  ///< whether it is compared with the disk first
    bool watched = false;                   ///< by what a watcher of the cache knows
    std::vector<std::wstring> exclusions;   ///< excluded paths inside the path
    std::vector<std::wstring> mountPoints;  ///< mount points inside the path; not entered
};

/// A report on how a query would run. Making it searches nothing.
struct FSCANNER_EXPORT FsQueryReport {
    unsigned drives = 0;                   ///< number of mounted drives
    unsigned searchedDrives = 0;           ///< drives whose file system the query allows
    std::vector<FsPlanStep> steps;         ///< in the order of the search
    std::vector<std::wstring> unresolved;  ///< path entries that lead to no drive they allow
    FsCriteriaReport criteria;             ///< report on the empty text if there is no criteria
};

/// Sets `report` to how `fsScanQuery` would run the query. False if the mount table cannot be
/// read or memory runs out. Throws nothing. `FS_Cache::explain` does the same for a cache.
FSCANNER_EXPORT bool fsExplainQuery(const FsQuery& query, FsQueryReport& report);

}  // namespace fscanner
