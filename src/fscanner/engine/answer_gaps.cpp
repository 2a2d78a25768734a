#include "fscanner/engine/answer_gaps.h"

#include <optional>
#include <utility>

#include "fscanner/discovery/path_entry.h"
#include "fscanner/engine/cache.h"
#include "fscanner/engine/query_plan.h"
#include "fscanner/filetype/file_program.h"
#include "fscanner/fs/fs_query.h"
#include "fscanner/fs/fs_scan_observer.h"

namespace fscanner {

namespace {

// Whether no drive at all could be meant, because the entry's group or drive is none.
bool isMalformed(const PathInfo& text, const QueryPlan& plan) {
    const std::optional<PathEntry> entry = parsePathEntry(text, plan.mounted());
    return !entry || !entry->valid || !entry->knownMedia;
}

void tell(const PathInfo& entry) {
    if (FsScanObserver* const observer = scanObserver())
        observer->skipped(entry.getPathName(), FsSkipReason::noDrive, 0);
}

}  // namespace

// That a valid entry leads nowhere is what a host may have asked for, such as the remote
// part of a local tree: it is a gap only where nothing else is searched either.
AnswerGaps::AnswerGaps(const FsQuery& query, const QueryPlan& plan)
    : missedBefore_(std::exchange(fileProgramMissed(), false)) {
    const ResolvedPaths& included = plan.included();
    pathsMissing_ =
        !query.getIncludedPaths().empty() && plan.pairs().empty() && included.excluded.empty();
    for (const PathDrive& entry : included.unresolved) {
        tell(entry.path);
        pathsMissing_ = pathsMissing_ || isMalformed(entry.path, plan);
    }
    for (const PathDrive& entry : plan.excluded().unresolved) {
        if (!isMalformed(entry.path, plan)) continue;
        tell(entry.path);
        pathsMissing_ = true;
    }
}

AnswerGaps::~AnswerGaps() {
    fileProgramMissed() = missedBefore_;
}

int AnswerGaps::resultOf(int status) const {
    if (status != FS_CACHE_SUCCESS) return status;
    if (fileProgramMissed()) return FS_CACHE_NO_FILE_PROGRAM;
    return pathsMissing_ ? FS_CACHE_NO_DRIVE : FS_CACHE_SUCCESS;
}

}  // namespace fscanner
