#pragma once

#include <vector>

#include "fscanner/discovery/mount_map.h"
#include "fscanner/engine/cache_store.h"
#include "fscanner/engine/walk.h"

namespace fscanner {

class FsResultSetWriter;

/// The files that are examined before the criteria is tested and they are written, so that their
/// sizes and attributes are those of now.
enum class Examined {
    none,        ///< the stored values decide
    candidates,  ///< those that may match whatever their sizes and attributes are
    matches,     ///< those that match by the stored ones
};

/// What an extraction looks for. Refers to the query, the plan and the pairs of the caller.
struct ExtractionRequest {
    const wchar_t* criteria;  ///< null or empty: every entry
    bool criteriaCaseSensitive;
    const MountMap& mounts;
    const std::vector<PathDrive>& pairs;  ///< only the local ones are extracted
    std::vector<EntryChoice> choices;     ///< of each pair; the kinds are the same
    std::vector<PathInfo> exclude;
    bool caseSensitive;  ///< of the excluded paths
    unsigned timeout;    ///< milliseconds
    Examined examined = Examined::none;
};

/// Reads the files table once, and that of the directories where they are asked for, and writes
/// the entries that satisfy the criteria and lie inside a local pair and outside the excluded
/// paths. The observer is told first of the
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
