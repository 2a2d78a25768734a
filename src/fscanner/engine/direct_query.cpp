#include "fscanner/engine/direct_query.h"

#include "fscanner/engine/answer_gaps.h"
#include "fscanner/engine/cache.h"
#include "fscanner/engine/checked_writer.h"
#include "fscanner/engine/fsbuild.h"
#include "fscanner/engine/query_plan.h"
#include "fscanner/engine/walk.h"
#include "fscanner/fs/debug.h"
#include "fscanner/fs/fs_direct.h"
#include "fscanner/fs/fs_query.h"
#include "fscanner/fs/wall.h"

namespace fscanner {

int scanPair(FsResultSetWriter& writer, const FsQuery& query, const QueryPlan& plan,
             FileProcessor& processor, const PathDrive& pair, unsigned timeout) {
    return fs_build(writer, processor, pair, {}, plan.exclusions(pair), query.getCaseSensitive(),
                    timeout, &plan.mounts());
}

namespace {

int scanQuery(FsResultSetWriter& writer, const FsQuery& query, unsigned timeout) {
    QueryPlan plan;
    if (!plan.make(query)) return FS_CACHE_UNUSABLE;
    const AnswerGaps gaps(query, plan);
    FileProcessor processor(query.getQuery(), query.getCaseSensitive(), CriteriaRules::search);
    for (const PathDrive& pair : plan.pairs()) {
        debug("::fsScanQuery - scanning [%ls] path...\n", pair.path.getPathName());
        const unsigned limit = QueryPlan::isLocal(pair) ? timeout : kNoTimeout;
        if (scanPair(writer, query, plan, processor, pair, limit) == WALK_TIMED_OUT)
            return FS_CACHE_QUERY_TIMED_OUT;
    }
    return gaps.resultOf(FS_CACHE_SUCCESS);
}

}  // namespace

int fsScanQuery(FsResultSetWriter& writer, const FsQuery& query, unsigned timeoutMilliseconds) {
    const CommandListShelter shelter;  // it may be asked in the middle of another query
    CheckedWriter checked(writer);
    return checked.resultOf(behindWall("::fsScanQuery", +FS_CACHE_UNUSABLE, [&] {
        return scanQuery(checked, query, timeoutMilliseconds);
    }));
}

}  // namespace fscanner
