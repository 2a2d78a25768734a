#include <exception>

#include "fscanner/engine/fsbuild.h"
#include "fscanner/engine/query_plan.h"
#include "fscanner/engine/walk.h"
#include "fscanner/fs/debug.h"
#include "fscanner/fs/fs_direct.h"
#include "fscanner/fs/fs_query.h"

namespace fscanner {

namespace {

constexpr int kUnusable = -40;
constexpr int kTimedOut = -41;
// In effect none: scans of remote drives have no limit.
constexpr unsigned kNoTimeout = 2000000000;

int scanPair(FsResultSetWriter& writer, const FsQuery& query, const QueryPlan& plan,
             FileProcessor& processor, const PathDrive& pair, unsigned timeout) {
    const std::vector<PathInfo> mounts = plan.mountPoints(pair);
    std::vector<PathInfo> exclusions = plan.exclusions(pair);
    exclusions.insert(exclusions.end(), mounts.begin(), mounts.end());
    return fs_build(writer, processor, pair, {}, exclusions, query.getCaseSensitive(), timeout,
                    &mounts);
}

int scanQuery(FsResultSetWriter& writer, const FsQuery& query, unsigned timeout) {
    QueryPlan plan;
    if (!plan.discover()) return kUnusable;
    plan.prune(query);
    plan.resolve(query);
    FileProcessor processor(query.getQuery(), query.getCaseSensitive());
    for (const PathDrive& pair : plan.pairs()) {
        debug("::fsScanQuery - scanning [%ls] path...\n", pair.path.getPathName());
        const unsigned limit = QueryPlan::isLocal(pair) ? timeout : kNoTimeout;
        if (scanPair(writer, query, plan, processor, pair, limit) == WALK_TIMED_OUT)
            return kTimedOut;
    }
    return 0;
}

}  // namespace

int fsScanQuery(FsResultSetWriter& writer, const FsQuery& query, unsigned timeoutMilliseconds) {
    try {
        return scanQuery(writer, query, timeoutMilliseconds);
    } catch (const std::exception& failure) {
        debug("::fsScanQuery - failed: %s\n", failure.what());
        return kUnusable;
    }
}

}  // namespace fscanner
