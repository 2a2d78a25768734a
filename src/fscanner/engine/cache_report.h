#pragma once

#include "fscanner/engine/cache.h"
#include "fscanner/engine/cache_store.h"

namespace fscanner {

/// Counts what an open cache holds. False when a record cannot be read.
bool reportCache(CacheStore& store, FsCacheReport& report);

}  // namespace fscanner
