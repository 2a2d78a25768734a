#pragma once

#include <sys/types.h>

#include <cerrno>

namespace fscanner {

/// An open file descriptor, closed when its owner goes. Move-only.
class Descriptor {
public:
    Descriptor() = default;
    explicit Descriptor(int fd) : fd_(fd) {}
    Descriptor(Descriptor&& other) noexcept;
    Descriptor& operator=(Descriptor&& other) noexcept;
    ~Descriptor() { close(); }

    int get() const { return fd_; }
    explicit operator bool() const { return fd_ >= 0; }
    /// Gives the descriptor away without closing it.
    int release();
    /// False when nothing is open, or the system reports an error. The descriptor
    /// is gone in either case: Linux frees it before it reports.
    bool close();

private:
    int fd_ = -1;
};

/// What `call` gives, a system call that is repeated as long as a signal interrupts it.
template <class Call>
auto uninterrupted(Call call) {
    auto result = call();
    while (result < 0 && errno == EINTR) result = call();
    return result;
}

/// `openat`, repeated where a signal interrupts it: closed in programs that are run, and under
/// a descriptor that is not one of the standard streams'. Empty, with errno, where it fails.
Descriptor openAt(int directory, const char* path, int flags, mode_t permissions = 0);

/// The same file under a descriptor that is not one of the standard streams', which
/// the host may have closed. Empty, with errno, when there is none.
Descriptor aboveStandardStreams(Descriptor file);

enum class OpenMode { existing, emptied };

/// Opens a file for reading and writing; `emptied` makes it with `permissions` or
/// truncates it. Only regular files are opened, and a FIFO or a device is refused
/// without a wait. The descriptor is never one of the standard streams', which
/// the host may have closed, and is not inherited. Empty, with errno, on failure.
Descriptor openRegularFile(const char* path, OpenMode mode, mode_t permissions);

}  // namespace fscanner
