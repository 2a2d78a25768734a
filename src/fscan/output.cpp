#include "output.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>

#include "escape.h"
#include "interruption.h"

namespace fscan {

namespace {
constexpr std::size_t pieceSize = 64 * 1024;

/// Whoever shares the descriptor may have made it one that does not wait. A signal ends
/// the wait, and the next write meets it.
void waitForRoom(int descriptor) {
    pollfd wait{descriptor, POLLOUT, 0};
    poll(&wait, 1, -1);
}

}  // namespace

Output::Output(int descriptor) : descriptor_(descriptor), terminal_(isatty(descriptor) == 1) {
    buffer_.reserve(2 * pieceSize);
}

void Output::write(std::string_view text) {
    buffer_ += text;
    if (buffer_.size() >= pieceSize) flush();
}

void Output::writeForeign(std::string_view text) {
    if (terminal_)
        write(escaped(text));
    else
        write(text);
}

void Output::endRecord() {
    if (terminal_) flush();
}

void Output::flush() {
    std::string_view rest = buffer_;
    while (!rest.empty() && error_ == 0) {
        const ssize_t written = ::write(descriptor_, rest.data(), rest.size());
        if (written >= 0)
            rest.remove_prefix(static_cast<std::size_t>(written));
        else if (errno == EAGAIN)
            waitForRoom(descriptor_);
        else if (errno != EINTR || Interruption::pending())
            error_ = errno;
    }
    buffer_.clear();
}

void guardStandardDescriptors() {
    for (int descriptor = 0; descriptor <= 2; ++descriptor) {
        if (fcntl(descriptor, F_GETFD) != -1) continue;
        // The lowest free descriptor is this one. Opened the wrong way round:
        // reading standard input and writing the others fail, as if closed.
        const int opened = open("/dev/null", descriptor == 0 ? O_WRONLY : O_RDONLY);
        if (opened == -1) _exit(127);
    }
}

}  // namespace fscan
