#include "fscanner/platform/linuxsync.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <thread>

namespace fscanner {

namespace {

constexpr long kTryInterval = 100;  // milliseconds

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
    Descriptor file = openAt(AT_FDCWD, path, flags, 0600);
    if (!file || !isTrusted(file.get())) return {};
    return file;
}

}  // namespace

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
    const int locked = uninterrupted([this] { return lockf(file_.get(), F_LOCK, 0); });
    return locked == 0 ? SYNC_SUCCESS : SYNC_FAILED;
}

int LinuxSharedMutex::wait(long milliseconds) {
    if (!file_) return SYNC_FAILED;
    long tries = milliseconds / kTryInterval + (milliseconds % kTryInterval >= 1 ? 1 : 0);
    for (; tries >= 1; --tries) {
        const int locked = uninterrupted([this] { return lockf(file_.get(), F_TLOCK, 0); });
        if (locked == 0) return SYNC_SUCCESS;
        if (errno != EAGAIN && errno != EACCES) return SYNC_FAILED;
        std::this_thread::sleep_for(std::chrono::milliseconds(kTryInterval));
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
