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

// False when a record could not be removed.
bool removeRoot(CacheStore& store, CacheTree& tree, unsigned id, unsigned parent) {
    return tree.removeTree(store.directories(), store.files(), id) &&
           tree.removeEmpty(store.directories(), parent);
}

// What goes on the side. The trees that were built before stay when it is interrupted.
class Tidying {
public:
    Tidying(CacheStore& store, CacheTree& tree) : store_(store), tree_(tree) {}

    void drop(const CachedRoot& root, const char* why) {
        if (!store_.usable()) return;
        debug("FS_Cache::tidy - '%ls' removed: %s\n", root.path.c_str(), why);
        begun_ = begun_ || store_.beginTree();
        if (!begun_ || !removeRoot(store_, tree_, root.id, root.parent)) store_.markBroken();
    }

private:
    CacheStore& store_;
    CacheTree& tree_;
    bool begun_ = false;
};

bool isSearched(const CachedRoot& root, const QueryPlan& plan) {
    return std::any_of(plan.pairs().begin(), plan.pairs().end(), [&root](const PathDrive& pair) {
        return relatePaths(root.path, pair.path.getPathName()) != PathRelation::APART;
    });
}

// By the time of building: the time of use would be a change that every search makes.
void keepWithin(CacheStore& store, CacheTree& tree, Tidying& tidying, const QueryPlan& plan,
                unsigned long long limit) {
    if (store.bytes() <= limit) return;
    std::vector<CachedRoot> roots = tree.roots();
    std::stable_sort(roots.begin(), roots.end(),
                     [](const CachedRoot& a, const CachedRoot& b) { return a.built < b.built; });
    for (const CachedRoot& root : roots) {
        if (store.bytesInUse() <= limit) break;
        if (!isSearched(root, plan)) tidying.drop(root, "the cache is too large");
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
    if (!store.beginTree()) return false;
    forgetTimes(store, id);
    return removeRoot(store, tree, id, parent) && store.usable() && !store.damaged();
}

void tidyTrees(CacheStore& store, const QueryPlan& plan, unsigned long long limit) {
    CacheTree tree(store);
    Tidying tidying(store, tree);
    for (const CachedRoot& root : tree.roots())
        if (isGone(root, plan.mounts())) tidying.drop(root, "its directory is gone");
    if (limit != 0) keepWithin(store, tree, tidying, plan, limit);
}

}  // namespace fscanner
