#pragma once

#include "fscanner/discovery/mount_map.h"
#include "fscanner/engine/cache_store.h"

namespace fscanner {

// What goes from a cache besides what is built anew.

/// Removes the directory `path` with all below it; what holds it counts as never built, as
/// it lacks something now. `found` tells whether it was there. False when that fails: the
/// cache is broken then.
bool forgetTree(CacheStore& store, const wchar_t* path, bool& found);

/// What a cache may take.
struct CacheBound {
    unsigned long long bytes = 0;  ///< 0: any number
    unsigned lastRemovable = 0;    ///< trees with IDs above it stay: a query still needs them
};

/// To be called after a change. Removes the trees whose directories are gone, and then the
/// oldest ones until the cache is within its bound. The space is given back when the cache is
/// compacted. What a server or a process serves is not looked at.
void tidyTrees(CacheStore& store, const MountMap& mounts, const CacheBound& bound);

}  // namespace fscanner
