#pragma once

#include <string>

namespace fscanner {

class CacheStore;
struct FsCacheCheck;
struct FsCacheReport;

/// What hosts are told of a cache: `FS_Cache::report` and `FS_Cache::check`.

/// Counts what an open cache holds. False when a record cannot be read.
bool reportCache(CacheStore& store, FsCacheReport& report);

/// Compares each file that the checksums at `sumsPath` are of with them, block by block. Adds
/// what it found; false where that is a problem.
bool compareWithSums(const std::wstring& sumsPath, FsCacheCheck& result);

}  // namespace fscanner
