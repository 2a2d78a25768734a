#pragma once

#include <array>
#include <atomic>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "fscanner/engine/cache_files.h"
#include "fscanner/engine/cache_tables.h"
#include "fscanner/engine/directory_stamps.h"
#include "fscanner/engine/status.h"
#include "fscanner/engine/unread_directories.h"
#include "fscanner/fs/fs_scan_observer.h"
#include "fscanner/store/table_replacement.h"
#include "fscanner/store/undo_journal.h"

namespace fscanner {

/// The cache's storage: its two tables with the files beside them, from the opening under a
/// lock to the commit.
///
/// Owns the two tables and the record sets on them. Its states are those of
/// `FS_Cache`, of which it is the inside.
///
/// What a session changes is undone when it does not end well: by the next one, which finds
/// the mark and an undo journal. Damage is not kept that way: then the journal goes, and the
/// mark alone says that the cache is to be made anew.
class CacheStore {
public:
    CacheStore(const wchar_t* directoriesTableName, const wchar_t* filesTableName,
               const wchar_t* cacheDirectory, bool compressed, bool cacheChecker);
    CacheStore(const CacheStore&) = delete;
    CacheStore& operator=(const CacheStore&) = delete;
    ~CacheStore();

    /// One operation: they are done one after the other.
    class Use {
    public:
        explicit Use(CacheStore& store) : store_(store), begun_(!store.busy_.exchange(true)) {}
        Use(const Use&) = delete;
        Use& operator=(const Use&) = delete;
        ~Use() {
            if (begun_) store_.busy_ = false;
        }
        /// False in the middle of another.
        bool begun() const { return begun_; }

    private:
        CacheStore& store_;
        bool begun_;
    };

    Status create(unsigned timeout, int disposition);
    Status lock();
    Status lock(int timeout);
    Status lockShared(int timeout);
    void unlock();
    Status share(int timeout);
    bool close();
    bool compact();
    bool remove();

    /// The bytes of the tables with their indexes; about as many are in use by records.
    unsigned long long bytes();
    unsigned long long bytesInUse();
    /// The next compaction gives back all that it can.
    void shrinkWhenClosed() { shrink_ = true; }

    /// Created, open and not broken.
    bool usable() const { return initialized_ && open_ && !broken_; }
    const std::wstring& directory() const { return directory_; }
    /// Whether this is the stamp of that directory. It gets none: each change of the cache changes
    /// it.
    bool isOwn(const DirectoryStamp& stamp);
    /// Whether it is a file that is there only while the cache is changed. A tree that holds the
    /// cache lacks those: otherwise no search would find the tree as the last one left it.
    /// `directory` ends in "/".
    bool isPassing(const std::wstring& directory, const std::wstring& name) const;
    /// The name of the table of directories.
    const std::wstring& directoriesName() const { return directoriesName_; }
    /// Opened under a shared lock: nothing is changed.
    bool readOnly() const { return readOnly_; }
    void markBroken() { broken_ = true; }
    /// Whether a file of the cache was found damaged.
    bool damaged() const;
    /// Whether all that a scan of all records reads is as it was written.
    bool recordsHold();
    /// Instead of `create`: compares every file with its checksums, and the tables' files with
    /// each other. What is found damaged gets the mark. False when it could not be tried.
    bool check(FsCacheCheck& result);

    /// Whether what is changed from now on has the word of a watcher, who need not be told.
    void setWatched(bool watched) { watched_ = watched; }
    /// To be called before the first change of a session: puts the mark on disk, so
    /// that a change can never be there without it, and notes what to go back to. False when
    /// that fails, and when what would be built upon is damaged.
    bool beginChanges();
    /// To be called before a tree is removed or built. The trees that this session has
    /// finished stay when this one is interrupted; the last few of very many may not.
    bool beginTree();
    /// Empties the cache for a tree that is all it has: the new records go to tables beside
    /// the old ones and take their places when the cache is closed. False where that cannot
    /// be done, on a disk that is nearly full, say; the records are to be removed then.
    bool startAnew();

    /// What was done for a path since this object opened the cache.
    struct Refreshed {
        enum class How {
            built,       ///< its tree was built
            verified,    ///< its tree was compared with the disk and brought up to date
            noDirectory  ///< there is none to be built
        };
        How how = How::built;
        FsVerification verification = {};  ///< without its path
    };
    void noteRefreshed(const std::wstring& path, const Refreshed& what) { refreshed_[path] = what; }
    /// Null if nothing was, or the path's tree is not as good any more: others may have used the
    /// cache since. `id` is that of its directory, 0 if there is no record; `built` is when its
    /// tree was built.
    void forgetRefreshed() { refreshed_.clear(); }
    const Refreshed* refreshed(const std::wstring& path, unsigned id, unsigned built) const;

    /// To be called before a file is inserted whose name holds "*" or "?": from then on
    /// no search of this cache looks names up.
    void expectPatterns();

    FS_Table& files() { return anew_ ? anew_->files.fresh() : *files_; }
    FS_Table& directories() { return anew_ ? anew_->directories.fresh() : *directories_; }
    RecordSet& filesRecords() { return filesRecords_; }
    /// Two cursors: candidates, and the ancestors that are compared with them.
    RecordSet& directoryRecords() { return directoryRecords_; }
    RecordSet& ancestorRecords() { return ancestorRecords_; }
    CacheLookups& lookups() { return lookups_; }

    /// The ID counter: the last ID that a directory was given.
    unsigned& directoriesIndex() { return directoriesIndex_; }
    bool updateDirectoriesIDCounter();
    /// When the tree of the directory at hand was built; 0: never, or nobody knows what of
    /// it could not be read, so that no answer may come from it.
    unsigned builtTime(const RecordSet& directory) const;
    /// What is told of directories that could not be read.
    UnreadDirectories& unread() { return unread_; }
    /// What the directories looked like when they were read. Open after `readStamps`, and from
    /// the first change of a session on.
    DirectoryStamps& stamps() { return stamps_; }
    /// False where no directory has a stamp.
    bool readStamps();

    /// Says which content the cache has while it is locked: each change makes it another one.
    /// Nothing where that cannot be told.
    using Version = std::array<unsigned long long, 4>;
    std::optional<Version> version() const;

private:
    /// Both tables anew, beside the old ones.
    struct Anew {
        Anew(FS_Table& oldFiles, FS_Table& oldDirectories)
            : files(oldFiles), directories(oldDirectories) {}
        TableReplacement files;
        TableReplacement directories;
    };

    bool createCache();
    bool openCache();
    void recoverCache();
    void loadUnread();
    bool openStamps();
    bool closeStamps();
    bool tellWatcher();
    void openRecordSets();
    TablePlace place() const { return {directory_, compressed_, sums_.get()}; }
    std::wstring path(const wchar_t* suffix) const { return pathOf(directoriesName_, suffix); }
    std::wstring pathOf(const std::wstring& table, const wchar_t* suffix) const;
    /// Of a small file: where it is written, beside the old one while all is made anew.
    std::wstring freshPath(const wchar_t* suffix) const;
    Renames renamesAnew() const;
    Status lockWithin(std::optional<int> timeout, DirectoryLock::Mode mode);
    bool isLockShared() const { return lock_ && lock_->isShared(); }

    void markAsDamaged();
    void removeSmallFiles();
    std::array<std::wstring, 2> indexLists() const;
    bool smallFilesHold();
    bool takeUpSmallFiles();
    bool isThere() const;
    bool isCompactionDue();
    int compactionPercent() const;
    bool hasSoundEnds();
    bool isSound();
    bool hasNoIdAboveCounter();
    bool closeTables();
    bool writeSmallFiles();
    bool bringToDisk();
    bool bringAnew();
    void abandonAnew();
    bool compactTables(UndoJournal* journal);
    bool keepState();
    std::vector<LinuxMmFile*> mappedFiles();
    bool isStateWorthIt();
    bool commit();
    void endChanges();

    std::wstring directory_;
    std::optional<Directory::Identity> own_;  // the directory's; all 0 where it is not known
    std::wstring directoriesName_;
    std::wstring filesName_;
    bool compressed_;
    bool cacheChecker_;
    std::atomic<bool> busy_ = false;
    bool initialized_ = false;
    bool opened_ = false;  // by `create`; never cleared
    bool open_ = false;
    bool broken_ = false;
    bool changed_ = false;
    bool changeTried_ = false;  // a failure may be the change's, and not the cache's
    bool compactionDue_ = false;
    bool shrink_ = false;
    bool readOnly_ = false;
    bool watched_ = false;      // what is changed now
    bool watcherTold_ = false;  // of what this session changes
    unsigned directoriesIndex_ = 0;
    unsigned long long keptBytes_ = 0;  // the tables' when their state was kept
    unsigned oldIndex_ = 0;  // the last ID that was given before this object opened the cache
    std::map<std::wstring, Refreshed> refreshed_;  // by path
    UnreadDirectories unread_;
    bool unreadFits_ = true;  // its file, and so the counter that is in both
    std::unique_ptr<SumsFile> sums_;
    DirectoryStamps stamps_;
    CacheLookups lookups_;
    std::unique_ptr<CacheLock> lock_;
    CacheMark mark_;
    std::unique_ptr<UndoJournal> journal_;  // null where there is no mark
    std::unique_ptr<FS_Table> files_;
    std::unique_ptr<FS_Table> directories_;
    std::unique_ptr<Anew> anew_;
    RecordSet filesRecords_;
    RecordSet directoryRecords_;
    RecordSet ancestorRecords_;
};

}  // namespace fscanner
