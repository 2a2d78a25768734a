#pragma once

#include "fscanner/engine/query_plan.h"
#include "fscanner/fs/fs_explain.h"

namespace fscanner {

/// `fsCheckCriteria` for a cache that may hold names that are `patterns`, or none.
FsCriteriaReport describeCriteria(const wchar_t* criteria, bool caseSensitive, bool patterns);

/// Puts a plan into a report; every step is a direct search so far.
void describePlan(const QueryPlan& plan, const FsQuery& query, bool patterns,
                  FsQueryReport& report);

}  // namespace fscanner
