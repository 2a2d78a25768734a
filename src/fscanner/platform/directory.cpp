#include "fscanner/platform/directory.h"

#include <dirent.h>
#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstring>

namespace fscanner {

namespace {

constexpr int kListFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK;
// For directories that are only passed through: O_PATH needs no read permission.
constexpr int kPassFlags = O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
// A larger buffer is freed by `clear`, so that one huge directory does not occupy memory for long.
constexpr std::size_t kKeepCapacity = 1024 * 1024;
// The bytes behind each packed name: terminator, type, and length.
constexpr std::size_t kTail = 2 + sizeof(std::uint16_t);

// A record of getdents64 (linux_dirent64), which glibc does not declare.
struct LinuxDirent {
    ino64_t inode;
    off64_t offset;
    unsigned short length;
    unsigned char type;
    char name[1];
};

EntryType entryType(unsigned type) {
    switch (type) {
        case DT_REG:
            return EntryType::file;
        case DT_DIR:
            return EntryType::directory;
        case DT_LNK:
            return EntryType::link;
        case DT_FIFO:
            return EntryType::pipe;
        case DT_SOCK:
            return EntryType::socket;
        case DT_BLK:
            return EntryType::blockDevice;
        case DT_CHR:
            return EntryType::characterDevice;
        default:
            return EntryType::unknown;
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

constexpr int flagsFor(DirectoryUse use, LinkUse links = LinkUse::refuse) {
    const int flags = use == DirectoryUse::list ? kListFlags : kPassFlags;
    return links == LinkUse::refuse ? flags : flags & ~O_NOFOLLOW;
}

// Opens one component after the other, for kernels without openat2. O_NOFOLLOW covers only the
// last component of a path, so each component needs a call of its own.
Descriptor openByComponents(int start, const char* path, int flags) {
    const bool absolute = *path == '/';
    path += std::strspn(path, "/");
    Descriptor directory = openAt(start, absolute ? "/" : ".", *path ? kPassFlags : flags);
    std::string component;
    while (directory && *path) {
        const std::size_t length = std::strcspn(path, "/");
        component.assign(path, length);
        path += length;
        path += std::strspn(path, "/");
        directory = openAt(directory.get(), component.c_str(), *path ? kPassFlags : flags);
    }
    return directory;
}

// Without O_NOFOLLOW among the flags, links are followed everywhere in the path.
Descriptor openPiece(int start, const char* path, int flags) {
    if ((flags & O_NOFOLLOW) == 0) return openAt(start, path, flags);
    open_how how{};
    how.flags = static_cast<unsigned>(flags);
    how.resolve = RESOLVE_NO_SYMLINKS;
    const long descriptor =
        uninterrupted([&] { return syscall(SYS_openat2, start, path, &how, sizeof how); });
    if (descriptor >= 0) return aboveStandardStreams(Descriptor(static_cast<int>(descriptor)));
    // Some sandboxes answer EPERM for a system call that they do not know.
    const bool unsupported = errno == ENOSYS || errno == EPERM;
    return unsupported ? openByComponents(start, path, flags) : Descriptor();
}

// Removes from the front of `path` as many whole components as one system call accepts, and
// returns them. When there is no "/" to cut at, the whole path is returned; the call then fails
// with ENAMETOOLONG.
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
        directory = openPiece(directory ? directory.get() : AT_FDCWD, piece.c_str(),
                              path.empty() ? flags : kPassFlags & (flags | ~O_NOFOLLOW));
    } while (directory && !path.empty());
    return directory;
}

// The arguments by which an "at" call reaches a file: normally AT_FDCWD and the path. A path that
// is too long for one call is split into its directory, which is opened, and its last name.
class FileAddress {
public:
    explicit FileAddress(std::string_view path) : name_(path) {
        const std::size_t slash = path.rfind('/');
        if (path.size() < PATH_MAX || slash == path.npos) return;
        directory_ = openLong(path.substr(0, slash), kPassFlags);
        at_ = directory_.get();
        name_.erase(0, slash + 1);
    }
    /// False, with errno, when the directory cannot be opened.
    bool found() const { return at_ == AT_FDCWD || directory_; }
    int at() const { return at_; }
    const char* name() const { return name_.c_str(); }

private:
    Descriptor directory_;
    int at_ = AT_FDCWD;
    std::string name_;
};

}  // namespace

EntryType entryTypeOf(const struct stat& info) {
    return entryType(IFTODT(info.st_mode));
}

int examineFileAt(int directory, const char* name, struct stat& info) {
    const auto examine = [&] { return fstatat(directory, name, &info, AT_SYMLINK_NOFOLLOW); };
    return uninterrupted(examine) == 0 ? 0 : errno;
}

Descriptor openDirectoryWithoutLinks(const char* path, DirectoryUse use) {
    return openLong(path, flagsFor(use));
}

void DirectoryEntries::clear() {
    if (data_.size() > kKeepCapacity) data_ = std::vector<char>();
    end_ = 0;
}

// The length has two bytes because some file systems return names of more than 255 bytes.
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

bool DirectoryEntries::before(std::size_t& place, Entry& entry) const {
    if (place == 0) return false;
    const char* tail = data_.data() + place - kTail;
    std::uint16_t length = 0;
    std::memcpy(&length, tail + 2, sizeof length);
    entry.type = static_cast<EntryType>(tail[1]);
    entry.name = std::string_view(tail - length, length);
    place -= length + kTail;
    return true;
}

int Directory::openPath(const char* path, DirectoryUse use, LinkUse links) {
    descriptor_ = openLong(path, flagsFor(use, links));
    return descriptor_ ? 0 : errno;
}

int Directory::openChild(const Directory& parent, const char* name, DirectoryUse use,
                         LinkUse links) {
    return openChild(parent.descriptor_.get(), name, use, links);
}

int Directory::openChild(int descriptor, const char* name, DirectoryUse use, LinkUse links) {
    descriptor_ = openAt(descriptor, name, flagsFor(use, links));
    return descriptor_ ? 0 : errno;
}

int Directory::openBelow(const Directory& start, const char* path, DirectoryUse use) {
    descriptor_ = openPiece(start.descriptor(), path, flagsFor(use));
    return descriptor_ ? 0 : errno;
}

int Directory::openParent(const Directory& child) {
    return openChild(child, "..");
}

// getdents64 directly: readdir would allocate a stream for each directory, and its buffer could not
// be chosen.
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

int Directory::statTarget(const char* name, struct stat& info) const {
    const auto examine = [&] { return fstatat(descriptor_.get(), name, &info, 0); };
    return uninterrupted(examine) == 0 ? 0 : errno;
}

int Directory::identify(Identity& identity) const {
    struct stat info {};
    if (const int error = examine(info)) return error;
    identity = {info.st_dev, info.st_ino};
    return 0;
}

int Directory::examine(struct stat& info) const {
    return uninterrupted([&] { return fstat(descriptor_.get(), &info); }) == 0 ? 0 : errno;
}

int Directory::examine(struct stat& info, bool& encrypted) const {
    struct statx told {};
    constexpr unsigned wanted = STATX_INO | STATX_CTIME | STATX_MTIME;
    const auto ask = [&] { return statx(descriptor_.get(), "", AT_EMPTY_PATH, wanted, &told); };
    if (uninterrupted(ask) != 0) return errno;
    info.st_dev = makedev(told.stx_dev_major, told.stx_dev_minor);
    info.st_ino = told.stx_ino;
    info.st_ctim = {told.stx_ctime.tv_sec, told.stx_ctime.tv_nsec};
    info.st_mtim = {told.stx_mtime.tv_sec, told.stx_mtime.tv_nsec};
    encrypted = (told.stx_attributes & STATX_ATTR_ENCRYPTED) != 0;
    return 0;
}

std::string Directory::realPath() const {
    std::array<char, PATH_MAX> target;
    const std::string link = "/proc/self/fd/" + std::to_string(descriptor_.get());
    const long size = readLinkTarget(link, target);
    return size > 0 ? std::string(target.data(), static_cast<std::size_t>(size)) : std::string();
}

int Directory::fileSystemType(std::uint32_t& type) const {
    struct statfs info {};
    if (uninterrupted([&] { return fstatfs(descriptor_.get(), &info); }) != 0) return errno;
    type = static_cast<std::uint32_t>(info.f_type);
    return 0;
}

int examineFile(std::string_view path, struct stat& info) {
    const FileAddress file(path);
    return file.found() ? examineFileAt(file.at(), file.name(), info) : errno;
}

long readLinkTarget(std::string_view path, std::span<char> target) {
    const FileAddress file(path);
    return file.found() ? readlinkat(file.at(), file.name(), target.data(), target.size()) : -1;
}

int examineDirectory(const char* path, bool& isDirectory) {
    struct stat info {};
    isDirectory = false;
    if (const int error = examineFile(path, info)) return error;
    isDirectory = S_ISDIR(info.st_mode);
    return 0;
}

}  // namespace fscanner
