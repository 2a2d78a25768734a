#include "fscanner/platform/small_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "fscanner/common/utf8.h"
#include "fscanner/platform/descriptor.h"

namespace fscanner {

namespace {

constexpr mode_t kPrivate = 0600;

Descriptor openNamed(const std::wstring& path, int flags) {
    const int safely = O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK;
    return aboveStandardStreams(
        Descriptor(open(toMultibyte(path).c_str(), flags | safely, kPrivate)));
}

Descriptor openSmall(const std::wstring& path, int flags) {
    Descriptor file = openNamed(path, flags);
    struct stat info {};
    if (file && (fstat(file.get(), &info) != 0 || !S_ISREG(info.st_mode))) return {};
    return file;
}

bool syncOpen(const Descriptor& file) {
    return file && fsync(file.get()) == 0;
}

}  // namespace

bool nameExists(const std::wstring& path) {
    struct stat info {};
    return lstat(toMultibyte(path).c_str(), &info) == 0;
}

bool writeSmallFile(const std::wstring& path, const void* content, unsigned size) {
    Descriptor file = openSmall(path, O_RDWR | O_CREAT);
    if (!file || ftruncate(file.get(), 0) != 0) return false;
    const bool written = size == 0 || write(file.get(), content, size) == static_cast<long>(size);
    return file.close() && written;
}

bool readSmallFile(const std::wstring& path, void* content, unsigned size) {
    const Descriptor file = openSmall(path, O_RDONLY);
    return file && read(file.get(), content, size) == static_cast<long>(size);
}

bool syncFile(const std::wstring& path) {
    return syncOpen(openSmall(path, O_RDONLY));
}

bool syncDirectory(const std::wstring& path) {
    return syncOpen(openNamed(path, O_RDONLY | O_DIRECTORY));
}

}  // namespace fscanner
