#pragma once

#include "fscanner/discovery/mount_map.h"
#include "fscanner/engine/cache_store.h"
#include "fscanner/engine/cache_tree.h"
#include "fscanner/engine/cache_verify.h"
#include "fscanner/engine/query_plan.h"

namespace fscanner {

/// Writes one tree of the file system into the cache: a record for each directory and
/// each file.
///
/// Ancestors that have no record get one with the time 0, so that they are never
/// taken for built trees; the root is stamped with the time at which the building
/// began. Other drives of `mounts` are not entered. `timeout` is in milliseconds. `success`
/// also when the root is no directory; `buildTimedOut` when the time ran out, and a part of
/// the tree is there then; `unusable` when a record could not be written. The observer is told how
/// many directories are expected.
Status buildTree(CacheStore& store, CacheTree& tree, const PathDrive& root, const MountMap& mounts,
                 unsigned timeout, unsigned long long expectedDirectories);

// A tree that was compared with the disk: see cache_verify.h.

enum class TreeState {
    current,  ///< the directories hold the entries that the cache has
    changed,  ///< they do not, or so many must be read to know that their stamps should be renewed
    stopped,  ///< the caller said so
};

/// Reads directories that are not as they were, and compares their entries with those that the
/// cache has. Changes nothing. `changed` also after damage, which the store knows.
TreeState compareTree(CacheStore& store, const TreeView& view,
                      const std::vector<StaleDirectory>& stale);

/// Brings the records of these directories up to date: inserts new files and new subtrees, and
/// removes what is gone. The build time of the tree stays, because sizes and attributes of the
/// other files do. `timeout` is in milliseconds. `success`, `unusable` or `buildTimedOut`; after
/// the last two the changes are to be undone.
Status updateTree(CacheStore& store, CacheTree& tree, const TreeView& view,
                  const std::vector<StaleDirectory>& stale, unsigned timeout);

// Trees that are removed without being built anew.

/// Removes the directory `path` with all below it. The trees that contain it count as never
/// built from then on, because they lack something now. `found` tells whether it was there.
/// False when that fails: the cache is broken then.
bool forgetTree(CacheStore& store, const wchar_t* path, bool& found);

/// To be called after a change. Removes the trees whose directories are gone, and then those that
/// were not read for longest until the cache takes no more than `limit` bytes; 0: no limit. Trees
/// that the plan searches stay. The space is given back when the cache is compacted. Directories
/// that a server or a process serves are not examined.
void tidyTrees(CacheStore& store, const QueryPlan& plan, unsigned long long limit);

}  // namespace fscanner
