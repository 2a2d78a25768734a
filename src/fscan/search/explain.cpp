#include "fscan/search/explain.h"

#include <fmt/format.h>

#include <algorithm>
#include <string>
#include <string_view>

#include "fscan/cache/cache_place.h"
#include "fscan/output/output.h"
#include "fscan/process/exit_status.h"
#include "fscan/query/search_roots.h"
#include "fscan/search/provider_session.h"
#include "fscan/text/text.h"
#include "fscan/text/values.h"
#include "fscanner/fs/fs_explain.h"
#include "fscanner/fs/fs_query.h"

namespace fscan {

namespace {

using fscanner::FsPlanStep;
using fscanner::FsQueryReport;
using fscanner::FsSearchWay;

/// Asks the cache, but does not make one. False where there is no sound one, or where it could
/// not be locked: `status` tells which.
bool explainFromCache(const Options& options, const ProviderSession& session,
                      const fscanner::FsQuery& query, FsQueryReport& report, ExitStatus& status) {
    if (!session.place.exists() || session.place.isMarked()) return false;
    const LockedCache cache(session.place, options, LockedCache::Use::read);
    status = cache.status();
    // Checked again under the lock: another process may have changed the cache.
    if (status != ExitStatus::found || session.place.isMarked() || !cache.open()) return false;
    cache.get()->setVerification(session.verify);
    const bool explained = cache.get()->explain(query, session.ageLimit(), report);
    cache.get()->close();
    return explained;
}

ExitStatus makeReport(const Options& options, const ProviderSession& session,
                      const fscanner::FsQuery& query, FsQueryReport& report) {
    ExitStatus status = ExitStatus::found;
    if (session.cached && explainFromCache(options, session, query, report, status)) return status;
    if (status == ExitStatus::failure) return status;
    if (!fscanner::fsExplainQuery(query, report)) {
        complain("the mount table cannot be read");
        return ExitStatus::failure;
    }
    const bool scansOnly = query.getLinks() != fscanner::FsLinks::leave ||
                           query.getDepth().most != fscanner::FsDepthRange().most;
    for (FsPlanStep& step : report.steps)
        if (session.cached && !scansOnly && step.type == fscanner::DRIVE_LOCAL &&
            step.way == FsSearchWay::direct)
            step.way = FsSearchWay::rebuilt;
    return ExitStatus::found;
}

std::string wayText(const ProviderSession& session, const FsPlanStep& step) {
    const std::string age = durationText(step.ageSeconds);
    switch (step.way) {
        case FsSearchWay::cached:
            return fmt::format("from the cache, {} old{}", age,
                               step.watched    ? ", which a watch keeps current"
                               : step.verified ? ", after a check of its directories"
                                               : "");
        case FsSearchWay::rebuilt:
            if (!step.inCache) return "scanned into the cache, which does not have it";
            return fmt::format("scanned into the cache, where it is {} old; {} at most", age,
                               durationText(session.maximumAge));
        case FsSearchWay::left:
            return "left out";
        case FsSearchWay::noDirectory:
            return "not searched: no directory";
        case FsSearchWay::direct:
            break;
    }
    if (!session.cached) return "scanned: without the cache";
    if (step.type != fscanner::DRIVE_LOCAL) return "scanned: only local drives are cached";
    return "scanned: the cache is not filled for a limited depth or through links";
}

void writeStep(const ProviderSession& session, const FsPlanStep& step, Output& out) {
    out.writeLine("path:      ", toBytes(step.path));
    out.write("drive:     ");
    out.writeForeign(toBytes(step.mountPoint));
    out.write(fmt::format(" ({}, {})\n", toBytes(step.fileSystem), typeName(step.type)));
    out.write(fmt::format("answer:    {}\n", wayText(session, step)));
    for (const std::wstring& path : step.exclusions) out.writeLine("excluded:  ", toBytes(path));
    for (const std::wstring& path : step.mountPoints) out.writeLine("mount:     ", toBytes(path));
}

bool isFromCache(const FsPlanStep& step) {
    return step.way == FsSearchWay::cached || step.way == FsSearchWay::rebuilt;
}

std::string indexText(bool fromCache, const fscanner::FsCriteriaReport& criteria) {
    if (!fromCache) return "none: only the cache has one";
    if (criteria.indexField.empty()) return "none: nothing that could be looked up";
    return toBytes(criteria.indexField + L" = " + criteria.indexKey);
}

void writeCriteria(bool fromCache, const fscanner::FsCriteriaReport& criteria, Output& out) {
    if (criteria.tree.empty()) {
        out.write("criteria:  none\n");
        return;
    }
    out.writeLine("criteria:  ", toBytes(criteria.tree));
    out.writeLine("index:     ", indexText(fromCache, criteria));
}

}  // namespace

ExitStatus Explanation::add(const fscanner::FsQuery& query, bool last) {
    FsQueryReport report;
    const ExitStatus status = makeReport(options_, session_, query, report);
    if (status != ExitStatus::found) return status;
    for (const FsPlanStep& step : report.steps) writeStep(session_, step, out_);
    for (const std::wstring& path : report.unresolved)
        out_.writeLine("on no drive that is searched: ", toBytes(path));
    fromCache_ = fromCache_ || std::any_of(report.steps.begin(), report.steps.end(), isFromCache);
    if (last) writeCriteria(fromCache_, report.criteria, out_);
    return ExitStatus::found;
}

}  // namespace fscan
