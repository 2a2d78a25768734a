#include "fscanner/engine/cache_files.h"

#include <algorithm>
#include <array>

#include "fscanner/common/debug.h"
#include "fscanner/common/time.h"
#include "fscanner/engine/cache_tables.h"
#include "fscanner/fs/fs_scan_observer.h"
#include "fscanner/platform/paths.h"
#include "fscanner/platform/small_file.h"
#include "fscanner/platform/sysfactory.h"
#include "fscanner/store/bytes.h"
#include "fscanner/store/sums_file.h"
#include "fscanner/store/table_replacement.h"

namespace fscanner {

const wchar_t* CacheUpdateSuffix = L".cuflag";
const wchar_t* CacheCounterSuffix = L".counter";
const wchar_t* CacheUnreadSuffix = L".unread";
const wchar_t* CacheStampsSuffix = L".stamps";
const wchar_t* CacheSumsSuffix = L".sums";
const wchar_t* CacheUndoSuffix = L".undo";

std::vector<std::wstring> cacheFileNames(const FsCacheTableNames& tables) {
    std::vector<std::wstring> names = TableKind::directories().fileNames(tables.directories);
    for (std::wstring& name : TableKind::files().fileNames(tables.files))
        names.push_back(std::move(name));
    for (const std::wstring version : {L"", TableReplacement::kSuffix}) {
        const std::wstring table = tables.directories + version;
        for (const wchar_t* suffix : {CacheUpdateSuffix, CacheCounterSuffix, CacheUnreadSuffix,
                                      CacheStampsSuffix, CacheSumsSuffix, CacheUndoSuffix})
            names.push_back(table + suffix);
        names.push_back(SumsFile(table + CacheSumsSuffix).renaming().first);
    }
    return names;
}

std::wstring accessMutexName(const std::wstring& directory) {
    std::wstring name = directory + L"_c_mutex";
    std::replace(name.begin(), name.end(), L'/', L'_');
    std::replace(name.begin(), name.end(), L':', L'_');
    return name;
}

// ---- The counter ------------------------------------------------------------

bool readCounter(const std::wstring& path, unsigned& counter) {
    std::array<std::byte, 4> bytes{};
    if (!readSmallFile(path, bytes.data(), bytes.size())) return false;
    counter = loadInteger<std::uint32_t>(bytes.data());
    return true;
}

bool writeCounter(const std::wstring& path, unsigned counter) {
    std::array<std::byte, 4> bytes{};
    storeInteger(bytes.data(), std::uint32_t{counter});
    return writeSmallFile(path, bytes.data(), bytes.size());
}

// ---- The mark ---------------------------------------------------------------

bool CacheMark::place() const {
    return !cacheChecker_ || presenceOf(path_) == Presence::there ||
           writeSmallFile(path_, nullptr, 0);
}

bool CacheMark::placeSynced() const {
    return !cacheChecker_ || (place() && syncDirectory(directory_));
}

void CacheMark::beginCacheUpdate() const {
    if (!cacheChecker_) return;
    debug("FS_Cache::beginCacheUpdate - begin cache update: %ls\n", path_.c_str());
    place();
}

void CacheMark::endCacheUpdate() const {
    if (!cacheChecker_) return;
    debug("FS_Cache::endCacheUpdate - end cache update: %ls\n", path_.c_str());
    removeFile(path_.c_str());
}

bool CacheMark::insideCacheUpdate() const {
    if (!cacheChecker_) {
        debug("FS_Cache::insideCacheUpdate - cacheChecker disabled!\n");
        return false;
    }
    const bool inside = presenceOf(path_) != Presence::absent;
    debug("FS_Cache::insideCacheUpdate - inside cache update = %s\n", inside ? "true" : "false");
    return inside;
}

// ---- The lock ---------------------------------------------------------------

namespace {

// Waits for the lock for at most `limit` milliseconds. With an observer it waits in pieces:
// after each the observer is told and may end the wait. The first piece is short, so that a
// user is told at once.
LockStatus waitFor(DirectoryLock& lock, long limit, DirectoryLock::Mode mode) {
    const unsigned start = getTickCount();
    long piece = 1;
    FsScanObserver* const observer = scanObserver();
    for (;;) {
        const unsigned waited = getTickCount() - start;
        const long left = std::max(limit - static_cast<long>(waited), 0L);
        const bool last = !observer || left <= piece;
        const LockStatus status = lock.wait(last ? left : piece, mode);
        if (status != LockStatus::timedOut || last) return status;
        if (!observer->waiting(getTickCount() - start)) return LockStatus::timedOut;
        piece = 200;
    }
}

}  // namespace

CacheLock::CacheLock(const std::wstring& directory)
    : directory_(directory), directoryLock_(directory) {
    debug("FS_Cache::FS_Cache - accessMutex name is '%ls'\n", accessMutexName(directory).c_str());
}

Status CacheLock::take(std::optional<int> timeout, DirectoryLock::Mode mode) {
    if (timeout && *timeout <= 0) return resultOf(LockStatus::timedOut);
    isShared_ = mode == DirectoryLock::Mode::shared;
    isAlone_ = false;
    // The access mutex cannot be shared, so a holder that goes over to sharing gives it up.
    if (isShared_ && accessMutex_) accessMutex_->release();
    return resultOf(timeout ? waitFor(directoryLock_, *timeout, mode) : directoryLock_.wait(mode));
}

Status CacheLock::resultOf(LockStatus status) {
    switch (status) {
        case LockStatus::locked:
            isAlone_ = !isShared_;
            if (!accessMutex_ && !isShared_)
                accessMutex_ = SysFactory::createMutex(accessMutexName(directory_).c_str());
            // One try, whose result is ignored: the lock in the directory decides.
            if (!isShared_) accessMutex_->wait(1);
            debug("FS_Cache::lock - accessMutex SUCCESS!\n");
            return Status::success;
        case LockStatus::timedOut:
            debug("FS_Cache::lock - accessMutex TIMED_OUT!\n");
            return Status::lockTimedOut;
        case LockStatus::failed:
            debug("FS_Cache::lock - accessMutex FAILED!\n");
            break;
    }
    return Status::failure;
}

void CacheLock::release() {
    debug("FS_Cache::unlock - accessMutex RELEASED!\n");
    isAlone_ = false;
    if (accessMutex_) accessMutex_->release();
    directoryLock_.release();
}

// ---- Offered to hosts; nothing in fscanner uses what follows ----------------

wchar_t* getCacheFileName(const wchar_t* directory, const wchar_t* name, const wchar_t* suffix) {
    if (!directory || !name || !suffix) return nullptr;
    return getFullPathName(directory, (std::wstring(name) + suffix).c_str());
}

}  // namespace fscanner
