#pragma once

#include <memory>
#include <optional>
#include <string>
#include <utility>

namespace fscanner {

/// A lock between processes on a directory, whatever name or mount leads to it: a lock
/// on the file "fscanner.lock" in it, which nobody but the directory's owner can open.
///
/// Whoever gets the lock makes sure that the file still has its name: one that was removed,
/// alone or with the directory, is made again and waited for. A directory that others
/// cannot open is locked, too, for the sake of programs that lock only that.
///
/// Threads of a process exclude each other as processes do. A thread that holds the lock
/// by another object would wait for itself: it gets "timed out" at once, whatever the
/// limit. A forked child does not have the lock. The results are `SyncStatus`.
class DirectoryLock {
public:
    explicit DirectoryLock(std::wstring path) : path_(std::move(path)) {}
    DirectoryLock(const DirectoryLock&) = delete;
    DirectoryLock& operator=(const DirectoryLock&) = delete;
    ~DirectoryLock() = default;

    int wait();
    /// Tries at once, then every 10 ms until the limit is over. Signals do not end a wait.
    int wait(long milliseconds);
    void release() { held_.reset(); }

private:
    struct Held;
    int acquire(const long* milliseconds);
    std::optional<int> heldResult(int file);
    void keep(std::shared_ptr<Held> taken);

    std::wstring path_;
    std::shared_ptr<Held> held_;
};

}  // namespace fscanner
