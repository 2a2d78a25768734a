#pragma once

#include <vector>

#include "fscanner/discovery/path_info.h"
#include "fscanner/engine/file_processor.h"
#include "fscanner/engine/walk.h"

/// Direct scans: walking a tree of the file system and writing what matches,
/// without a cache. The walk itself is `walk.h`.

namespace fscanner {

class FsQuery;
class FsResultSetWriter;
class MountMap;
class QueryPlan;
struct PathDrive;

/// Whether `path` is a directory itself; a link to one is not.
bool fs_isValidPath(const wchar_t* path);
/// The same for a path that is about to be searched, as an errno: 0, ENOTDIR, or why it
/// cannot be examined. The observer is told of all but 0.
int fs_examineSearched(const wchar_t* path);

/// In effect none: direct scans of a query over the cache have no limit.
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

/// The scan alone. Entries of a directory come in the reverse of its own order.
int fs_scan(FsResultSetWriter& writer, FileProcessor& processor, const PathDrive& pathDrive,
            const std::vector<PathInfo>& includeList, const std::vector<PathInfo>& excludeList,
            bool caseSensitive, unsigned timeout, const MountMap* mounts = nullptr);

}  // namespace fscanner
