#include "fscanner/engine/cache_report.h"

#include <algorithm>
#include <unordered_map>

#include "fscanner/engine/directory_chain.h"

namespace fscanner {

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

}  // namespace fscanner
