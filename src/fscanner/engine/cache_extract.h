#pragma once

#include <vector>

#include "fscanner/discovery/mount_map.h"
#include "fscanner/engine/cache_store.h"

namespace fscanner {

class FsResultSetWriter;

/// What an extraction looks for. Refers to the query, the plan and the pairs of the caller.
struct ExtractionRequest {
    const wchar_t* criteria;  ///< null or empty: every file
    const MountMap& mounts;
    const std::vector<PathDrive>& pairs;  ///< only the local ones are extracted
    std::vector<PathInfo> exclude;
    bool caseSensitive;
    unsigned timeout;  ///< milliseconds
    /// A criteria that reads sizes or attributes is tested on those that the files have now, and
    /// these are written. If it reads nothing else, the stored ones tell which files to examine.
    bool examines = false;
};

/// Reads the files table once and writes the files that satisfy the criteria and lie
/// inside a local pair and outside the excluded paths. The observer is told first of the
/// directories there that could not be read. `queryTimedOut` when the time ran out or the
/// observer said stop, `unusable` when a file's directory has no record. Records already
/// written stay. Directories whose paths are too long for this process are left out, and
/// the observer is told.
Status extractResults(CacheStore& store, FsResultSetWriter* writer,
                      const ExtractionRequest& request);
/// Only the first step of that: tells the observer of the directories inside the local pairs
/// that could not be read.
void tellUnread(CacheStore& store, const ExtractionRequest& request);

}  // namespace fscanner
