#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <string>
#include <utility>

namespace fscanner::monitor {

/// Owns an open file descriptor. Move-only.
class Descriptor {
public:
    Descriptor() = default;
    explicit Descriptor(int fd) : fd_(fd) {}
    Descriptor(Descriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        std::swap(fd_, other.fd_);
        return *this;
    }
    ~Descriptor() {
        if (fd_ >= 0) ::close(fd_);
    }

    int get() const { return fd_; }
    explicit operator bool() const { return fd_ >= 0; }
    /// A path that leads to the open file itself, wherever it is now.
    std::string link() const { return "/proc/self/fd/" + std::to_string(fd_); }

private:
    int fd_ = -1;
};

/// Opens the directory with this path, of any length. A link at its end is not followed. Empty,
/// with errno, on failure. `flags` are added: O_PATH, or O_RDONLY to list it.
Descriptor openDirectory(const std::string& path, int flags);

}  // namespace fscanner::monitor
