#pragma once

#include <string>
#include <vector>

#include "fscanner/discovery/drive_info.h"
#include "fscanner/export.h"
#include "fscanner/fs/fs_inspect.h"

namespace fscanner {

class FsQuery;

/// How a place of a query would be searched.
enum class FsSearchWay {
    direct,       ///< walking the file system
    cached,       ///< from the cache
    rebuilt,      ///< walking it into the cache, then from there
    left,         ///< not at all: the query excludes it
    noDirectory,  ///< not at all: it is gone, or is no directory
};

/// One (path, drive) pair of a plan.
struct FSCANNER_EXPORT FsPlanStep {
    std::wstring path;                      ///< absolute, without links
    bool recursive = false;                 ///< with the subtree, or the directory itself only
    std::wstring mountPoint;                ///< of the drive that the path lies on
    std::wstring fileSystem;                ///< of that drive
    DriveType type = DRIVE_UNKNOWN;         ///< of that drive
    FsSearchWay way = FsSearchWay::direct;  ///< how it would be searched
    bool inCache = false;                   ///< a built tree of this path is in the cache
    unsigned ageSeconds = 0;                ///< its age
    std::vector<std::wstring> exclusions;   ///< paths inside it that the query leaves out
    std::vector<std::wstring> mountPoints;  ///< inside it, searched on their own or not at all
};

/// What running a query would do. Nothing is searched for it.
struct FSCANNER_EXPORT FsQueryReport {
    unsigned drives = 0;                   ///< mounted
    unsigned searchedDrives = 0;           ///< whose file system the query allows
    std::vector<FsPlanStep> steps;         ///< in the order of the search
    std::vector<std::wstring> unresolved;  ///< entries that are on no drive they allow
    FsCriteriaReport criteria;             ///< of an empty text when there is none
};

/// Reports how `fsScanQuery` would run the query. False without a mount table.
/// `FS_Cache::explain` is the same for a cache.
FSCANNER_EXPORT bool fsExplainQuery(const FsQuery& query, FsQueryReport& report);

}  // namespace fscanner
