#pragma once

#include <sys/types.h>

#include <cerrno>

namespace fscanner {

/// Owns an open file descriptor and closes it when destroyed. Move-only.
class Descriptor {
public:
    Descriptor() = default;
    explicit Descriptor(int fd) : fd_(fd) {}
    Descriptor(Descriptor&& other) noexcept;
    Descriptor& operator=(Descriptor&& other) noexcept;
    ~Descriptor() { close(); }

    int get() const { return fd_; }
    explicit operator bool() const { return fd_ >= 0; }
    /// Gives up ownership: returns the descriptor without closing it.
    int release();
    /// False when nothing is open, or the system reports an error. The descriptor
    /// is closed even after an error, because Linux frees it first. errno changes only
    /// on failure.
    bool close();

private:
    int fd_ = -1;
};

/// Makes the system call `call`, again as long as a signal interrupts it, and returns its result.
template <class Call>
auto uninterrupted(Call call) {
    auto result = call();
    while (result < 0 && errno == EINTR) result = call();
    return result;
}

/// `openat`, repeated when a signal interrupts it. The descriptor is above the standard streams
/// and close-on-exec. Empty, with errno, on failure.
Descriptor openAt(int directory, const char* path, int flags, mode_t permissions = 0);

/// Returns `file` under a descriptor above the standard streams (0 to 2), which the
/// host may have closed. Empty, with errno, when no descriptor is free.
Descriptor aboveStandardStreams(Descriptor file);

enum class OpenMode { existing, emptied };

/// Opens a file for reading and writing; `emptied` creates it with `permissions` or
/// truncates it. Only regular files are accepted; a FIFO or a device is refused
/// without waiting. The descriptor is above the standard streams and close-on-exec.
/// Empty, with errno, on failure.
Descriptor openRegularFile(const char* path, OpenMode mode, mode_t permissions);

}  // namespace fscanner
