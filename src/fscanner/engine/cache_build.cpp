#include "fscanner/engine/cache_build.h"

#include "fscanner/common/time.h"
#include "fscanner/discovery/filesystemhelper.h"
#include "fscanner/discovery/pathhelper.h"
#include "fscanner/engine/fsbuild.h"
#include "fscanner/engine/walk.h"
#include "fscanner/fs/debug.h"
#include "fscanner/fs/fs_fileinfo.h"

namespace fscanner {

namespace {

bool insertDirectory(CacheStore& store, const wchar_t* name, unsigned parent, unsigned time) {
    RecordSet& records = store.directoryRecords();
    records.setFieldAsInt32(DIRECTORIES_ID, ++store.directoriesIndex());
    records.setFieldAsString(DIRECTORIES_PATHNAME, name);
    records.setFieldAsInt32(DIRECTORIES_PARENTID, parent);
    records.setFieldAsInt32(DIRECTORIES_CREATIONTIME, time);
    return records.insert();
}

// Inserts a record for each thing that the walk meets.
class CacheSink : public WalkSink {
public:
    CacheSink(CacheStore& store, unsigned rootId) : store_(store), parents_{rootId} {}

    void file(WalkEntry& entry) override;
    void enter(const WalkEntry& entry) override;
    void leave() override { parents_.pop_back(); }
    bool tellsLater(FsSkipReason reason, int error) override;
    // After a record that could not be inserted there is no tree to be had.
    bool goesOn() const override { return !failed_; }
    bool failed() const { return failed_; }

private:
    CacheStore& store_;
    std::vector<unsigned> parents_;
    FsFileInfo facts_;
    bool failed_ = false;
};

void CacheSink::file(WalkEntry& entry) {
    if (failed_) return;
    // Its bytes show a pattern in every encoding, and at times where there is none.
    if (text_test::examine(entry.storedName()).pattern) store_.expectPatterns();
    facts_.forgetInfo();
    const struct stat* info = entry.info();
    const bool known = info && facts_.updateFrom(*info);
    RecordSet& records = store_.filesRecords();
    records.setFieldAsString(FILES_FILENAME, entry.name().c_str());
    records.setFieldAsInt32(FILES_ATTR, known ? facts_.getAttr() : 0);
    records.setFieldAsInt64(FILES_SIZE, known ? facts_.getSize() : 0);
    records.setFieldAsInt32(FILES_PATHID, parents_.back());
    failed_ = !records.insert();
}

void CacheSink::enter(const WalkEntry& entry) {
    const auto now = static_cast<unsigned>(getCurrentTime());
    if (!failed_) failed_ = !insertDirectory(store_, entry.name().c_str(), parents_.back(), now);
    parents_.push_back(store_.directoriesIndex());
}

// What the system failed at may pass. What it denies stays missing until the tree is old:
// whoever extracts from the tree tells of it, now and later alike.
bool CacheSink::tellsLater(FsSkipReason reason, int error) {
    if (reason == FsSkipReason::failed) forgetTimes(store_, parents_.back());
    if (reason != FsSkipReason::denied && reason != FsSkipReason::tooLong) return false;
    store_.unread().add(parents_.back(), reason, error);
    return true;
}

DfsState& dfsState() {
    static thread_local DfsState state;
    return state;
}

// Goes down from the top as long as there are records, and gives the others theirs, down to
// the root itself.
bool insertChain(CacheStore& store, CacheTree& tree, const wchar_t* root) {
    const std::vector<std::wstring> names = pathNames(root);
    RecordSet& records = store.directoryRecords();
    unsigned parent = 0;
    auto name = names.begin();
    for (; name != names.end() && tree.findChild(records, parent, *name); ++name)
        parent = records.getFieldAsInt32(DIRECTORIES_ID);
    for (; name != names.end(); ++name) {
        if (!insertDirectory(store, name->c_str(), parent, 0)) return false;
        parent = store.directoriesIndex();
    }
    return true;
}

}  // namespace

int buildTree(CacheStore& store, CacheTree& tree, const PathDrive& root, const MountMap& mounts,
              unsigned timeout) {
    const wchar_t* path = root.path.getPathName();
    if (!path || !store.beginChanges() || !insertChain(store, tree, path)) return BUILD_FAILED;
    RecordSet& records = store.directoryRecords();
    if (!tree.findPathByName(records, store.ancestorRecords(), path, true)) return WALK_FINISHED;
    const unsigned rootId = records.getFieldAsInt32(DIRECTORIES_ID);
    records.setFieldAsInt32(DIRECTORIES_CREATIONTIME, static_cast<unsigned>(getCurrentTime()));
    if (!records.update()) return BUILD_FAILED;

    if (const int error = fs_examineSearched(path)) {
        debug("FS_Cache::build - '%ls' is a symbolic link or is not a directory!\n", path);
        if (skipReason(error) == FsSkipReason::failed) forgetTimes(store, rootId);
        return WALK_FINISHED;
    }
    CacheSink sink(store, rootId);
    const WalkVoice voice{"FS_Cache::scan", &dfsState()};
    const WalkRequest request{path,   root.path.getRecursive(), root.drive, {}, {}, true, timeout,
                              &mounts};
    const int status = walkTree(request, sink, voice);
    return sink.failed() ? BUILD_FAILED : status;
}

}  // namespace fscanner
