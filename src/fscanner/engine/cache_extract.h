#pragma once

#include <vector>

#include "fscanner/discovery/mount_map.h"
#include "fscanner/engine/cache_store.h"

namespace fscanner {

class FsResultSetWriter;

/// What an extraction looks for. Refers to the caller's objects.
struct ExtractionRequest {
    const wchar_t* criteria;  ///< null or empty: every file
    const MountMap& mounts;
    const std::vector<PathDrive>& pairs;  ///< of which the local ones count
    const std::vector<PathInfo>& exclude;
    bool caseSensitive;
    unsigned timeout;  ///< milliseconds
};

/// Reads the files table once and writes the files that satisfy the criteria and lie
/// inside a local pair and outside the excluded paths. The observer is told first of the
/// directories there that could not be read. 0; -41 when the time ran out;
/// -40 when a file's directory has no record. Records already written stay. Directories
/// whose paths are too long for this process are left out, and the observer is told.
int extractResults(CacheStore& store, FsResultSetWriter* writer, const ExtractionRequest& request);
/// Only the beginning of that: tells the observer of the directories there that could not
/// be read. Returns 0; the writer may be null.
int tellUnread(CacheStore& store, FsResultSetWriter* writer, const ExtractionRequest& request);

}  // namespace fscanner
