#include "fscanner/engine/cache_report.h"

#include <algorithm>
#include <unordered_map>

namespace fscanner {

namespace {

struct DirectoryNode {
    std::wstring name;
    unsigned parent;
    unsigned time;
    unsigned tree = 0;  // ID of the root of the built tree it belongs to, once known
};

using Directories = std::unordered_map<unsigned, DirectoryNode>;

Directories readDirectories(RecordSet& records) {
    Directories directories;
    records.setCriteria(nullptr, true);
    for (bool found = records.moveFirst(); found; found = records.moveNext()) {
        const wchar_t* name = records.getFieldAsString(DIRECTORIES_PATHNAME);
        directories[records.getFieldAsInt32(DIRECTORIES_ID)] = {
            name ? name : L"", records.getFieldAsInt32(DIRECTORIES_PARENTID),
            records.getFieldAsInt32(DIRECTORIES_CREATIONTIME)};
    }
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

std::wstring pathOf(const Directories& directories, unsigned id) {
    std::wstring path;
    for (std::size_t step = 0; step <= directories.size(); ++step) {
        const auto at = directories.find(id);
        if (at == directories.end()) break;
        const std::wstring& name = at->second.name;
        const bool joined = !path.empty() && !name.ends_with(L'/');
        path.insert(0, joined ? name + L'/' : name);
        id = at->second.parent;
    }
    return path;
}

}  // namespace

bool reportCache(CacheStore& store, FsCacheReport& report) {
    Directories directories = readDirectories(store.directoryRecords());
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
    for (auto& [root, tree] : trees) {
        tree.path = pathOf(directories, root);
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
