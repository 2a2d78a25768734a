#pragma once

#include <memory>
#include <optional>
#include <string>
#include <utility>

namespace fscanner {

/// How a wait for a lock ended.
enum class [[nodiscard]] LockStatus{locked, timedOut, failed};

/// The name of the lock file in the directory.
inline constexpr const char* kDirectoryLockName = "fscanner.lock";

/// A lock on a directory that processes share, whatever path or mount leads to it. It is an
/// `flock` on the file "fscanner.lock" in the directory. The file's permissions let only its owner
/// and root open it, so that no other user can block us by locking it.
///
/// After it has got the lock, `wait` checks that the file still has its name. If somebody removed
/// the file, or the directory with it, `wait` creates a new file and locks that. The directory
/// itself is locked as well, because earlier versions lock only that; if other users can open it,
/// it is locked only if it is free.
///
/// One object holds the lock exclusively, or any number of objects share it. Calling `wait` with
/// the other mode converts the lock. Exclusive to shared is one `flock` conversion, between whose
/// two steps the system may let another process in. Shared to exclusive releases the lock and
/// waits again. After a failed conversion the object holds nothing. A shared request lets waiting
/// exclusive requests go first, for at most 0.3 s.
///
/// The lock also works between the threads of a process. A thread that holds the lock by one
/// object and asks by another would wait for itself; it gets `timedOut` at once, whatever
/// the limit. A forked child does not hold the lock.
class DirectoryLock {
public:
    enum class Mode { exclusive, shared };

    explicit DirectoryLock(std::wstring path) : path_(std::move(path)) {}
    DirectoryLock(const DirectoryLock&) = delete;
    DirectoryLock& operator=(const DirectoryLock&) = delete;
    ~DirectoryLock() = default;

    LockStatus wait(Mode mode = Mode::exclusive);
    /// Tries at once, then every 10 ms until `milliseconds` have passed. Signals do not end a
    /// wait.
    LockStatus wait(long milliseconds, Mode mode = Mode::exclusive);
    void release() { held_.reset(); }

private:
    struct Held;
    LockStatus acquire(const long* milliseconds, Mode mode);
    std::optional<LockStatus> heldResult(int file, Mode mode);
    void keep(std::shared_ptr<Held> taken);

    std::wstring path_;
    std::shared_ptr<Held> held_;
};

}  // namespace fscanner
