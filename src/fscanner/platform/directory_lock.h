#pragma once

#include <memory>
#include <optional>
#include <string>
#include <utility>

namespace fscanner {

/// How a wait for a lock ended.
enum class [[nodiscard]] LockStatus{locked, timedOut, failed};

/// A lock between processes on a directory, whatever name or mount leads to it: a lock
/// on the file "fscanner.lock" in it, which nobody but the directory's owner can open.
///
/// Whoever gets the lock makes sure that the file still has its name: one that was removed,
/// alone or with the directory, is made again and waited for. A directory that others
/// cannot open is locked, too, for the sake of programs that lock only that.
///
/// One holds it exclusively, or any number share it. An object that asks for the other mode
/// than it has goes over to that: from exclusive to shared in most cases without a moment
/// in which another gets the lock, from shared to exclusive by giving it up first. Where
/// that fails it holds nothing. Who wants to share it lets others who wait for all of it go
/// first, for a third of a second.
///
/// Threads of a process exclude each other as processes do. A thread that would wait for
/// itself, for another object by which it holds the lock, gets `timedOut` at once, whatever
/// the limit. A forked child does not have the lock.
class DirectoryLock {
public:
    enum class Mode { exclusive, shared };

    explicit DirectoryLock(std::wstring path) : path_(std::move(path)) {}
    DirectoryLock(const DirectoryLock&) = delete;
    DirectoryLock& operator=(const DirectoryLock&) = delete;
    ~DirectoryLock() = default;

    LockStatus wait(Mode mode = Mode::exclusive);
    /// Tries at once, then every 10 ms until the limit is over. Signals do not end a wait.
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
