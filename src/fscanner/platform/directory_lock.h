#pragma once

#include <memory>
#include <string>
#include <utility>

namespace fscanner {

/// A lock between processes on a directory itself, whatever name or mount leads to
/// it: it cannot be lost by unlinking a lock file.
///
/// The lock is the process's: objects of one directory in a process share it, and
/// it goes when the last of them releases it. A forked child does not have it. The
/// results are `SyncStatus`.
class DirectoryLock {
public:
    explicit DirectoryLock(std::wstring path) : path_(std::move(path)) {}
    DirectoryLock(const DirectoryLock&) = delete;
    DirectoryLock& operator=(const DirectoryLock&) = delete;
    ~DirectoryLock() = default;

    int wait();
    /// Tries at once, then every 10 ms until the limit is over.
    int wait(long milliseconds);
    void release() { held_.reset(); }

private:
    struct Held;
    int acquire(const long* milliseconds);

    std::wstring path_;
    std::shared_ptr<Held> held_;
};

}  // namespace fscanner
