#include "fscan/process/scratch_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

namespace fscan {

// Bytes that were written before a disk was full are overwritten by the next ones.
bool ScratchFile::append(std::string_view text) {
    if (!file_) {
        file_.reset(std::tmpfile());
        if (!file_ || fcntl(fileno(file_.get()), F_SETFD, FD_CLOEXEC) != 0) return false;
    }
    off_t at = size_;
    while (!text.empty()) {
        const ssize_t written = pwrite(fileno(file_.get()), text.data(), text.size(), at);
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return false;
        at += written;
        text.remove_prefix(static_cast<std::size_t>(written));
    }
    size_ = at;
    return true;
}

bool ScratchFile::read(off_t offset, std::span<char> to) const {
    while (!to.empty()) {
        const ssize_t got = pread(fileno(file_.get()), to.data(), to.size(), offset);
        if (got < 0 && errno == EINTR) continue;
        if (got == 0) errno = EIO;  // another process cut the file
        if (got <= 0) return false;
        offset += got;
        to = to.subspan(static_cast<std::size_t>(got));
    }
    return true;
}

}  // namespace fscan
