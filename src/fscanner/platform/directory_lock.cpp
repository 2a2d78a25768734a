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
constexpr long kCourtesyMilliseconds = 300;

constexpr const char* kFileName = "fscanner.lock";

using Identity = std::pair<dev_t, ino_t>;

Identity identityOf(const struct stat& info) {
    return {info.st_dev, info.st_ino};
}

// How long a wait may last, all its locks together.
struct Limit {
    bool isOver() const {
        return milliseconds && static_cast<long>(getTickCount() - start) >= *milliseconds;
    }
    const long* milliseconds;  // null: none
    unsigned start = getTickCount();
};

int operationOf(DirectoryLock::Mode mode) {
    return mode == DirectoryLock::Mode::shared ? LOCK_SH : LOCK_EX;
}

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

// Who waits for the whole lock notes that in the file, by a record lock, which is none of
// those that decide.
void noteWaiting(int file, bool waiting) {
    struct flock note {};
    note.l_type = static_cast<short>(waiting ? F_WRLCK : F_UNLCK);
    note.l_len = 1;
    fcntl(file, F_OFD_SETLK, &note);
}

bool isWaitedFor(int file) {
    struct flock note {};
    note.l_type = F_RDLCK;
    note.l_len = 1;
    return fcntl(file, F_OFD_GETLK, &note) == 0 && note.l_type != F_UNLCK;
}

// Many who share a lock and come and go would keep it for ever. So they let one go first
// who waits for all of it; but not for long: those who have it may keep it for minutes.
LockStatus lockFile(int file, DirectoryLock::Mode mode, const Limit& limit) {
    const bool alone = mode == DirectoryLock::Mode::exclusive;
    if (alone) noteWaiting(file, true);
    const Limit courtesy{&kCourtesyMilliseconds};
    while (!alone && isWaitedFor(file) && !courtesy.isOver()) SysFactory::sleep(kPauseMilliseconds);
    const LockStatus status = lockWithin(file, mode, limit);
    if (alone) noteWaiting(file, false);
    return status;
}

// Whether a file can be the lock; if so, others cannot open it from now on. One of root or
// of the directory's owner is as good as our own. One with a second name is left as it is.
bool keepPrivate(int file, const struct stat& directory) {
    struct stat info {};
    if (fstat(file, &info) != 0 || !S_ISREG(info.st_mode)) return false;
    const bool ours = info.st_uid == geteuid();
    if (!ours && info.st_uid != 0 && info.st_uid != directory.st_uid) return false;
    const bool open = (info.st_mode & 07777) != (S_IRUSR | S_IWUSR);
    return !ours || info.st_nlink > 1 || !open || fchmod(file, S_IRUSR | S_IWUSR) == 0;
}

// What has the file's name and cannot be one is removed: nobody holds a lock on it.
Descriptor openLockFile(int at, const struct stat& directory) {
    constexpr int flags = O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY;
    for (bool again : {true, false}) {
        Descriptor file = openAt(at, kFileName, flags, S_IRUSR | S_IWUSR);
        if (file && keepPrivate(file.get(), directory)) return file;
        const bool planted = file || errno == ELOOP || errno == ENXIO || errno == EACCES;
        if (!again || !planted || unlinkat(at, kFileName, 0) != 0) break;
    }
    return {};
}

// Whether the path still leads to the locked file, and not to one that came after it.
bool isStillNamed(int file, const std::string& path) {
    struct stat locked {};
    struct stat named {};
    return fstat(file, &locked) == 0 && lstat((path + "/" + kFileName).c_str(), &named) == 0 &&
           identityOf(locked) == identityOf(named);
}

}  // namespace

// Locks of the system, which belong to the open files: a child that was forked has copies
// of the descriptors, but only the process that took the locks gives them back.
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
    // The system gives the old lock up before it takes the new one: another may get between.
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

    // What this process holds. Never destroyed: locks may outlive statics.
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

// What comes of the locks on the file that this object and this thread have already: empty
// where one has to be waited for.
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
        // A directory that others can open is locked only when nobody else has it.
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
