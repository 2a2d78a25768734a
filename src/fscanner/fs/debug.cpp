#include "fscanner/fs/debug.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <new>
#include <string>
#include <string_view>

#include "fscanner/fs/debug_format.h"

namespace fscanner {

bool debugInfo = false;
char debugFile[1024] = "";

namespace {

bool setPath(const char* path) {
    const std::size_t length = path != nullptr ? std::strlen(path) : sizeof debugFile;
    if (length >= sizeof debugFile) return false;
    std::memmove(debugFile, path, length + 1);  // it may be debugFile itself
    return true;
}

bool createEmpty(const char* path) {
    const int fd = open(path, O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (fd < 0) return false;
    close(fd);
    return true;
}

// One write for a line, as a rule, so that lines of several processes do not mix.
void appendToLog(std::string_view text) {
    const int fd = open(debugFile, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
    if (fd < 0) return;
    while (!text.empty()) {
        const ssize_t written = write(fd, text.data(), text.size());
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) break;
        text.remove_prefix(static_cast<std::size_t>(written));
    }
    close(fd);
}

}  // namespace

bool startDebug(const char* path) {
    debugInfo = setPath(path) && createEmpty(debugFile);
    if (!debugInfo) debugFile[0] = 0;
    return debugInfo;
}

bool startDebug() {
    return debugInfo = debugFile[0] != 0;
}

void stopDebug() {
    debugInfo = false;
}

void debug(const char* format, ...) {
    if (!debugInfo) return;
    const int savedErrno = errno;
    std::va_list arguments;
    va_start(arguments, format);
    try {
        appendToLog(formatText(format, arguments));
    } catch (const std::bad_alloc&) {
        // The line is lost, as it is when the file cannot be opened.
    }
    va_end(arguments);
    errno = savedErrno;
}

}  // namespace fscanner
