#include "fscan/output/backlog.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace fscan {

namespace {

constexpr std::size_t memoryBound = 8 << 20;
constexpr std::size_t pieceSize = 1 << 20;

}  // namespace

bool Backlog::add(std::string_view text) {
    const bool inMemory = kept_ == given_ && front_.size() - taken_ + text.size() <= memoryBound;
    if (!inMemory) return write(text);
    // All of it at once: pages that stay unused cost nothing, and nothing is copied to grow.
    front_.reserve(2 * memoryBound);
    if (taken_ > memoryBound) {
        front_.erase(0, taken_);
        taken_ = 0;
    }
    front_ += text;
    return true;
}

// Bytes that a full disk did not take are written over by the next ones.
bool Backlog::write(std::string_view text) {
    if (!file_) {
        file_.reset(std::tmpfile());
        if (!file_ || fcntl(fileno(file_.get()), F_SETFD, FD_CLOEXEC) != 0) return false;
    }
    off_t at = kept_;
    while (!text.empty()) {
        const ssize_t written = pwrite(fileno(file_.get()), text.data(), text.size(), at);
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return false;
        at += written;
        text.remove_prefix(static_cast<std::size_t>(written));
    }
    kept_ = at;
    return true;
}

std::string_view Backlog::front() {
    if (taken_ == front_.size() && kept_ > given_) {
        front_.resize(std::min(pieceSize, static_cast<std::size_t>(kept_ - given_)));
        taken_ = 0;
        ssize_t got = 0;
        do {
            got = pread(fileno(file_.get()), front_.data(), front_.size(), given_);
        } while (got < 0 && errno == EINTR);
        if (got == 0) errno = EIO;  // somebody cut the file
        front_.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
        given_ += static_cast<off_t>(front_.size());
    }
    return std::string_view(front_).substr(taken_);
}

void Backlog::drop(std::size_t size) {
    taken_ += size;
    if (taken_ < front_.size() || kept_ > given_) return;
    // All is taken: what comes next begins in memory again.
    front_.clear();
    taken_ = 0;
    given_ = kept_ = 0;
    file_.reset();
}

}  // namespace fscan
