#include "fscanner/engine/cache_upkeep.h"

#include <algorithm>
#include <cerrno>

#include "fscanner/common/utf8.h"
#include "fscanner/engine/cache_tree.h"
#include "fscanner/fs/debug.h"
#include "fscanner/platform/directory.h"

namespace fscanner {

namespace {

// Whether nothing is there any more that the tree is of. What cannot be reached may be.
bool isGone(const CachedRoot& root, const MountMap& mounts) {
    const DriveInfo* const drive = mounts.holding(root.path);
    if (!drive || fsIsServed(*drive)) return false;
    if (openDirectoryWithoutLinks(toMultibyte(root.path).c_str(), DirectoryUse::reach))
        return false;
    return errno == ENOENT || errno == ENOTDIR || errno == ELOOP;
}

void drop(CacheStore& store, CacheTree& tree, const CachedRoot& root, const char* why) {
    debug("FS_Cache::tidy - '%ls' removed: %s\n", root.path.c_str(), why);
    tree.removeTree(store.directories(), store.files(), root.id);
    tree.removeEmpty(store.directories(), root.parent);
}

bool isSearched(const CachedRoot& root, const QueryPlan& plan) {
    return std::any_of(plan.pairs().begin(), plan.pairs().end(), [&root](const PathDrive& pair) {
        return relatePaths(root.path, pair.path.getPathName()) != PathRelation::APART;
    });
}

// By the time of building: the time of use would be a change that every search makes.
void keepWithin(CacheStore& store, CacheTree& tree, const QueryPlan& plan,
                unsigned long long limit) {
    if (store.bytes() <= limit) return;
    std::vector<CachedRoot> roots = tree.roots();
    std::stable_sort(roots.begin(), roots.end(),
                     [](const CachedRoot& a, const CachedRoot& b) { return a.built < b.built; });
    for (const CachedRoot& root : roots) {
        if (store.bytesInUse() <= limit) break;
        if (!isSearched(root, plan)) drop(store, tree, root, "the cache is too large");
    }
    store.shrinkWhenClosed();
}

}  // namespace

bool forgetTree(CacheStore& store, const wchar_t* path, bool& found) {
    CacheTree tree(store);
    RecordSet& record = store.directoryRecords();
    found = tree.findPathByName(record, store.ancestorRecords(), path, true);
    if (!found) return !store.damaged();
    const unsigned id = record.getFieldAsInt32(DIRECTORIES_ID);
    const unsigned parent = record.getFieldAsInt32(DIRECTORIES_PARENTID);
    if (!store.beginChanges()) return false;
    forgetTimes(store, id);
    tree.removeTree(store.directories(), store.files(), id);
    tree.removeEmpty(store.directories(), parent);
    return store.usable() && !store.damaged();
}

void tidyTrees(CacheStore& store, const QueryPlan& plan, unsigned long long limit) {
    CacheTree tree(store);
    for (const CachedRoot& root : tree.roots())
        if (isGone(root, plan.mounts())) drop(store, tree, root, "its directory is gone");
    if (limit != 0) keepWithin(store, tree, plan, limit);
}

}  // namespace fscanner
