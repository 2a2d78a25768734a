#pragma once

#include <vector>

#include "fscanner/discovery/path_info.h"
#include "fscanner/engine/file_processor.h"
#include "fscanner/engine/walk.h"

// Direct scans: walk a tree of the file system and write the matching files, without a cache.
// The walk itself is in walk.h.

namespace fscanner {

class FsQuery;
class FsResultSetWriter;
class MountMap;
class QueryPlan;
struct PathDrive;

/// Whether `path` is a directory, and not a link to one.
bool fs_isValidPath(const wchar_t* path);
/// The same test for a path that is about to be searched. Returns 0 for a directory, ENOTDIR for
/// anything else, or the errno if the path cannot be examined. The observer is told of a failure.
int fs_examineSearched(const wchar_t* path);

/// 23 days: in effect no limit. Used for direct scans of a query over the cache.
constexpr unsigned kNoTimeout = 2000000000;

/// Scans one pair of a plan directly, with its exclusions and mount points.
WalkStatus scanPair(FsResultSetWriter& writer, const FsQuery& query, const QueryPlan& plan,
                    FileProcessor& processor, const PathDrive& pair, unsigned timeout);

// ---- Offered to hosts; nothing in fscanner uses what follows ----------------

/// Vets the starting path and scans it: 0 finished (also when it is excluded, or
/// no directory), 2 the time ran out. `timeout` is in milliseconds. Matches go to
/// `writer`; what the lists exclude is left out.
/// Other drives of `mounts`, which may be null, are not entered; the observer is told so.
int fs_build(FsResultSetWriter& writer, FileProcessor& processor, const PathDrive& pathDrive,
             const std::vector<PathInfo>& includeList, const std::vector<PathInfo>& excludeList,
             bool caseSensitive, unsigned timeout, const MountMap* mounts = nullptr);

/// The scan without the check. Entries of a directory come in the reverse of the system's order.
int fs_scan(FsResultSetWriter& writer, FileProcessor& processor, const PathDrive& pathDrive,
            const std::vector<PathInfo>& includeList, const std::vector<PathInfo>& excludeList,
            bool caseSensitive, unsigned timeout, const MountMap* mounts = nullptr);

}  // namespace fscanner
