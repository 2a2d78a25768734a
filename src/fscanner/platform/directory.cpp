#include "fscanner/platform/directory.h"

#include <dirent.h>
#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstring>

namespace fscanner {

namespace {

constexpr int kOpenFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK;
// For directories on the way, which need not be readable.
constexpr int kPassFlags = O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
// A buffer that one huge directory has grown is given back beyond this size.
constexpr std::size_t kKeepCapacity = 1024 * 1024;
// Behind each packed name: its terminator, the type and the length.
constexpr std::size_t kTail = 2 + sizeof(std::uint16_t);

// The kernel's record, which glibc does not declare.
struct LinuxDirent {
    ino64_t inode;
    off64_t offset;
    unsigned short length;
    unsigned char type;
    char name[1];
};

EntryType entryType(unsigned char type) {
    switch (type) {
        case DT_DIR:
            return EntryType::directory;
        case DT_UNKNOWN:
            return EntryType::unknown;
        default:
            return EntryType::other;
    }
}

bool isDotEntry(const char* name) {
    return name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'));
}

void addRecords(const char* buffer, std::size_t size, DirectoryEntries& entries) {
    for (std::size_t at = 0; at < size;) {
        const char* record = buffer + at;
        unsigned short length = 0;
        std::memcpy(&length, record + offsetof(LinuxDirent, length), sizeof length);
        const char* name = record + offsetof(LinuxDirent, name);
        if (!isDotEntry(name)) {
            const auto type = static_cast<unsigned char>(record[offsetof(LinuxDirent, type)]);
            entries.add(name, entryType(type));
        }
        at += length;
    }
}

Descriptor openBeside(int parent, const char* name, int flags = kOpenFlags) {
    return openAt(parent, name, flags);
}

// Where the kernel has no openat2: one component after the other.
Descriptor openByComponents(int start, const char* path, int flags) {
    const bool absolute = *path == '/';
    path += std::strspn(path, "/");
    Descriptor directory = openBeside(start, absolute ? "/" : ".", *path ? kPassFlags : flags);
    std::string component;
    while (directory && *path) {
        const std::size_t length = std::strcspn(path, "/");
        component.assign(path, length);
        path += length;
        path += std::strspn(path, "/");
        directory = openBeside(directory.get(), component.c_str(), *path ? kPassFlags : flags);
    }
    return directory;
}

Descriptor openWithoutLinks(int start, const char* path, int flags) {
    open_how how{};
    how.flags = static_cast<unsigned>(flags);
    how.resolve = RESOLVE_NO_SYMLINKS;
    const long descriptor =
        uninterrupted([&] { return syscall(SYS_openat2, start, path, &how, sizeof how); });
    if (descriptor >= 0) return aboveStandardStreams(Descriptor(static_cast<int>(descriptor)));
    // EPERM is what some sandboxes say of a call that they do not know.
    const bool unsupported = errno == ENOSYS || errno == EPERM;
    return unsupported ? openByComponents(start, path, flags) : Descriptor();
}

// Takes as much off the front of a path as one call can open: whole components, and all of
// the path where it is short enough. What has no "/" to cut it at is left to the call, which
// refuses it.
std::string takePiece(std::string_view& path) {
    const std::size_t cut = path.size() < PATH_MAX ? path.npos : path.rfind('/', PATH_MAX - 1);
    std::string piece(path.substr(0, cut == 0 ? path.npos : cut));
    path.remove_prefix(piece.size());
    path.remove_prefix(std::min(path.find_first_not_of('/'), path.size()));
    return piece;
}

Descriptor openLong(std::string_view path, int flags) {
    Descriptor directory;
    do {
        const std::string piece = takePiece(path);
        directory = openWithoutLinks(directory ? directory.get() : AT_FDCWD, piece.c_str(),
                                     path.empty() ? flags : kPassFlags);
    } while (directory && !path.empty());
    return directory;
}

// How one call reaches a file: by its path, or by its name in a directory that is opened
// first where the path is too long for a call.
class Place {
public:
    explicit Place(std::string_view path) : name_(path) {
        const std::size_t slash = path.rfind('/');
        if (path.size() < PATH_MAX || slash == path.npos) return;
        directory_ = openLong(path.substr(0, slash), kPassFlags);
        at_ = directory_.get();
        name_.erase(0, slash + 1);
    }
    /// False, with errno, when that directory cannot be opened.
    bool found() const { return at_ == AT_FDCWD || directory_; }
    int at() const { return at_; }
    const char* name() const { return name_.c_str(); }

private:
    Descriptor directory_;
    int at_ = AT_FDCWD;
    std::string name_;
};

}  // namespace

int examineFileAt(int directory, const char* name, struct stat& info) {
    const auto examine = [&] { return fstatat(directory, name, &info, AT_SYMLINK_NOFOLLOW); };
    return uninterrupted(examine) == 0 ? 0 : errno;
}

Descriptor openDirectoryWithoutLinks(const char* path, DirectoryUse use) {
    return openLong(path, use == DirectoryUse::list ? kOpenFlags : kPassFlags);
}

void DirectoryEntries::clear() {
    if (data_.size() > kKeepCapacity) data_ = std::string();
    end_ = 0;
}

// The length takes two bytes: some file systems deliver names of more than 255.
void DirectoryEntries::add(std::string_view name, EntryType type) {
    const auto length = static_cast<std::uint16_t>(name.size());
    const std::size_t needed = end_ + length + kTail;
    if (data_.size() < needed + kReadableBehind) data_.resize(needed + needed / 2 + 256);
    char* at = data_.data() + end_;
    std::memcpy(at, name.data(), length);
    at[length] = '\0';
    at[length + 1] = static_cast<char>(type);
    std::memcpy(at + length + 2, &length, sizeof length);
    end_ = needed;
}

bool DirectoryEntries::takeLast(Entry& entry) {
    if (end_ == 0) return false;
    const char* tail = data_.data() + end_ - kTail;
    std::uint16_t length = 0;
    std::memcpy(&length, tail + 2, sizeof length);
    entry.type = static_cast<EntryType>(tail[1]);
    entry.name = std::string_view(tail - length, length);
    end_ -= length + kTail;
    return true;
}

int Directory::openPath(const char* path) {
    descriptor_ = openDirectoryWithoutLinks(path);
    return descriptor_ ? 0 : errno;
}

int Directory::openChild(const Directory& parent, const char* name) {
    descriptor_ = openBeside(parent.descriptor_.get(), name);
    return descriptor_ ? 0 : errno;
}

int Directory::openParent(const Directory& child) {
    return openChild(child, "..");
}

int Directory::read(DirectoryEntries& entries, std::span<char> buffer) const {
    entries.clear();
    for (;;) {
        const long size = syscall(SYS_getdents64, descriptor_.get(), buffer.data(),
                                  static_cast<unsigned>(buffer.size()));
        if (size < 0 && errno == EINTR) continue;
        if (size < 0) return errno;
        if (size == 0) return 0;
        addRecords(buffer.data(), static_cast<std::size_t>(size), entries);
    }
}

int Directory::statEntry(const char* name, struct stat& info) const {
    return examineFileAt(descriptor_.get(), name, info);
}

int Directory::identify(Identity& identity) const {
    struct stat info {};
    if (fstat(descriptor_.get(), &info) != 0) return errno;
    identity = {info.st_dev, info.st_ino};
    return 0;
}

int examineFile(std::string_view path, struct stat& info) {
    const Place place(path);
    return place.found() ? examineFileAt(place.at(), place.name(), info) : errno;
}

long readLinkTarget(std::string_view path, std::span<char> target) {
    const Place place(path);
    return place.found() ? readlinkat(place.at(), place.name(), target.data(), target.size()) : -1;
}

int examineDirectory(const char* path, bool& isDirectory) {
    struct stat info {};
    isDirectory = false;
    if (const int error = examineFile(path, info)) return error;
    isDirectory = S_ISDIR(info.st_mode);
    return 0;
}

}  // namespace fscanner
