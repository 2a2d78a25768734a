#include "fscanner/engine/cache_lock.h"

#include <algorithm>

#include "fscanner/common/debug.h"
#include "fscanner/common/time.h"
#include "fscanner/engine/cache_files.h"
#include "fscanner/fs/fs_scan_observer.h"
#include "fscanner/platform/sysfactory.h"

namespace fscanner {

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

}  // namespace fscanner
