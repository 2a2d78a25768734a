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
/// The lock in the directory decides. The access mutex, which cannot be shared, lies where
/// others can take its name or keep it from being made: who has the cache alone takes it
/// when that is possible at once.
class CacheLock {
public:
    explicit CacheLock(const std::wstring& directory);

    /// Waits at most `timeout` milliseconds, without limit where none is given; a limit of 0
    /// is over before the first try, as ever. An observer is told of the wait, and may end it.
    /// `success`, `lockTimedOut` or `failure`.
    Status take(std::optional<int> timeout, DirectoryLock::Mode mode);
    void release();

    /// How it was asked for last.
    bool isShared() const { return isShared_; }
    /// Whether it is held, and by this object alone.
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
