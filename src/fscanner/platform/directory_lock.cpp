#include "fscanner/platform/directory_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <map>
#include <mutex>

#include "fscanner/common/time.h"
#include "fscanner/common/utf8.h"
#include "fscanner/platform/abstract_sync.h"
#include "fscanner/platform/descriptor.h"
#include "fscanner/platform/sysfactory.h"

namespace fscanner {

namespace {

constexpr unsigned kPauseMilliseconds = 10;

using Identity = std::pair<dev_t, ino_t>;

int lockWithin(int descriptor, const long* milliseconds) {
    const unsigned start = getTickCount();
    for (;;) {
        if (flock(descriptor, milliseconds ? LOCK_EX | LOCK_NB : LOCK_EX) == 0) return SYNC_SUCCESS;
        if (errno == EINTR) continue;
        if (errno != EWOULDBLOCK) return SYNC_FAILED;
        if (static_cast<long>(getTickCount() - start) >= *milliseconds) return SYNC_TIMED_OUT;
        SysFactory::sleep(kPauseMilliseconds);
    }
}

}  // namespace

// A lock of the system, which belongs to the open file: a child that was forked has a
// copy of the descriptor, but only the process that took the lock gives it back.
struct DirectoryLock::Held {
    explicit Held(Descriptor locked) : directory(std::move(locked)) {}
    Held(const Held&) = delete;
    Held& operator=(const Held&) = delete;
    ~Held() {
        if (isOurs()) flock(directory.get(), LOCK_UN);
    }
    bool isOurs() const { return owner == getpid(); }

    Descriptor directory;
    pid_t owner = getpid();

    // What this process holds. Never destroyed: locks may outlive statics.
    struct Registry {
        std::mutex guard;
        std::map<Identity, std::weak_ptr<Held>> held;
    };
    static Registry& registry() {
        static auto* const instance = new Registry;
        return *instance;
    }
};

int DirectoryLock::wait() {
    return acquire(nullptr);
}

int DirectoryLock::wait(long milliseconds) {
    return acquire(&milliseconds);
}

int DirectoryLock::acquire(const long* milliseconds) {
    const int flags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;
    Descriptor directory =
        aboveStandardStreams(Descriptor(open(toMultibyte(path_).c_str(), flags)));
    struct stat info {};
    if (!directory || fstat(directory.get(), &info) != 0) return SYNC_FAILED;
    const Identity identity{info.st_dev, info.st_ino};

    auto& [guard, held] = Held::registry();
    std::unique_lock lock(guard);
    held_ = held[identity].lock();
    if (held_ && held_->isOurs()) return SYNC_SUCCESS;
    held_.reset();
    lock.unlock();
    if (const int status = lockWithin(directory.get(), milliseconds)) return status;
    lock.lock();
    held_ = std::make_shared<Held>(std::move(directory));
    held[identity] = held_;
    return SYNC_SUCCESS;
}

}  // namespace fscanner
