#include "fscanner/engine/reports.h"

#include <algorithm>
#include <unordered_map>

#include "fscanner/common/path_text.h"
#include "fscanner/engine/cache.h"
#include "fscanner/engine/cache_store.h"
#include "fscanner/engine/cache_tables.h"
#include "fscanner/engine/cache_tree.h"
#include "fscanner/engine/file_fields.h"
#include "fscanner/engine/fsbuild.h"
#include "fscanner/expr/criteria.h"
#include "fscanner/fs/fs_query.h"
#include "fscanner/fs/no_throw.h"
#include "fscanner/platform/small_file.h"
#include "fscanner/platform/sysfactory.h"
#include "fscanner/store/sums_file.h"

namespace fscanner {

// ---- Criteria ---------------------------------------------------------------

namespace {

/// Stands for a command of a search while a criteria is compiled: it has a name
/// and a signature, and is never executed.
class StandInCommand final : public BinaryCmd {
public:
    int execute(const ExpValue&, const ExpValue&, ExpValue&) override { return -1; }
};

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
    const Fields fields = file_fields::forCriteria();
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
                                       query.getCriteriaCaseSensitive(), patterns);
    for (const PathDrive& pair : plan.pairs())
        report.steps.push_back(describe(plan, pair, query.getCaseSensitive()));
    for (const PathDrive& entry : plan.included().unresolved)
        report.unresolved.push_back(text(entry.path.getPathName()));
}

bool fsExplainQuery(const FsQuery& query, FsQueryReport& report) {
    return noThrow("::fsExplainQuery", [&] {
        report = FsQueryReport();
        QueryPlan plan;
        if (!plan.make(query)) return false;
        describePlan(plan, query, false, report);
        return true;
    });
}

// ---- A cache ----------------------------------------------------------------

namespace {

struct DirectoryNode {
    unsigned parent;
    unsigned time;
    unsigned tree = 0;  // ID of the root of the built tree it belongs to, once known
};

using Directories = std::unordered_map<unsigned, DirectoryNode>;

Directories readDirectories(CacheStore& store) {
    Directories directories;
    RecordSet& records = store.directoryRecords();
    records.setCriteria(nullptr, true);
    for (bool found = records.moveFirst(); found; found = records.moveNext())
        directories[records.getFieldAsInt32(DIRECTORIES_ID)] = {
            records.getFieldAsInt32(DIRECTORIES_PARENTID), store.builtTime(records)};
    return directories;
}

// The highest directory, from `id` up, of an unbroken chain of built ones. A chain
// longer than any path is a circle, which the caller's bound ends.
unsigned treeOf(Directories& directories, unsigned id) {
    std::vector<unsigned> chain;
    unsigned root = 0;
    for (std::size_t step = 0; step <= directories.size(); ++step) {
        const auto at = directories.find(id);
        if (at == directories.end() || at->second.time == 0) break;
        root = at->second.tree ? at->second.tree : id;
        chain.push_back(id);
        if (at->second.tree) break;
        id = at->second.parent;
    }
    for (const unsigned member : chain) directories[member].tree = root;
    return root;
}

}  // namespace

bool reportCache(CacheStore& store, FsCacheReport& report) {
    if (!store.files().checkOffsets() || !store.directories().checkOffsets()) return false;
    Directories directories = readDirectories(store);
    std::unordered_map<unsigned, FsCachedTree> trees;
    std::vector<unsigned> ids;
    for (const auto& [id, node] : directories) ids.push_back(id);
    for (const unsigned id : ids)
        if (const unsigned root = treeOf(directories, id)) ++trees[root].directories;
    RecordSet& files = store.filesRecords();
    files.setCriteria(nullptr, true);
    for (bool found = files.moveFirst(); found; found = files.moveNext()) {
        const unsigned root = treeOf(directories, files.getFieldAsInt32(FILES_PATHID));
        if (root) ++trees[root].files;
    }
    DirectoryChain chain(store);
    for (auto& [root, tree] : trees) {
        if (chain.enter(root)) tree.path = chain.path();
        tree.builtAt = directories[root].time;
        report.trees.push_back(tree);
    }
    std::sort(report.trees.begin(), report.trees.end(),
              [](const FsCachedTree& a, const FsCachedTree& b) { return a.path < b.path; });
    unsigned count = 0;
    for (const FS_Table* table : {&store.files(), &store.directories()}) {
        if (table->count(0, &count)) report.records += count;
        if (table->count(1, &count)) report.removedRecords += count;
    }
    return !store.damaged();
}

// ---- A cache's checksums ----------------------------------------------------

namespace {

constexpr unsigned kBlock = BlockSums::kBlock;

// Damaged blocks that follow each other are one problem.
void addDamagedBlocks(BlockSums& sums, FsCacheCheck& result) {
    const unsigned blocks = BlockSums::blocksOf(sums.size());
    for (unsigned block = 0; block < blocks; ++block) {
        const unsigned first = block;
        while (block < blocks && !sums.holds(block * kBlock, 1)) ++block;
        if (block == first) continue;
        const std::uint64_t end =
            std::min<std::uint64_t>(std::uint64_t{kBlock} * block, sums.size());
        result.problems.push_back(sums.name() + L": bytes " + std::to_wstring(first * kBlock) +
                                  L" to " + std::to_wstring(end - 1) +
                                  L" are not what was written");
    }
}

void compare(const std::wstring& path, BlockSums& sums, FsCacheCheck& result) {
    const auto file = SysFactory::createMmFile(path.c_str());
    if (!file->open()) {
        const bool absent = presenceOf(path) == Presence::absent;
        result.problems.push_back(sums.name() + (absent ? L": missing" : L": cannot be read"));
        return;
    }
    ++result.files;
    result.bytes += file->logicalSize();
    if (!sums.open(*file)) {
        result.problems.push_back(sums.name() + L": has " + std::to_wstring(file->logicalSize()) +
                                  L" bytes instead of " + std::to_wstring(sums.size()));
    } else if (!sums.holdsAll()) {
        addDamagedBlocks(sums, result);
    }
    sums.close();
}

}  // namespace

bool compareWithSums(const std::wstring& sumsPath, FsCacheCheck& result) {
    const std::size_t before = result.problems.size();
    const std::size_t name = sumsPath.rfind(L'/') + 1;
    SumsFile sums(sumsPath);
    if (!sums.load()) {
        result.problems.push_back(sumsPath.substr(name) + L": missing or damaged");
    }
    for (const auto& [file, blocks] : sums.files())
        compare(sumsPath.substr(0, name) + file, *blocks, result);
    return result.problems.size() == before;
}

}  // namespace fscanner
