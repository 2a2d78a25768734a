#pragma once

#include "fscanner/discovery/mount_map.h"
#include "fscanner/engine/cache_store.h"
#include "fscanner/engine/cache_tree.h"
#include "fscanner/engine/query_plan.h"

namespace fscanner {

/// Results of `buildTree`, besides those of the walk.
constexpr int BUILD_FAILED = -1;

/// Writes one tree of the file system into the cache: a record for each directory and
/// each file.
///
/// Ancestors that have no record get one with the time 0, so that they are never
/// taken for built trees; the root is stamped with the time at which the building
/// began. Other drives of `mounts` are not entered. `timeout` is in milliseconds. 0 when
/// finished, also when the root is no directory; 2 when the time ran out, and a part of
/// the tree is there then; `BUILD_FAILED` when a record could not be written.
int buildTree(CacheStore& store, CacheTree& tree, const PathDrive& root, const MountMap& mounts,
              unsigned timeout);

// What goes from a cache besides what is built anew.

/// Removes the directory `path` with all below it; what holds it counts as never built, as
/// it lacks something now. `found` tells whether it was there. False when that fails: the
/// cache is broken then.
bool forgetTree(CacheStore& store, const wchar_t* path, bool& found);

/// To be called after a change. Removes the trees whose directories are gone, and then the
/// oldest ones until the cache takes no more than `limit` bytes; 0: no limit. Those that the plan
/// searches stay. The space is given back when the cache is compacted. What a server or a
/// process serves is not looked at.
void tidyTrees(CacheStore& store, const QueryPlan& plan, unsigned long long limit);

}  // namespace fscanner
