#include "fscanner/platform/linuxsync.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <thread>

#include "fscanner/platform/sync_registry.h"

namespace fscanner {

struct MutexRecord : SyncRecord {
    MutexRecord() { init(); }
    ~MutexRecord() { destroy(); }

    bool locked = false;
};

namespace {

constexpr long tryInterval = 100;  // milliseconds

constinit SyncRegistry<MutexRecord> mutexes;

int lockRecord(MutexRecord& record, const timespec* deadline) {
    PthreadLock lock(record.mutex);
    const int error = waitWhile(record, deadline, [&] { return record.locked; });
    if (error != 0) return deadline && error == ETIMEDOUT ? SYNC_TIMED_OUT : SYNC_FAILED;
    record.locked = true;
    return SYNC_SUCCESS;
}

/// /tmp is everybody's: a file that another user put there, or made a name of
/// something else, must not become our lock.
bool isTrusted(int descriptor) {
    struct stat status {};
    if (fstat(descriptor, &status) != 0) return false;
    // No link at all: its last user has just unlinked it, which he does to every lock file.
    return S_ISREG(status.st_mode) && status.st_nlink <= 1 &&
           (status.st_uid == geteuid() || status.st_uid == 0);
}

Descriptor openLockFile(const char* path) {
    const int flags = O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;
    Descriptor file = aboveStandardStreams(Descriptor(::open(path, flags, 0600)));
    if (!file || !isTrusted(file.get())) return {};
    return file;
}

}  // namespace

LinuxMutex::LinuxMutex(const char* name) {
    if (!name) return;
    name_ = name;
    record_ = mutexes.acquire(name_, created_);
}

LinuxMutex::~LinuxMutex() {
    if (record_) mutexes.drop(name_);
}

int LinuxMutex::release() {
    if (!record_) return SYNC_FAILED;
    {
        PthreadLock lock(record_->mutex);
        record_->locked = false;
    }
    pthread_cond_signal(&record_->condition);
    return SYNC_SUCCESS;
}

int LinuxMutex::wait() {
    return record_ ? lockRecord(*record_, nullptr) : SYNC_FAILED;
}

int LinuxMutex::wait(long milliseconds) {
    const timespec deadline = syncDeadline(milliseconds);
    return record_ ? lockRecord(*record_, &deadline) : SYNC_FAILED;
}

char LinuxSharedMutex::storePath[1024] = "/tmp/";

LinuxSharedMutex::LinuxSharedMutex(const char* name) {
    if (!name) return;
    path_ = std::string(storePath) + name;
    file_ = openLockFile(path_.c_str());
}

LinuxSharedMutex::~LinuxSharedMutex() {
    file_.close();
    if (!path_.empty()) ::unlink(path_.c_str());
}

int LinuxSharedMutex::release() {
    return file_ ? lockf(file_.get(), F_ULOCK, 0) : -1;
}

int LinuxSharedMutex::wait() {
    if (!file_) return SYNC_FAILED;
    return lockf(file_.get(), F_LOCK, 0) == 0 ? SYNC_SUCCESS : SYNC_FAILED;
}

int LinuxSharedMutex::wait(long milliseconds) {
    if (!file_) return SYNC_FAILED;
    long tries = milliseconds / tryInterval + (milliseconds % tryInterval >= 1 ? 1 : 0);
    for (; tries >= 1; --tries) {
        if (lockf(file_.get(), F_TLOCK, 0) == 0) return SYNC_SUCCESS;
        if (errno != EAGAIN && errno != EACCES) return SYNC_FAILED;
        std::this_thread::sleep_for(std::chrono::milliseconds(tryInterval));
    }
    return SYNC_TIMED_OUT;
}

bool LinuxSharedMutex::setStorePath(const char* path) {
    if (!path) return false;
    const std::size_t length = std::strlen(path);
    const bool closed = length > 0 && path[length - 1] == '/';
    if (closed && length >= sizeof storePath) return true;
    if (!closed && length > sizeof storePath - 2) return false;
    std::memcpy(storePath, path, length + 1);
    if (!closed) std::memcpy(storePath + length, "/", 2);
    return true;
}

}  // namespace fscanner
