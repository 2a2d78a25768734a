#include "fscanner/engine/explain.h"

#include "fscanner/engine/fsbuild.h"
#include "fscanner/fs/fs_query.h"
#include "fscanner/fs/wall.h"

namespace fscanner {

namespace {

std::wstring text(const wchar_t* s) {
    return s ? s : L"";
}

// Those of the paths that concern a search of `pair`: patterns may, all others must lie
// inside it.
std::vector<std::wstring> inside(const PathDrive& pair, const std::vector<PathInfo>& paths) {
    std::vector<std::wstring> found;
    for (const PathInfo& path : paths) {
        const PathRelation relation = relatePaths(path.getPathName(), pair.path.getPathName());
        if (checkWildCard(path.getPathName()) || relation == PathRelation::SAME ||
            relation == PathRelation::INSIDE)
            found.push_back(path.getPathName());
    }
    return found;
}

FsPlanStep describe(const QueryPlan& plan, const PathDrive& pair, bool caseSensitive) {
    FsPlanStep step;
    step.path = text(pair.path.getPathName());
    step.recursive = pair.path.getRecursive();
    step.mountPoint = std::wstring(PathHelper::driveText(pair.drive));
    step.fileSystem = text(pair.drive.getFileSystem());
    step.type = pair.drive.getType();
    step.exclusions = inside(pair, plan.exclusions(pair));
    step.mountPoints = plan.mounts().stopsInside(pair);
    if (checkPathList(step.path.c_str(), plan.exclusions(pair), caseSensitive, step.recursive)) {
        step.way = FsSearchWay::left;
    } else if (!fs_isValidPath(step.path.c_str())) {
        step.way = FsSearchWay::noDirectory;
    }
    return step;
}

}  // namespace

void describePlan(const QueryPlan& plan, const FsQuery& query, bool patterns,
                  FsQueryReport& report) {
    report.drives = static_cast<unsigned>(plan.mounted().size());
    report.searchedDrives = static_cast<unsigned>(plan.searched().size());
    report.criteria = describeCriteria(query.getQuery() ? query.getQuery() : L"",
                                       query.getCaseSensitive(), patterns);
    for (const PathDrive& pair : plan.pairs())
        report.steps.push_back(describe(plan, pair, query.getCaseSensitive()));
    for (const PathDrive& entry : plan.included().unresolved)
        report.unresolved.push_back(text(entry.path.getPathName()));
}

bool fsExplainQuery(const FsQuery& query, FsQueryReport& report) {
    return behindWall("::fsExplainQuery", [&] {
        report = FsQueryReport();
        QueryPlan plan;
        if (!plan.make(query)) return false;
        describePlan(plan, query, false, report);
        return true;
    });
}

}  // namespace fscanner
