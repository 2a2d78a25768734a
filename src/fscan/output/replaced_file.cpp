#include "fscan/output/replaced_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

namespace fscan {

namespace {

int writeAll(int file, std::string_view content) {
    while (!content.empty()) {
        const ssize_t written = ::write(file, content.data(), content.size());
        if (written < 0 && errno != EINTR) return errno;
        if (written > 0) content.remove_prefix(static_cast<std::size_t>(written));
    }
    return 0;
}

int writeAndClose(int file, std::string_view content) {
    if (file < 0) return errno;
    const int error = writeAll(file, content);
    return ::close(file) != 0 && error == 0 ? errno : error;
}

mode_t newFileMode() {
    const mode_t mask = ::umask(0);
    ::umask(mask);
    return 0666 & ~mask;
}

}  // namespace

int replaceFile(const std::string& path, std::string_view content) {
    struct stat there {};
    const bool exists = ::stat(path.c_str(), &there) == 0;
    if (exists && !S_ISREG(there.st_mode))
        return writeAndClose(::open(path.c_str(), O_WRONLY | O_CLOEXEC), content);
    std::string fresh = path + ".XXXXXX";
    const int file = ::mkostemp(fresh.data(), O_CLOEXEC);
    if (file < 0) return errno;
    const bool readable = ::fchmod(file, exists ? there.st_mode & 0777 : newFileMode()) == 0;
    int error = readable ? 0 : errno;
    const int written = writeAndClose(file, content);
    if (error == 0) error = written;
    if (error == 0 && ::rename(fresh.c_str(), path.c_str()) != 0) error = errno;
    if (error != 0) ::unlink(fresh.c_str());
    return error;
}

}  // namespace fscan
