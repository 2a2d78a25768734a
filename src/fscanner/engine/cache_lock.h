#pragma once

#include <memory>
#include <optional>
#include <string>

#include "fscanner/engine/status.h"
#include "fscanner/platform/abstract_sync.h"
#include "fscanner/platform/directory_lock.h"

namespace fscanner {

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

}  // namespace fscanner
