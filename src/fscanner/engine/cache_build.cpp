#include "fscanner/engine/cache_build.h"

#include <algorithm>
#include <cerrno>
#include <map>
#include <unordered_map>

#include "fscanner/common/debug.h"
#include "fscanner/common/path_text.h"
#include "fscanner/common/time.h"
#include "fscanner/common/utf8.h"
#include "fscanner/discovery/filesystemhelper.h"
#include "fscanner/discovery/pathhelper.h"
#include "fscanner/engine/cache_tree.h"
#include "fscanner/engine/fsbuild.h"
#include "fscanner/engine/walk.h"
#include "fscanner/platform/directory.h"

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

FileFacts factsOf(WalkEntry& entry) {
    const struct stat* const info = entry.info();
    return info ? FileFacts::of(*info).value_or(FileFacts()) : FileFacts();
}

// Inserts a record for each thing that the walk meets.
class CacheSink : public WalkSink {
public:
    CacheSink(CacheStore& store, unsigned rootId) : store_(store), parents_{rootId} {}

    void file(WalkEntry& entry) override;
    void enter(const WalkEntry& entry) override;
    void leave() override { parents_.pop_back(); }
    void opened(const Directory& directory, const DirectoryStamp* ahead) override {
        if (ahead)
            stamp(*ahead);
        else
            takeStamp(directory);
    }
    bool tellsLater(FsSkipReason reason, int error) override;
    // After a failed insertion the tree cannot be completed.
    bool goesOn() const override { return !failed_; }
    bool failed() const { return failed_; }

protected:
    /// Whether the walk is in the directory where it began.
    bool atStart() const { return parents_.size() == 1; }
    /// Keeps the stamp of the current directory, and returns it.
    DirectoryStamp takeStamp(const Directory& directory) {
        const DirectoryStamp now = taker_.take(directory);
        stamp(now);
        return now;
    }
    const StampTaker& taker() const { return taker_; }

private:
    void stamp(const DirectoryStamp& stamp) {
        const bool own = store_.isOwn(stamp);
        if (!failed_)
            failed_ = !store_.stamps().put(parents_.back(), own ? DirectoryStamp() : stamp);
    }

    CacheStore& store_;
    StampTaker taker_;
    std::vector<unsigned> parents_;
    bool failed_ = false;
};

void CacheSink::file(WalkEntry& entry) {
    if (failed_ || store_.isPassing(entry.directory(), entry.name())) return;
    // The test of bytes finds "*" and "?" in every encoding. It may find one where there is
    // none, which costs only speed.
    if (stored_text::examine(entry.storedName()).pattern) store_.expectPatterns();
    RecordSet& records = store_.filesRecords();
    records.setFieldAsString(FILES_FILENAME, entry.name().c_str());
    factsOf(entry).writeTo(records);
    records.setFieldAsInt32(FILES_PATHID, parents_.back());
    failed_ = !records.insert();
}

void CacheSink::enter(const WalkEntry& entry) {
    const auto now = static_cast<unsigned>(getCurrentTime());
    if (!failed_) failed_ = !insertDirectory(store_, entry.name().c_str(), parents_.back(), now);
    parents_.push_back(store_.directoriesIndex());
}

// A failure may be over next time: the tree is built anew by the next query. What is denied
// stays missing until the tree is old: each extraction tells the observer of it. A directory of
// which something was left out gets no stamp: when a drive that is mounted in it goes, its entries
// are others without a change of the directory.
bool CacheSink::tellsLater(FsSkipReason reason, int error) {
    stamp({});
    if (reason == FsSkipReason::failed) forgetTimes(store_, parents_.back());
    if (reason != FsSkipReason::denied && reason != FsSkipReason::tooLong) return false;
    store_.unread().add(parents_.back(), reason, error);
    return true;
}

DfsState& dfsState() {
    static thread_local DfsState state;
    return state;
}

// Follows the records of the root's ancestors from the top, and inserts the missing ones
// and the root's own.
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

Status buildTree(CacheStore& store, CacheTree& tree, const PathDrive& root, const MountMap& mounts,
                 unsigned timeout, unsigned long long expectedDirectories) {
    const wchar_t* path = root.path.getPathName();
    if (!path || !store.beginChanges() || !insertChain(store, tree, path)) return Status::unusable;
    RecordSet& records = store.directoryRecords();
    if (!tree.findPathByName(records, store.ancestorRecords(), path, true)) return Status::success;
    const unsigned rootId = records.getFieldAsInt32(DIRECTORIES_ID);
    records.setFieldAsInt32(DIRECTORIES_CREATIONTIME, static_cast<unsigned>(getCurrentTime()));
    if (!records.update()) return Status::unusable;

    if (const int error = fs_examineSearched(path)) {
        debug("FS_Cache::build - '%ls' is a symbolic link or is not a directory!\n", path);
        if (skipReason(error) == FsSkipReason::failed) forgetTimes(store, rootId);
        return Status::success;
    }
    CacheSink sink(store, rootId);
    const LogPrefix prefix{"FS_Cache::scan", &dfsState()};
    WalkRequest request{path, root.path.getRecursive(), root.drive, {}, {}, true, timeout, &mounts};
    request.ahead = {.wanted = true, .stamps = true, .facts = true};
    request.expectedDirectories = expectedDirectories;
    const WalkStatus status = walkTree(request, sink, prefix);
    if (sink.failed()) return Status::unusable;
    return status == WalkStatus::finished ? Status::success : Status::buildTimedOut;
}

// ---- Bringing a tree up to date ---------------------------------------------

namespace {

// So many directories are read by each query before a query writes stamps for them alone.
constexpr unsigned kReadAgain = 64;
// A directory counts as one more of them for so many files.
constexpr unsigned kFilesPerDirectory = 64;

// A directory of the tree that is read again.
struct Reread {
    const TreeView& view;
    unsigned id;
    const std::wstring& path;
    bool facts = false;  // files of it may have others without a trace
};

// The entries that the cache has of a directory, but for those where another drive is mounted: the
// walk does not enter them, and what the cache has of them is that drive's, or comes to light again
// when it goes. A name that the system gave twice while the directory changed is here twice, too.
class KnownEntries {
public:
    struct File {
        unsigned record;
        FileFacts facts;
    };
    using Files = std::unordered_multimap<std::wstring, File>;
    using Directories = std::multimap<std::wstring, unsigned>;  // their IDs

    KnownEntries(CacheStore& store, const Reread& directory);
    /// With `facts`, not one of another size or with other attributes: another file has the name.
    bool takeFile(WalkEntry& entry, bool facts);
    bool takeDirectory(const WalkEntry& entry);
    bool empty() const { return files_.empty() && directories_.empty(); }

    const Files& files() const { return files_; }
    const Directories& directories() const { return directories_; }

private:
    Files files_;
    Directories directories_;
};

KnownEntries::KnownEntries(CacheStore& store, const Reread& directory) {
    RecordSet& records = store.filesRecords();
    bool found = store.lookups().byPathId(records, directory.id);
    for (; found; found = records.moveNext())
        files_.emplace(records.getFieldAsString(FILES_FILENAME),
                       File{records.recordId(), FileFacts::of(records)});
    std::wstring path = directory.path;
    endWithSeparator(path);
    const std::size_t length = path.size();
    const MountMap& mounts = directory.view.mounts;
    RecordSet& children = store.directoryRecords();
    found = store.lookups().byParentId(children, directory.id);
    for (; found; found = children.moveNext()) {
        const wchar_t* const name = children.getFieldAsString(DIRECTORIES_PATHNAME);
        path.replace(length, path.npos, name);
        if (!mounts.stops(path, directory.view.root.drive))
            directories_.emplace(name, children.getFieldAsInt32(DIRECTORIES_ID));
    }
}

bool KnownEntries::takeFile(WalkEntry& entry, bool facts) {
    auto [one, end] = files_.equal_range(entry.name());
    while (one != end && facts && one->second.facts != factsOf(entry)) ++one;
    if (one == end) return false;
    files_.erase(one);
    return true;
}

bool KnownEntries::takeDirectory(const WalkEntry& entry) {
    const auto found = directories_.find(entry.name());
    if (found == directories_.end()) return false;
    directories_.erase(found);
    return true;
}

// Whether a file of the directory may have been replaced by another of its name since `kept` was
// taken. `now` is what `taker` took of it.
bool mayHoldOthers(const DirectoryStamp& kept, const DirectoryStamp& now, const StampTaker& taker) {
    return !taker.trust() || !isUntouched(kept, now, taker.trust()->step);
}

// Looks whether one directory has the entries that the cache has of it, and changes nothing.
class Comparison : public WalkSink {
public:
    Comparison(CacheStore& store, const Reread& directory)
        : store_(store),
          view_(directory.view),
          known_(store, directory),
          kept_(store.stamps().find(directory.id)),
          unread_(store.unread().contains(directory.id)),
          changedFacts_(directory.facts) {}

    void file(WalkEntry& entry) override {
        ++files_;
        if (store_.isPassing(entry.directory(), entry.name())) return;
        differs_ = differs_ || !known_.takeFile(entry, facts_);
    }
    bool wants(const WalkEntry& directory, const std::wstring&) override {
        differs_ = !known_.takeDirectory(directory) || differs_;
        return false;
    }
    void enter(const WalkEntry&) override {}
    void leave() override {}
    void opened(const Directory& directory, const DirectoryStamp*) override {
        const DirectoryStamp now = taker_.take(directory);
        believable_ = taker_.trust() && now.exists() && !isRacy(now, taker_.trust()->step);
        // The cache's own files change with it.
        facts_ = !store_.isOwn(now) &&
                 (unread_ || changedFacts_ ||
                  ((view_.facts || kept_.exists()) && mayHoldOthers(kept_, now, taker_)));
        believable_ = believable_ && !store_.isOwn(now);
    }
    bool tellsLater(FsSkipReason reason, int) override {
        if (reason == FsSkipReason::denied || reason == FsSkipReason::tooLong)
            refused_ = true;
        else if (reason != FsSkipReason::otherFileSystem)
            differs_ = true;
        believable_ = false;
        return true;
    }
    bool goesOn() const override {
        if (!differs_ && ++asked_ % kQuestions == 0 && !view_.goesOn(0)) stopped_ = true;
        return !differs_ && !stopped_;
    }

    /// Whether the caller said so, and nothing is known.
    bool stopped() const { return stopped_; }
    bool differs() const { return differs_ || refused_ != unread_ || !known_.empty(); }
    /// How much the next comparison would be spared by a stamp of now, in directories.
    unsigned spared() const { return believable_ ? 1 + files_ / kFilesPerDirectory : 0; }

private:
    static constexpr unsigned kQuestions = 16;  // of the walk for one to the caller

    CacheStore& store_;
    const TreeView& view_;
    KnownEntries known_;
    unsigned files_ = 0;
    StampTaker taker_;
    DirectoryStamp kept_;
    bool unread_;  // the build could not read all of it
    bool changedFacts_;
    // Whether the files are examined. Where there never is a stamp to be renewed, those that are
    // written to would make each query change the cache.
    bool facts_ = true;
    bool refused_ = false;
    bool differs_ = false;
    bool believable_ = false;
    mutable unsigned asked_ = 0;
    mutable bool stopped_ = false;
};

// Inserts what one directory holds and the cache does not have. Subdirectories that the cache has
// are not entered: each has a stamp of its own.
class UpdateSink : public CacheSink {
public:
    UpdateSink(CacheStore& store, const Reread& directory)
        : CacheSink(store, directory.id),
          known_(store, directory),
          kept_(store.stamps().find(directory.id)),
          changedFacts_(directory.facts) {}

    void opened(const Directory& directory, const DirectoryStamp*) override {
        const DirectoryStamp now = takeStamp(directory);
        if (atStart()) facts_ = changedFacts_ || mayHoldOthers(kept_, now, taker());
    }
    void file(WalkEntry& entry) override {
        if (!atStart() || !known_.takeFile(entry, facts_)) CacheSink::file(entry);
    }
    bool wants(const WalkEntry& directory, const std::wstring&) override {
        return !atStart() || !known_.takeDirectory(directory);
    }
    /// After the walk: the entries that are gone.
    const KnownEntries& gone() const { return known_; }

private:
    KnownEntries known_;
    DirectoryStamp kept_;
    bool changedFacts_;
    bool facts_ = true;
};

bool removeGone(CacheStore& store, CacheTree& tree, unsigned id, const KnownEntries& gone) {
    // The removal of a subtree clears this stamp, which was taken before the reading.
    const DirectoryStamp stamp = store.stamps().find(id);
    bool removed = true;
    for (const auto& [name, child] : gone.directories())
        removed = removed && tree.removeTree(store.directories(), store.files(), child);
    for (const auto& [name, file] : gone.files())
        removed = removed && store.files().remove(file.record);
    return removed && store.stamps().put(id, stamp);
}

const std::vector<PathInfo> kNoPaths;

WalkRequest requestOf(const Reread& directory, unsigned timeout, WalkReport report) {
    const TreeView& view = directory.view;
    return {directory.path.c_str(), true,  view.root.drive, kNoPaths, kNoPaths, true, timeout,
            &view.mounts,           report};
}

// Where files could not be examined, the records do not tell which: there all count as new.
Status updateDirectory(CacheStore& store, CacheTree& tree, const Reread& directory,
                       unsigned timeout) {
    const unsigned id = directory.id;
    if (store.unread().contains(id) && !tree.removeFiles(store.files(), id))
        return Status::unusable;
    store.unread().remove(id);
    UpdateSink sink(store, directory);
    const LogPrefix prefix{"FS_Cache::scan", &dfsState()};
    const WalkStatus walked =
        walkTree(requestOf(directory, timeout, WalkReport::withoutEnd), sink, prefix);
    if (sink.failed()) return Status::unusable;
    if (walked == WalkStatus::timedOut) return Status::buildTimedOut;
    return removeGone(store, tree, id, sink.gone()) ? Status::success : Status::unusable;
}

bool isLarge(CacheStore& store, unsigned id) {
    constexpr unsigned most = kReadAgain * kFilesPerDirectory;
    RecordSet& records = store.filesRecords();
    unsigned files = 0;
    bool found = store.lookups().byPathId(records, id);
    for (; found && files <= most; found = records.moveNext()) ++files;
    return files > most;
}

bool enter(CacheStore& store, DirectoryChain& chain, unsigned id) {
    return chain.enter(id) || store.directories().reportDamage("a directory that is not there");
}

}  // namespace

TreeState compareTree(CacheStore& store, const TreeView& view,
                      const std::vector<StaleDirectory>& stale) {
    DirectoryChain chain(store);
    unsigned readAgain = 0;
    for (const StaleDirectory& one : stale) {
        if (one.state != StaleDirectory::State::changed) return TreeState::changed;
        if (!enter(store, chain, one.id)) return TreeState::changed;
        // It costs as much to compare as to renew the stamp for good.
        if (view.renews && store.stamps().find(one.id).exists() && isLarge(store, one.id))
            return TreeState::changed;
        const Reread directory{view, one.id, chain.path(), one.facts};
        Comparison comparison(store, directory);
        const LogPrefix prefix{"FS_Cache::verify", &dfsState()};
        const WalkStatus walked =
            walkTree(requestOf(directory, kNoTimeout, WalkReport::nothing), comparison, prefix);
        if (comparison.differs() && !comparison.stopped()) return TreeState::changed;
        if (walked == WalkStatus::timedOut) return TreeState::stopped;
        readAgain += comparison.spared();
        if (view.renews && readAgain > kReadAgain) return TreeState::changed;
    }
    return TreeState::current;
}

Status updateTree(CacheStore& store, CacheTree& tree, const TreeView& view,
                  const std::vector<StaleDirectory>& stale, unsigned timeout) {
    if (!store.beginTree()) return Status::unusable;
    DirectoryChain chain(store);  // IDs are not given again, so what it keeps stays true
    const unsigned start = getTickCount();
    unsigned long long done = 0;
    for (const StaleDirectory& one : stale) {
        // It may have gone with the one that held it.
        if (!store.lookups().byId(store.directoryRecords(), one.id)) continue;
        const unsigned elapsed = getTickCount() - start;
        if (elapsed >= timeout || !view.goesOn(++done)) return Status::buildTimedOut;
        Status status = Status::success;
        if (one.state != StaleDirectory::State::changed) {
            if (!tree.removeTree(store.directories(), store.files(), one.id))
                status = Status::unusable;
        } else if (enter(store, chain, one.id)) {
            status = updateDirectory(store, tree, {view, one.id, chain.path(), one.facts},
                                     timeout - elapsed);
        } else {
            status = Status::unusable;
        }
        if (status != Status::success) return status;
    }
    return Status::success;
}

// ---- Upkeep -----------------------------------------------------------------

namespace {

// Whether the tree's directory is gone. One that cannot be reached may still be there.
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

// Removes trees beside the query's own work. When it is interrupted, the trees that were
// built before stay.
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

// When a part of each tree was read last, in seconds, by the IDs of their roots.
std::map<unsigned, std::uint64_t> lastReadings(CacheStore& store,
                                               const std::vector<CachedRoot>& roots) {
    constexpr std::uint64_t second = 1'000'000'000;
    std::map<unsigned, std::uint64_t> readings;
    std::map<unsigned, unsigned> rootOf;
    for (const CachedRoot& root : roots) {
        rootOf[root.id] = root.id;
        readings[root.id] = root.built;
    }
    // A directory comes behind the one that holds it: IDs rise from record to record.
    FS_Table& directories = store.directories();
    std::vector<StoredValue> values;
    unsigned record = 0;
    bool found = directories.moveFirst(record);
    for (; found && directories.locate(record, values); found = directories.moveNext(record)) {
        const auto id = static_cast<unsigned>(values[DIRECTORIES_ID].number);
        const auto above = rootOf.find(static_cast<unsigned>(values[DIRECTORIES_PARENTID].number));
        if (above != rootOf.end()) rootOf.emplace(id, above->second);
        const auto root = rootOf.find(id);
        if (root == rootOf.end()) continue;
        std::uint64_t& reading = readings[root->second];
        reading = std::max(reading, store.stamps().find(id).read / second);
    }
    return readings;
}

// The trees that were read last come last: a tree in use may be brought up to date again and again,
// and is never built anew. To know of answers that found nothing changed, each would have to change
// the cache.
std::vector<CachedRoot> rootsByReading(CacheStore& store, CacheTree& tree) {
    std::vector<CachedRoot> roots = tree.roots();
    auto readings = lastReadings(store, roots);
    std::stable_sort(roots.begin(), roots.end(), [&](const CachedRoot& a, const CachedRoot& b) {
        return readings[a.id] < readings[b.id];
    });
    return roots;
}

void keepWithin(CacheStore& store, CacheTree& tree, Tidying& tidying, const QueryPlan& plan,
                unsigned long long limit) {
    if (store.bytes() <= limit) return;
    for (const CachedRoot& root : rootsByReading(store, tree)) {
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
