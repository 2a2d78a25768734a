#pragma once

#include <optional>
#include <vector>

#include "fscanner/discovery/path_drive.h"
#include "fscanner/engine/cache_tree.h"

namespace fscanner {

/// The records of the files that the cache holds in and below the paths of the local
/// pairs, in the table's order. Nothing where that is so much that to read the whole table
/// costs less, or where a path could be a pattern.
std::optional<std::vector<unsigned>> filesOfSmallTrees(CacheStore& store, CacheTree& tree,
                                                       const std::vector<PathDrive>& pairs);

}  // namespace fscanner
