#include "fscanner/platform/small_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <limits>

#include "fscanner/common/utf8.h"
#include "fscanner/platform/descriptor.h"
#include "fscanner/platform/directory.h"

namespace fscanner {

namespace {

constexpr mode_t kPrivate = 0600;

// O_NONBLOCK: a FIFO in the file's place must not block us.
Descriptor openSafely(const char* path, int flags) {
    flags |= O_CLOEXEC | O_NONBLOCK;
    return openAt(AT_FDCWD, path, flags, kPrivate);
}

Descriptor openNamed(const std::wstring& path, int flags) {
    return openSafely(toMultibyte(path).c_str(), flags | O_NOFOLLOW);
}

Descriptor ifRegular(Descriptor file) {
    struct stat info {};
    if (file && (fstat(file.get(), &info) != 0 || !S_ISREG(info.st_mode))) return {};
    return file;
}

Descriptor openSmall(const std::wstring& path, int flags) {
    return ifRegular(openNamed(path, flags));
}

bool hasOtherNames(const Descriptor& file) {
    struct stat info {};
    return fstat(file.get(), &info) != 0 || info.st_nlink != 1;
}

// Opens the file for writing. A file with more than one name may be another user's, linked here by
// somebody so that we overwrite it. Its name here is removed, and a new file created.
Descriptor openOwn(const std::wstring& path) {
    Descriptor file = openSmall(path, O_RDWR | O_CREAT);
    if (!file || !hasOtherNames(file)) return file;
    if (unlink(toMultibyte(path).c_str()) != 0) return {};
    return openSmall(path, O_RDWR | O_CREAT | O_EXCL);
}

bool syncOpen(const Descriptor& file) {
    return file && fsync(file.get()) == 0;
}

// Reads to the end instead of by the file's size, which is 0 for files of /proc.
std::optional<std::string> readWhole(const Descriptor& file, std::size_t limit) {
    if (!file) return std::nullopt;
    std::string text;
    std::array<char, 16384> block;
    ssize_t count = 0;
    while ((count = read(file.get(), block.data(), block.size())) > 0) {
        if (static_cast<std::size_t>(count) > limit - text.size()) return std::nullopt;
        text.append(block.data(), static_cast<std::size_t>(count));
    }
    return count == 0 ? std::optional(std::move(text)) : std::nullopt;
}

}  // namespace

std::optional<std::string> readWholeFile(const char* path, std::size_t limit) {
    return readWhole(ifRegular(openSafely(path, O_RDONLY)), limit);
}

Presence presenceOf(const std::wstring& path) {
    struct stat info {};
    const auto look = [&] { return lstat(toMultibyte(path).c_str(), &info); };
    if (uninterrupted(look) == 0) return Presence::there;
    return errno == ENOENT ? Presence::absent : Presence::unknown;
}

bool isRegularFile(const std::wstring& path) {
    struct stat info {};
    return examineFile(toMultibyte(path), info) == 0 && S_ISREG(info.st_mode);
}

unsigned long long roomIn(const std::wstring& directory) {
    struct statvfs disk {};
    const auto look = [&] { return statvfs(toMultibyte(directory).c_str(), &disk); };
    if (uninterrupted(look) != 0) return 0;
    // f_bfree includes the blocks that are reserved for root.
    return (geteuid() == 0 ? disk.f_bfree : disk.f_bavail) * disk.f_frsize;
}

bool writeSmallFile(const std::wstring& path, const void* content, unsigned size) {
    Descriptor file = openOwn(path);
    if (!file || ftruncate(file.get(), 0) != 0) return false;
    // A short write to a regular file means that the disk is full.
    const bool written = size == 0 || write(file.get(), content, size) == static_cast<long>(size);
    return file.close() && written;
}

bool readSmallFile(const std::wstring& path, void* content, unsigned size) {
    const Descriptor file = openSmall(path, O_RDONLY);
    return file && read(file.get(), content, size) == static_cast<long>(size);
}

std::optional<std::string> readSmallFile(const std::wstring& path) {
    return readWhole(openSmall(path, O_RDONLY), std::numeric_limits<int>::max());
}

bool syncFile(const std::wstring& path) {
    return syncOpen(openSmall(path, O_RDONLY));
}

bool syncDirectory(const std::wstring& path) {
    return syncOpen(openNamed(path, O_RDONLY | O_DIRECTORY));
}

bool RestoredFile::open(const std::wstring& path, long long length) {
    struct stat info {};
    file_ = openSmall(path, O_RDWR);
    length_ = length;
    if (!file_ || fstat(file_.get(), &info) != 0 || info.st_size < length) return false;
    changed_ = info.st_size != length;  // appended bytes have to be cut off
    return true;
}

bool RestoredFile::put(long long offset, const void* bytes, std::size_t count) {
    changed_ = true;
    const auto write = [&] { return pwrite(file_.get(), bytes, count, offset); };
    return uninterrupted(write) == static_cast<ssize_t>(count);
}

bool RestoredFile::cut() {
    if (changed_ && uninterrupted([&] { return ftruncate(file_.get(), length_); }) != 0)
        return false;
    return syncOpen(file_);
}

}  // namespace fscanner
