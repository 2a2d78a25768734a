#include "fscanner/engine/small_trees.h"

#include <algorithm>

#include "fscanner/common/wildcard.h"
#include "fscanner/engine/query_plan.h"

namespace fscanner {

namespace {

// A directory costs two lookups, each as much as hundreds of records of a scan. Those of a
// large tree are looked up in vain until there are too many.
// A file found by an index costs as much as a few of a scan.
constexpr unsigned kFewDirectories = 16;
constexpr unsigned kFilesForADirectory = 4096;
constexpr unsigned kFewFiles = 1024;
constexpr unsigned kFilesForAFile = 64;

unsigned storedFiles(CacheStore& store) {
    unsigned count = 0;
    return store.files().count(0, &count) ? count : 0;
}

class SmallTrees {
public:
    SmallTrees(CacheStore& store, CacheTree& tree)
        : store_(store),
          tree_(tree),
          mostDirectories_(kFewDirectories + storedFiles(store) / kFilesForADirectory),
          mostFiles_(kFewFiles + storedFiles(store) / kFilesForAFile),
          records_(store.directories().openRecordSet()) {}
    SmallTrees(const SmallTrees&) = delete;
    SmallTrees& operator=(const SmallTrees&) = delete;
    ~SmallTrees() { store_.directories().closeRecordSet(records_); }

    /// False when there are too many, or no index tells them.
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

    /// Nothing in the same cases.
    std::optional<std::vector<unsigned>> files() {
        std::vector<unsigned> found;
        RecordSet files = store_.files().openRecordSet();
        for (std::size_t i = 0; i < directories_.size() && found.size() <= mostFiles_; ++i) {
            bool more = store_.lookups().byPathId(files, directories_[i]);
            indexed_ = indexed_ && files.walksIndex();
            for (; more && indexed_ && found.size() <= mostFiles_; more = files.moveNext())
                found.push_back(files.recordId());
        }
        store_.files().closeRecordSet(files);
        if (!indexed_ || found.size() > mostFiles_) return std::nullopt;
        std::sort(found.begin(), found.end());
        found.erase(std::unique(found.begin(), found.end()), found.end());
        return found;
    }

private:
    bool isSmall() const { return indexed_ && directories_.size() <= mostDirectories_; }
    void addChildren(unsigned id) {
        bool more = store_.lookups().byParentId(records_, id);
        indexed_ = indexed_ && records_.walksIndex();
        for (; more && isSmall(); more = records_.moveNext())
            directories_.push_back(records_.getFieldAsInt32(DIRECTORIES_ID));
    }

    CacheStore& store_;
    CacheTree& tree_;
    std::size_t mostDirectories_;
    std::size_t mostFiles_;
    RecordSet records_;
    std::vector<unsigned> directories_;
    bool indexed_ = true;  // an index whose file is not there is left out
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
