#pragma once

#include "fscanner/engine/cache_tree.h"
#include "fscanner/engine/query_plan.h"

namespace fscanner {

class FsQuery;
class FsResultSetWriter;

/// One query over a cache: what the four ways of running it share, and the two
/// policies in which they differ.
///
/// Remote and other drives are always scanned directly. What happens to a local pair
/// is the first policy: `cacheOnly` rebuilds what is not young enough, `monitored`
/// takes what is there and scans the rest. Where the plan comes from is the second:
/// made for the call, or kept by the process.
class CacheQuery {
public:
    CacheQuery(CacheStore& store, FsResultSetWriter& writer, const FsQuery& query, unsigned timeout,
               unsigned maxCacheAge)
        : store_(store),
          tree_(store),
          writer_(writer),
          query_(query),
          timeout_(timeout),
          maxCacheAge_(maxCacheAge) {}

    /// 0, -40, -41 or -42. `name` is the operation's, for the log.
    int cacheOnly(const QueryPlan& plan, const char* name);
    int monitored(const QueryPlan& plan);

private:
    int scanDirectly(const QueryPlan& plan, const PathDrive& pair);
    int refresh(const QueryPlan& plan, const PathDrive& pair, unsigned limit, const char* name);
    bool find(const PathDrive& pair);
    int extract(const QueryPlan& plan, const std::vector<PathDrive>& pairs);

    CacheStore& store_;
    CacheTree tree_;
    FsResultSetWriter& writer_;
    const FsQuery& query_;
    unsigned timeout_;
    unsigned maxCacheAge_;
};

/// A plan that a process keeps between queries and brings up to date with each: the
/// mount table is read once, the rest is done again only for what has changed.
class KeptPlan {
public:
    /// Null when the mount table cannot be read.
    const QueryPlan* refresh(const FsQuery& query);

private:
    QueryPlan plan_;
    bool firstTime_ = true;
    std::vector<PathInfo> includedPaths_;
    std::vector<PathInfo> excludedPaths_;
    std::vector<FileSystemInfo> includedFileSystems_;
    std::vector<FileSystemInfo> excludedFileSystems_;
};

/// Whether two lists are equal, entry by entry.
bool samePathList(const std::vector<PathInfo>& a, const std::vector<PathInfo>& b);
bool sameFileSystemList(const std::vector<FileSystemInfo>& a, const std::vector<FileSystemInfo>& b);

}  // namespace fscanner
