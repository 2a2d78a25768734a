#pragma once

#include <string>

#include "fscanner/engine/query_plan.h"
#include "fscanner/fs/fs_explain.h"

namespace fscanner {

class CacheStore;
struct FsCacheCheck;
struct FsCacheReport;

/// What hosts are told without a search: of a criteria, of a query's plan, of a cache. The rest
/// of it is behind `fsCheckCriteria`, `fsExplainQuery` and `FS_Cache`.

/// `fsCheckCriteria` for a cache that may hold names that are `patterns`, or none.
FsCriteriaReport describeCriteria(const wchar_t* criteria, bool caseSensitive, bool patterns);

/// Puts a plan into a report; every step is a direct search so far.
void describePlan(const QueryPlan& plan, const FsQuery& query, bool patterns,
                  FsQueryReport& report);

/// Counts what an open cache holds. False when a record cannot be read.
bool reportCache(CacheStore& store, FsCacheReport& report);

/// Compares each file that the checksums at `sumsPath` are of with them, block by block. Adds
/// what it found; false where that is a problem.
bool compareWithSums(const std::wstring& sumsPath, FsCacheCheck& result);

}  // namespace fscanner
