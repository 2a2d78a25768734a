#include "fscanner/platform/descriptor.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

namespace fscanner {

namespace {

constexpr int kFirstOwnDescriptor = STDERR_FILENO + 1;

bool isRegular(int fd) {
    struct stat info;
    if (::fstat(fd, &info) != 0) return false;
    if (S_ISREG(info.st_mode)) return true;
    errno = S_ISDIR(info.st_mode) ? EISDIR : EINVAL;
    return false;
}

}  // namespace

Descriptor::Descriptor(Descriptor&& other) noexcept : fd_(other.release()) {}

Descriptor& Descriptor::operator=(Descriptor&& other) noexcept {
    if (this == &other) return *this;
    close();
    fd_ = other.release();
    return *this;
}

int Descriptor::release() {
    return std::exchange(fd_, -1);
}

bool Descriptor::close() {
    if (fd_ < 0) return false;
    const int reason = errno;  // a destructor must not change the errno of a failed call
    const bool closed = ::close(release()) == 0;
    if (closed) errno = reason;
    return closed;
}

// Otherwise the host's error messages could be written to a data file on descriptor 2.
Descriptor aboveStandardStreams(Descriptor file) {
    if (!file || file.get() >= kFirstOwnDescriptor) return file;
    return Descriptor(::fcntl(file.get(), F_DUPFD_CLOEXEC, kFirstOwnDescriptor));
}

Descriptor openAt(int directory, const char* path, int flags, mode_t permissions) {
    return aboveStandardStreams(Descriptor(
        uninterrupted([&] { return ::openat(directory, path, flags | O_CLOEXEC, permissions); })));
}

Descriptor openRegularFile(const char* path, OpenMode mode, mode_t permissions) {
    const int create = mode == OpenMode::emptied ? O_CREAT : 0;
    // No O_TRUNC: the file is truncated below, once it is known to be regular. O_NONBLOCK keeps
    // the opening of a FIFO from waiting for its other end.
    const int flags = O_RDWR | O_NONBLOCK | O_NOCTTY | create;
    Descriptor file = openAt(AT_FDCWD, path, flags, permissions);
    if (!file || !isRegular(file.get())) return {};
    if (mode == OpenMode::emptied && ::ftruncate(file.get(), 0) != 0) return {};
    return file;
}

}  // namespace fscanner
