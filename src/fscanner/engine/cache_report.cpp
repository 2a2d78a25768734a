#include "fscanner/engine/cache_report.h"

#include <algorithm>
#include <unordered_map>

#include "fscanner/engine/cache.h"
#include "fscanner/engine/cache_store.h"
#include "fscanner/engine/cache_tree.h"
#include "fscanner/platform/small_file.h"
#include "fscanner/platform/sysfactory.h"
#include "fscanner/store/sums_file.h"

namespace fscanner {

// ---- What it holds ----------------------------------------------------------

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

// ---- Checksums --------------------------------------------------------------

namespace {

constexpr unsigned BLOCK = BlockSums::BLOCK;

// Damaged blocks that follow each other are one problem.
void addDamagedBlocks(BlockSums& sums, FsCacheCheck& result) {
    const unsigned blocks = BlockSums::blocksOf(sums.size());
    for (unsigned block = 0; block < blocks; ++block) {
        const unsigned first = block;
        while (block < blocks && !sums.holds(block * BLOCK, 1)) ++block;
        if (block == first) continue;
        const std::uint64_t end =
            std::min<std::uint64_t>(std::uint64_t{BLOCK} * block, sums.size());
        result.problems.push_back(sums.name() + L": bytes " + std::to_wstring(first * BLOCK) +
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
