#include "fscanner/engine/small_trees.h"

#include <algorithm>

#include "fscanner/common/wildcard.h"
#include "fscanner/engine/query_plan.h"

namespace fscanner {

namespace {

// A directory costs two lookups, each as much as hundreds of records of a scan. Those of a
// large tree are looked up in vain until there are too many.
constexpr unsigned kAlwaysFew = 16;
constexpr unsigned kFilesForADirectory = 4096;

unsigned storedFiles(CacheStore& store) {
    unsigned count = 0;
    return store.files().count(0, &count) ? count : 0;
}

class SmallTrees {
public:
    SmallTrees(CacheStore& store, CacheTree& tree)
        : store_(store),
          tree_(tree),
          most_(kAlwaysFew + storedFiles(store) / kFilesForADirectory),
          records_(store.directories().openRecordSet()) {}
    SmallTrees(const SmallTrees&) = delete;
    SmallTrees& operator=(const SmallTrees&) = delete;
    ~SmallTrees() { store_.directories().closeRecordSet(records_); }

    /// False when there are too many.
    bool add(const PathInfo& path) {
        if (!tree_.findPathByName(store_.directoryRecords(), store_.ancestorRecords(),
                                  path.getPathName(), true))
            return true;
        std::size_t next = directories_.size();
        directories_.push_back(store_.directoryRecords().getFieldAsInt32(DIRECTORIES_ID));
        // A damaged table may hold circles: the limit ends them, too.
        for (; path.getRecursive() && next < directories_.size() && isSmall(); ++next)
            addChildren(directories_[next]);
        return isSmall();
    }

    std::vector<unsigned> files() {
        std::vector<unsigned> found;
        RecordSet files = store_.files().openRecordSet();
        for (const unsigned id : directories_)
            for (bool more = store_.lookups().byPathId(files, id); more; more = files.moveNext())
                found.push_back(files.recordId());
        store_.files().closeRecordSet(files);
        std::sort(found.begin(), found.end());
        found.erase(std::unique(found.begin(), found.end()), found.end());
        return found;
    }

private:
    bool isSmall() const { return directories_.size() <= most_; }
    void addChildren(unsigned id) {
        bool more = store_.lookups().byParentId(records_, id);
        for (; more && isSmall(); more = records_.moveNext())
            directories_.push_back(records_.getFieldAsInt32(DIRECTORIES_ID));
    }

    CacheStore& store_;
    CacheTree& tree_;
    std::size_t most_;
    RecordSet records_;
    std::vector<unsigned> directories_;
};

}  // namespace

std::optional<std::vector<unsigned>> filesOfSmallTrees(CacheStore& store, CacheTree& tree,
                                                       const std::vector<PathDrive>& pairs) {
    SmallTrees trees(store, tree);
    for (const PathDrive& pair : pairs) {
        if (!QueryPlan::isLocal(pair)) continue;
        if (!pair.path.getPathName() || checkWildCard(pair.path.getPathName()) ||
            !trees.add(pair.path))
            return std::nullopt;
    }
    return trees.files();
}

}  // namespace fscanner
