#pragma once

#include "fscanner/engine/fsbuild.h"
#include "fscanner/engine/query_plan.h"

namespace fscanner {

/// In effect none: direct scans of a query over the cache have no limit.
constexpr unsigned kNoTimeout = 2000000000;

/// Scans one pair of a plan directly, with its exclusions and mount points. A
/// `WalkStatus`.
int scanPair(FsResultSetWriter& writer, const FsQuery& query, const QueryPlan& plan,
             FileProcessor& processor, const PathDrive& pair, unsigned timeout);

}  // namespace fscanner
