#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "fscanner/engine/cache_directory.h"
#include "fscanner/engine/status.h"
#include "fscanner/platform/abstract_sync.h"
#include "fscanner/platform/directory_lock.h"

namespace fscanner {

// The names of the files in a cache directory beside the tables, and the two smallest of these
// files: the counter and the mark.

/// The suffixes of the mark, the counter, the unread directories, the stamps, the checksums and the
/// undo journal, in this order.
extern const wchar_t* CacheUpdateSuffix;
extern const wchar_t* CacheCounterSuffix;
extern const wchar_t* CacheUnreadSuffix;
extern const wchar_t* CacheStampsSuffix;
extern const wchar_t* CacheSumsSuffix;
extern const wchar_t* CacheUndoSuffix;

/// The names of the files that a cache with these tables can have, and of those that a rebuild
/// is to put in their places.
std::vector<std::wstring> cacheFileNames(const FsCacheTableNames& tables);

/// The name of the access mutex of a cache directory: its path with "_" for "/" and ":".
std::wstring accessMutexName(const std::wstring& directory);

/// The counter: the ID that was given to a directory last, as 4 bytes, little-endian. Both return
/// false if the file cannot be read or written completely.
bool readCounter(const std::wstring& path, unsigned& counter);
bool writeCounter(const std::wstring& path, unsigned counter);

/// The mark: an empty file that exists while a cache is changed, and stays after a change that
/// failed or was interrupted. Without `cacheChecker` there is no mark, and the functions do
/// nothing.
class CacheMark {
public:
    CacheMark() = default;
    CacheMark(std::wstring path, std::wstring directory, bool cacheChecker)
        : path_(std::move(path)), directory_(std::move(directory)), cacheChecker_(cacheChecker) {}

    /// Creates the file, if it is not there. False if that fails.
    bool place() const;
    /// As `place`, and writes the directory entry to disk: after a power cut the mark is there.
    bool placeSynced() const;
    /// `place` with a line in the log.
    void beginCacheUpdate() const;
    /// Removes the file, with a line in the log.
    void endCacheUpdate() const;
    /// Whether the file exists. Also true if that cannot be found out.
    bool insideCacheUpdate() const;

private:
    std::wstring path_;
    std::wstring directory_;
    bool cacheChecker_ = false;
};

/// The lock of a cache directory, which processes and threads share.
///
/// The lock in the directory decides. The access mutex is taken beside it, for programs that
/// know only that: by a holder who has the cache alone, and only if it is free at once.
/// It cannot be shared, and it lies where others can take its name.
class CacheLock {
public:
    explicit CacheLock(const std::wstring& directory);

    /// Waits at most `timeout` milliseconds, without limit where none is given; a limit of 0
    /// is over before the first try. An observer is told of the wait, and may end it.
    /// `success`, `lockTimedOut` or `failure`.
    Status take(std::optional<int> timeout, DirectoryLock::Mode mode);
    void release();

    /// Whether the last `take` asked for a shared lock.
    bool isShared() const { return isShared_; }
    /// Whether this object holds the lock exclusively.
    bool isAlone() const { return isAlone_; }

private:
    Status resultOf(LockStatus status);

    std::wstring directory_;
    bool isShared_ = false;
    bool isAlone_ = false;
    std::unique_ptr<AbstractSync> accessMutex_;
    DirectoryLock directoryLock_;
};

// ---- Offered to hosts; nothing in fscanner uses what follows ----------------

/// `directory`, "/" unless it ends with one, `name` and `suffix`; released with
/// `free`, null if any is null.
wchar_t* getCacheFileName(const wchar_t* directory, const wchar_t* name, const wchar_t* suffix);

}  // namespace fscanner
