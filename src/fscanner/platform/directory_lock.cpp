#include "fscanner/platform/directory_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <map>
#include <mutex>
#include <optional>
#include <thread>

#include "fscanner/common/debug.h"
#include "fscanner/common/time.h"
#include "fscanner/common/utf8.h"
#include "fscanner/platform/abstract_sync.h"
#include "fscanner/platform/descriptor.h"
#include "fscanner/platform/sysfactory.h"

namespace fscanner {

namespace {

constexpr unsigned kPauseMilliseconds = 10;
// How long a shared request waits for exclusive ones that came before it.
constexpr long kYieldMilliseconds = 300;

using Identity = std::pair<dev_t, ino_t>;

Identity identityOf(const struct stat& info) {
    return {info.st_dev, info.st_ino};
}

// The time limit of one `wait`, over all the locks that it takes.
struct Limit {
    bool isOver() const {
        return milliseconds && static_cast<long>(getTickCount() - start) >= *milliseconds;
    }
    const long* milliseconds;  // null: no limit
    unsigned start = getTickCount();
};

int operationOf(DirectoryLock::Mode mode) {
    return mode == DirectoryLock::Mode::shared ? LOCK_SH : LOCK_EX;
}

// flock has no time limit of its own: a limited wait polls, an unlimited one blocks in the kernel.
LockStatus lockWithin(int descriptor, DirectoryLock::Mode mode, const Limit& limit) {
    const int operation = operationOf(mode) | (limit.milliseconds ? LOCK_NB : 0);
    for (;;) {
        if (flock(descriptor, operation) == 0) return LockStatus::locked;
        if (errno == EINTR) continue;
        if (errno != EWOULDBLOCK) return LockStatus::failed;
        if (limit.isOver()) return LockStatus::timedOut;
        SysFactory::sleep(kPauseMilliseconds);
    }
}

// An exclusive request marks itself as waiting by a record lock (F_OFD_SETLK) on the first byte of
// the file. Record locks and flock do not affect each other, and the mark goes when the file is
// closed, also by the death of the process. Marks are read locks, so that any number can wait.
void markWaiting(int file, bool waiting) {
    struct flock note {};
    note.l_type = static_cast<short>(waiting ? F_RDLCK : F_UNLCK);
    note.l_len = 1;
    fcntl(file, F_OFD_SETLK, &note);
}

bool isWaitedFor(int file) {
    struct flock note {};
    note.l_type = F_WRLCK;
    note.l_len = 1;
    return fcntl(file, F_OFD_GETLK, &note) == 0 && note.l_type != F_UNLCK;
}

// A steady stream of shared locks would keep exclusive requests out for ever. So a shared request
// waits while an exclusive one does, but only for a short time: those who hold the lock now may
// keep it for minutes.
LockStatus lockFile(int file, DirectoryLock::Mode mode, const Limit& limit) {
    const bool exclusive = mode == DirectoryLock::Mode::exclusive;
    if (exclusive) markWaiting(file, true);
    const Limit yield{&kYieldMilliseconds};
    while (!exclusive && isWaitedFor(file) && !yield.isOver() && !limit.isOver())
        SysFactory::sleep(kPauseMilliseconds);
    const LockStatus status = lockWithin(file, mode, limit);
    if (exclusive) markWaiting(file, false);
    return status;
}

// Whether the file may serve as the lock: a regular file of ours, of root, or of the directory's
// owner. The permissions of our own file are reduced to 0600, so that others cannot open it. A
// file with a second name keeps its permissions: it may be another's, linked here.
bool acceptLockFile(int file, const struct stat& directory) {
    struct stat info {};
    if (fstat(file, &info) != 0 || !S_ISREG(info.st_mode)) return false;
    const bool ours = info.st_uid == geteuid();
    if (!ours && info.st_uid != 0 && info.st_uid != directory.st_uid) return false;
    const bool isPrivate = (info.st_mode & 07777) == (S_IRUSR | S_IWUSR);
    return !ours || info.st_nlink > 1 || isPrivate || fchmod(file, S_IRUSR | S_IWUSR) == 0;
}

// Something else that has the lock file's name (a link, a FIFO, another user's file) is removed and
// replaced: nobody can hold our lock by it.
Descriptor openLockFile(int at, const struct stat& directory) {
    constexpr int flags = O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY;
    for (bool again : {true, false}) {
        Descriptor file = openAt(at, kDirectoryLockName, flags, S_IRUSR | S_IWUSR);
        if (file && acceptLockFile(file.get(), directory)) return file;
        const bool planted = file || errno == ELOOP || errno == ENXIO || errno == EACCES;
        if (!again || !planted || unlinkat(at, kDirectoryLockName, 0) != 0) break;
    }
    return {};
}

// Whether the path still leads to the locked file, and not to a later one.
bool isStillNamed(int file, const std::string& path) {
    struct stat locked {};
    struct stat named {};
    return fstat(file, &locked) == 0 &&
           lstat((path + "/" + kDirectoryLockName).c_str(), &named) == 0 &&
           identityOf(locked) == identityOf(named);
}

}  // namespace

// The two `flock` locks. They belong to the open file descriptions, which a forked child shares.
// Only the process that took the locks may release them.
struct DirectoryLock::Held {
    Held(Descriptor lockedFile, Descriptor opened, bool locksDirectory, Mode how)
        : file(std::move(lockedFile)),
          directory(std::move(opened)),
          directoryLocked(locksDirectory),
          mode(how) {}
    Held(const Held&) = delete;
    Held& operator=(const Held&) = delete;
    ~Held() {
        if (!isOurs()) return;
        flock(directory.get(), LOCK_UN);
        flock(file.get(), LOCK_UN);
    }
    bool isOurs() const { return owner == getpid(); }
    bool isThisThreads() const { return isOurs() && thread == std::this_thread::get_id(); }
    // flock releases the old lock before it takes the new one, so another process may get the lock
    // in between. LOCK_NB makes the conversion fail then instead of waiting.
    bool share() {
        const auto toShared = [](const Descriptor& locked) {
            return flock(locked.get(), LOCK_SH | LOCK_NB) == 0;
        };
        if (!toShared(file) || (directoryLocked && !toShared(directory))) return false;
        mode = Mode::shared;
        return true;
    }

    Descriptor file;
    Descriptor directory;
    bool directoryLocked;
    Mode mode;
    pid_t owner = getpid();
    std::thread::id thread = std::this_thread::get_id();

    // The locks that this process holds, by file. Never destroyed, because a lock may be released
    // after the destruction of statics.
    struct Registry {
        std::mutex guard;
        std::multimap<Identity, std::weak_ptr<Held>> held;
    };
    static Registry& registry() {
        static auto* const instance = new Registry;
        return *instance;
    }
};

LockStatus DirectoryLock::wait(Mode mode) {
    return acquire(nullptr, mode);
}

LockStatus DirectoryLock::wait(long milliseconds, Mode mode) {
    return acquire(&milliseconds, mode);
}

// Decides a request from the locks that this object and this thread already hold on the file.
// Empty when the lock has to be taken from the system.
std::optional<LockStatus> DirectoryLock::heldResult(int file, Mode mode) {
    struct stat info {};
    if (fstat(file, &info) != 0) return LockStatus::failed;
    auto& [guard, held] = Held::registry();
    const std::lock_guard lock(guard);
    const auto [first, last] = held.equal_range(identityOf(info));
    bool own = false;
    for (auto entry = first; entry != last;) {
        const std::shared_ptr<Held> other = entry->second.lock();
        entry = other ? std::next(entry) : held.erase(entry);
        if (!other) continue;
        own = own || (other == held_ && other->isOurs());
        const bool excludes = mode == Mode::exclusive || other->mode == Mode::exclusive;
        if (other == held_ || !excludes || !other->isThisThreads()) continue;
        debug("DirectoryLock - this thread holds '%ls' by another object\n", path_.c_str());
        return LockStatus::timedOut;
    }
    if (own && (held_->mode == mode || (mode == Mode::shared && held_->share())))
        return LockStatus::locked;
    return std::nullopt;
}

void DirectoryLock::keep(std::shared_ptr<Held> taken) {
    struct stat info {};
    fstat(taken->file.get(), &info);
    auto& [guard, held] = Held::registry();
    const std::lock_guard lock(guard);
    held_ = std::move(taken);
    held.emplace(identityOf(info), held_);
}

LockStatus DirectoryLock::acquire(const long* milliseconds, Mode mode) {
    const Limit limit{milliseconds};
    const std::string path = toMultibyte(path_);
    do {
        Descriptor directory = openAt(AT_FDCWD, path.c_str(), O_RDONLY | O_DIRECTORY);
        struct stat info {};
        if (!directory || fstat(directory.get(), &info) != 0) return LockStatus::failed;
        Descriptor file = openLockFile(directory.get(), info);
        if (!file) return LockStatus::failed;
        if (const std::optional<LockStatus> result = heldResult(file.get(), mode)) return *result;
        held_.reset();
        const LockStatus fileLocked = lockFile(file.get(), mode, limit);
        if (fileLocked != LockStatus::locked) return fileLocked;
        if (!isStillNamed(file.get(), path)) continue;
        // Other users can hold a lock on a directory that they can open. That must not block us,
        // so such a directory is only tried once.
        const bool isPrivate = (info.st_mode & (S_IRWXG | S_IRWXO)) == 0;
        const long none = 0;
        const LockStatus status =
            lockWithin(directory.get(), mode, isPrivate ? limit : Limit{&none});
        if (isPrivate && status != LockStatus::locked) return status;
        keep(std::make_shared<Held>(std::move(file), std::move(directory),
                                    status == LockStatus::locked, mode));
        return LockStatus::locked;
    } while (!limit.isOver());
    return LockStatus::timedOut;
}

}  // namespace fscanner
