#pragma once

#include "fscanner/engine/query_plan.h"
#include "fscanner/fs/fs_explain.h"

namespace fscanner {

/// Puts a plan into a report; every step is a direct search so far.
void describePlan(const QueryPlan& plan, const FsQuery& query, FsQueryReport& report);

}  // namespace fscanner
