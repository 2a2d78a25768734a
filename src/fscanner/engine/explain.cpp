#include "fscanner/engine/explain.h"

#include "fscanner/engine/cache_tables.h"
#include "fscanner/engine/fsbuild.h"
#include "fscanner/expr/token.h"
#include "fscanner/fs/fs_query.h"
#include "fscanner/fs/wall.h"

namespace fscanner {

// ---- Criteria ---------------------------------------------------------------

namespace {

/// Stands for a command of a search while a criteria is compiled: it has a name
/// and a signature, and is never executed.
class StandInCommand final : public BinaryCmd {
public:
    int execute(const ExpValue&, const ExpValue&, ExpValue&) override { return -1; }
};

/// The fields of a file that a criteria can read, in the order of a search.
Fields searchFields() {
    Fields fields;
    fields.add(L"FILENAME", FIELD_TEXT);
    fields.add(L"SHORTFILENAME", FIELD_TEXT);
    fields.add(L"SIZE", FIELD_INT64);
    fields.add(L"ATTR", FIELD_INT32);
    fields.add(L"PATHID", FIELD_INT32);
    return fields;
}

/// What an extraction from the cache would look up: see `Extraction::run`.
void describeIndex(const CriteriaEvaluator& criteria, bool caseSensitive, bool patterns,
                   FsCriteriaReport& report) {
    if (criteria.usesCommands()) return;
    for (const ExpValue& key : indexKeys(criteria.tree(), caseSensitive)) {
        const bool isText = key.getType() == STRING;
        if (!isIndexedFileField(key.name()) || (isText && patterns)) continue;
        report.indexField = key.name();
        report.indexKey =
            isText ? std::wstring(key.text()) : std::to_wstring(key.getNumericValue());
        return;
    }
}

void describe(const wchar_t* text, bool caseSensitive, bool patterns, FsCriteriaReport& report) {
    // A host may ask in the middle of a query, whose commands have to stay.
    const CommandListShelter shelter;
    const Fields fields = searchFields();
    StandInCommand command;
    CriteriaEvaluator criteria(text, CriteriaRules::search);
    criteria.setFields(&fields);
    criteria.addCmd(L"path", STRING, NUMERIC, STRING, &command);
    criteria.addCmd(L"type", NUMERIC, STRING, STRING, &command);
    report.compiles = criteria.compile();
    report.error = criteria.compileError().text;
    report.position = static_cast<unsigned>(criteria.compileError().position);
    if (!report.compiles) return;
    report.tree = dumpTree(criteria.tree());
    report.fields = criteria.fieldNames();
    describeIndex(criteria, caseSensitive, patterns, report);
}

}  // namespace

FsCriteriaReport fsCheckCriteria(const wchar_t* criteria) {
    return fsCheckCriteria(criteria, true);
}

FsCriteriaReport fsCheckCriteria(const wchar_t* criteria, bool caseSensitive) {
    return describeCriteria(criteria, caseSensitive, false);
}

FsCriteriaReport describeCriteria(const wchar_t* criteria, bool caseSensitive, bool patterns) {
    FsCriteriaReport report;
    if (!criteria) {
        report.error = "no criteria";
        return report;
    }
    try {
        describe(criteria, caseSensitive, patterns, report);
    } catch (...) {
        report = FsCriteriaReport();
        report.error = "out of memory";
    }
    return report;
}

// ---- Plans ------------------------------------------------------------------

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
