#include "fscan/search/explain.h"

#include <fmt/format.h>

#include <algorithm>
#include <string>
#include <string_view>

#include "fscan/cache/locked_cache.h"
#include "fscan/output/messages.h"
#include "fscan/output/output.h"
#include "fscan/process/exit_status.h"
#include "fscan/query/drives.h"
#include "fscan/search/asking.h"
#include "fscan/text/text.h"
#include "fscan/text/values.h"
#include "fscanner/fs/fs_explain.h"

namespace fscan {

namespace {

using fscanner::FsPlanStep;
using fscanner::FsQueryReport;
using fscanner::FsSearchWay;

/// Asks the cache; it is not made for that. False where there is no sound one, and
/// where it is not to be had, which the exit status tells.
bool explainFromCache(const Options& options, const Asking& asking, const fscanner::FsQuery& query,
                      FsQueryReport& report, int& status) {
    if (!asking.place.exists() || asking.place.isMarked()) return false;
    const LockedCache cache(asking.place, options, LockedCache::Use::read);
    status = cache.status();
    // Looked at again under the lock: another process may have been at work.
    if (status != STATUS_FOUND || asking.place.isMarked() || !cache.open()) return false;
    const bool explained = cache.get()->explain(query, asking.ageLimit(), report);
    cache.get()->close();
    return explained;
}

int makeReport(const Options& options, const Asking& asking, const fscanner::FsQuery& query,
               FsQueryReport& report) {
    int status = STATUS_FOUND;
    if (asking.cached && explainFromCache(options, asking, query, report, status)) return status;
    if (status == STATUS_FAILURE) return status;
    if (!fscanner::fsExplainQuery(query, report)) {
        complain("the mount table cannot be read");
        return STATUS_FAILURE;
    }
    for (FsPlanStep& step : report.steps)
        if (asking.cached && step.type == fscanner::DRIVE_LOCAL && step.way == FsSearchWay::direct)
            step.way = FsSearchWay::rebuilt;
    return STATUS_FOUND;
}

std::string wayText(const Asking& asking, const FsPlanStep& step) {
    const std::string age = durationText(step.ageSeconds);
    switch (step.way) {
        case FsSearchWay::cached:
            return fmt::format("from the cache, {} old", age);
        case FsSearchWay::rebuilt:
            if (!step.inCache) return "scanned into the cache, which does not have it";
            return fmt::format("scanned into the cache, where it is {} old; {} at most", age,
                               durationText(asking.maximumAge));
        case FsSearchWay::left:
            return "left out";
        case FsSearchWay::noDirectory:
            return "not searched: no directory";
        case FsSearchWay::direct:
            break;
    }
    return asking.cached ? "scanned: only local drives are cached" : "scanned: without the cache";
}

void writeLine(std::string_view label, const std::wstring& text, Output& out) {
    out.write(label);
    out.writeForeign(toBytes(text));
    out.write("\n");
}

void writeStep(const Asking& asking, const FsPlanStep& step, Output& out) {
    writeLine("path:      ", step.path, out);
    out.write("drive:     ");
    out.writeForeign(toBytes(step.mountPoint));
    out.write(fmt::format(" ({}, {})\n", toBytes(step.fileSystem), typeName(step.type)));
    out.write(fmt::format("answer:    {}\n", wayText(asking, step)));
    for (const std::wstring& path : step.exclusions) writeLine("excluded:  ", path, out);
    for (const std::wstring& path : step.mountPoints) writeLine("mount:     ", path, out);
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
    writeLine("criteria:  ", criteria.tree, out);
    out.write("index:     ");
    out.writeForeign(indexText(fromCache, criteria));
    out.write("\n");
}

}  // namespace

int Explanation::add(const fscanner::FsQuery& query, bool last) {
    FsQueryReport report;
    if (const int status = makeReport(options_, asking_, query, report)) return status;
    for (const FsPlanStep& step : report.steps) writeStep(asking_, step, out_);
    for (const std::wstring& path : report.unresolved)
        writeLine("on no drive that is searched: ", path, out_);
    fromCache_ = fromCache_ || std::any_of(report.steps.begin(), report.steps.end(), isFromCache);
    if (last) writeCriteria(fromCache_, report.criteria, out_);
    return STATUS_FOUND;
}

}  // namespace fscan
