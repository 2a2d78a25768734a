#include "explain.h"

#include <fmt/format.h>

#include <string>
#include <string_view>

#include "asking.h"
#include "duration.h"
#include "exit_status.h"
#include "fscanner/fs/fs_explain.h"
#include "locked_cache.h"
#include "messages.h"
#include "output.h"
#include "text.h"

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
    const LockedCache cache(asking.place, options);
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

std::string_view typeName(fscanner::DriveType type) {
    if (type == fscanner::DRIVE_LOCAL) return "local";
    return type == fscanner::DRIVE_REMOTE ? "remote" : "other";
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

std::string indexText(const Asking& asking, const fscanner::FsCriteriaReport& criteria) {
    if (!asking.cached) return "none: only the cache has one";
    if (criteria.indexField.empty()) return "none: no field has to have one certain value";
    return toBytes(criteria.indexField + L" = " + criteria.indexKey);
}

void writeCriteria(const Asking& asking, const fscanner::FsCriteriaReport& criteria, Output& out) {
    if (criteria.tree.empty()) {
        out.write("criteria:  none\n");
        return;
    }
    writeLine("criteria:  ", criteria.tree, out);
    out.write("index:     ");
    out.writeForeign(indexText(asking, criteria));
    out.write("\n");
}

}  // namespace

int explainQuery(const Options& options, const Asking& asking, const fscanner::FsQuery& query,
                 bool withCriteria, Output& out) {
    FsQueryReport report;
    if (const int status = makeReport(options, asking, query, report)) return status;
    for (const FsPlanStep& step : report.steps) writeStep(asking, step, out);
    for (const std::wstring& path : report.unresolved)
        writeLine("on no drive that is searched: ", path, out);
    if (withCriteria) writeCriteria(asking, report.criteria, out);
    return STATUS_FOUND;
}

}  // namespace fscan
