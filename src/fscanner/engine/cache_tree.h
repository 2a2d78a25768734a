#pragma once

#include <map>
#include <string>

#include "fscanner/engine/cache_store.h"

namespace fscanner {

/// Room, in characters, for the path of any directory of the cache.
constexpr unsigned kPathBuffer = 4096;
/// No path has as many components: a longer chain of parents is a circle of a
/// damaged table.
constexpr unsigned kLongestChain = 1024;

/// Directories of the cache as a tree: from a path to its record, from an ID to its
/// path, and the removal of a subtree.
///
/// The directories table holds each directory's own name and its parent's ID, 0 at
/// the top; a path exists only as a chain of parents.
class CacheTree {
public:
    explicit CacheTree(CacheStore& store) : store_(store) {}

    /// Whether `path` is in the cache; `candidates` is then on its record. Without
    /// `caseFlag` a path of exactly this spelling is preferred.
    bool findPathByName(RecordSet& candidates, RecordSet& ancestors, const wchar_t* path,
                        bool caseFlag);
    /// Writes the path of directory `id` into `buffer`, which has room for
    /// `bufferSize` characters and needs 4 more than the path.
    bool findPathById(RecordSet& directories, unsigned id, wchar_t* buffer, unsigned bufferSize);

    /// Removes the files whose directory is `pathId`.
    void removeFiles(FS_Table& files, unsigned pathId);
    /// Removes directory `id` with all below it.
    void removeTree(FS_Table& directories, FS_Table& files, unsigned id);

private:
    struct Known {
        std::wstring name;
        unsigned parent;
    };

    bool findSpelledPath(RecordSet& candidates, RecordSet& ancestors, const wchar_t* path,
                         bool caseFlag);
    const Known* known(RecordSet& directories, unsigned id);

    CacheStore& store_;
    std::map<unsigned, Known> pathMap_;
};

}  // namespace fscanner
