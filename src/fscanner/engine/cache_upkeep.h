#pragma once

#include "fscanner/engine/cache_store.h"
#include "fscanner/engine/query_plan.h"

namespace fscanner {

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
