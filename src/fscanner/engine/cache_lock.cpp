#include "fscanner/engine/cache_lock.h"

#include <algorithm>

#include "fscanner/common/debug.h"
#include "fscanner/common/time.h"
#include "fscanner/engine/cache.h"
#include "fscanner/engine/cache_files.h"
#include "fscanner/fs/fs_scan_observer.h"
#include "fscanner/platform/sysfactory.h"

namespace fscanner {

namespace {

// Waits for the lock until `limit` milliseconds are over: in pieces, so that an observer
// hears of it and may end it. The first is short: a user is told at once.
int waitFor(DirectoryLock& lock, long limit, DirectoryLock::Mode mode) {
    const unsigned start = getTickCount();
    long piece = 1;
    FsScanObserver* const observer = scanObserver();
    for (;;) {
        const unsigned waited = getTickCount() - start;
        const long left = std::max(limit - static_cast<long>(waited), 0L);
        const bool last = !observer || left <= piece;
        const int status = lock.wait(last ? left : piece, mode);
        if (status != SYNC_TIMED_OUT || last) return status;
        if (!observer->waiting(getTickCount() - start)) return SYNC_TIMED_OUT;
        piece = 200;
    }
}

}  // namespace

CacheLock::CacheLock(const std::wstring& directory)
    : directory_(directory), directoryLock_(directory) {
    debug("FS_Cache::FS_Cache - accessMutex name is '%ls'\n", accessMutexName(directory).c_str());
}

int CacheLock::take(std::optional<int> timeout, DirectoryLock::Mode mode) {
    if (timeout && *timeout <= 0) return resultOf(SYNC_TIMED_OUT);
    isShared_ = mode == DirectoryLock::Mode::shared;
    isAlone_ = false;
    if (isShared_ && accessMutex_) accessMutex_->release();
    return resultOf(timeout ? waitFor(directoryLock_, *timeout, mode) : directoryLock_.wait(mode));
}

int CacheLock::resultOf(int status) {
    switch (status) {
        case SYNC_SUCCESS:
            isAlone_ = !isShared_;
            if (!accessMutex_ && !isShared_)
                accessMutex_ = SysFactory::createMutex(accessMutexName(directory_).c_str());
            if (!isShared_) accessMutex_->wait(1);
            debug("FS_Cache::lock - accessMutex SUCCESS!\n");
            return FS_CACHE_SUCCESS;
        case SYNC_TIMED_OUT:
            debug("FS_Cache::lock - accessMutex TIMED_OUT!\n");
            return FS_CACHE_LOCK_TIMED_OUT;
        default:
            debug("FS_Cache::lock - accessMutex FAILED!\n");
            return FS_CACHE_FAILURE;
    }
}

void CacheLock::release() {
    debug("FS_Cache::unlock - accessMutex RELEASED!\n");
    isAlone_ = false;
    if (accessMutex_) accessMutex_->release();
    directoryLock_.release();
}

}  // namespace fscanner
