#pragma once

#include "fscanner/discovery/mount_map.h"
#include "fscanner/engine/cache_tree.h"

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

}  // namespace fscanner
