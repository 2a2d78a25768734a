#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "fscanner/platform/descriptor.h"

struct stat;

namespace fscanner {

/// The type of a directory entry as the directory reports it, without a stat. Each has a bit of its
/// own, so that they form sets.
enum class EntryType : unsigned char {
    unknown = 0,
    file = 1,
    directory = 2,
    link = 4,
    pipe = 8,
    socket = 16,
    blockDevice = 32,
    characterDevice = 64
};

/// The type that an examined file has; `unknown` for a kind that only some systems know.
EntryType entryTypeOf(const struct stat& info);

/// The entries of one directory, packed one behind the other and taken from the
/// last to the first, which is the order that scans promise. `Directory::read` leaves
/// "." and ".." out.
///
/// A record is the name, its terminator, the type and the name's length. As the length
/// comes last, reading backwards needs no table of offsets.
class DirectoryEntries {
public:
    /// This many bytes behind a name are readable, so that comparisons can load whole blocks.
    /// Their values are unspecified.
    static constexpr std::size_t kReadableBehind = 32;

    /// One entry; the name is terminated and valid until the next change.
    struct Entry {
        std::string_view name;
        EntryType type = EntryType::unknown;
    };

    void clear();
    /// `name` is shorter than 64 KiB.
    void add(std::string_view name, EntryType type);
    bool empty() const { return end_ == 0; }
    /// Takes the last entry; false when none is left.
    bool takeLast(Entry& entry) { return before(end_, entry); }

    /// A place between two entries, for reading without taking: at first behind the last one.
    std::size_t end() const { return end_; }
    /// Reads the entry before the place, and moves the place before it. False at the first one.
    bool before(std::size_t& place, Entry& entry) const;
    /// The bytes of memory in use.
    std::size_t bytes() const { return data_.capacity(); }

private:
    std::vector<char> data_;  // not a string: one that is moved to may keep its memory
    std::size_t end_ = 0;
};

/// The purpose of opening a directory: to list it, or only to reach its entries, which needs no
/// read permission.
enum class DirectoryUse { list, reach };

/// What is done with a symbolic link on the way to a directory. Links are followed only where the
/// user asks for it: who may make a link could lead us elsewhere.
enum class LinkUse { refuse, follow };

/// An open directory, move-only. Its entries are opened and examined relative to its descriptor,
/// and symbolic links are not followed, unless a call says so.
class Directory {
public:
    /// Opens an absolute path of any length. Fails when a component is a symbolic link that is not
    /// to be followed. Returns 0 or the errno.
    int openPath(const char* path, DirectoryUse use = DirectoryUse::list,
                 LinkUse links = LinkUse::refuse);
    /// Opens the directory `name` in `parent`; likewise.
    int openChild(const Directory& parent, const char* name, DirectoryUse use = DirectoryUse::list,
                  LinkUse links = LinkUse::refuse);
    /// The same below a directory that is open elsewhere, as `descriptor`.
    int openChild(int descriptor, const char* name, DirectoryUse use = DirectoryUse::list,
                  LinkUse links = LinkUse::refuse);
    /// Opens a directory by a path relative to `start`, of less than `PATH_MAX` bytes; likewise.
    int openBelow(const Directory& start, const char* path, DirectoryUse use = DirectoryUse::list);
    /// Opens the present parent ("..") of `child`. Returns 0 or the errno.
    int openParent(const Directory& child);
    void close() { descriptor_.close(); }
    bool isOpen() const { return static_cast<bool>(descriptor_); }
    int descriptor() const { return descriptor_.get(); }

    /// Reads all entries in the system's order through `buffer`, which holds some tens of KiB.
    /// Returns 0 or the errno.
    int read(DirectoryEntries& entries, std::span<char> buffer) const;
    /// `fstatat` of an entry, without following links. Returns 0 or the errno.
    int statEntry(const char* name, struct stat& info) const;
    /// The same of what a link leads to.
    int statTarget(const char* name, struct stat& info) const;
    /// Identifies a directory while it exists, whatever its name.
    struct Identity {
        unsigned long long device = 0;
        unsigned long long inode = 0;
        bool operator==(const Identity&) const = default;
    };
    /// Returns 0 or the errno.
    int identify(Identity& identity) const;
    /// `fstat` of the directory itself. 0, or the errno.
    int examine(struct stat& info) const;
    /// The same by one call that also tells whether its names are encrypted, so that they are
    /// others without the key. Of `info` it sets device, inode, ctime and mtime.
    int examine(struct stat& info, bool& encrypted) const;
    /// Where the system says that it is: an absolute path without links. Empty if that is not
    /// known, as for a path of `PATH_MAX` bytes.
    std::string realPath() const;
    /// The type of its file system: the magic number of `statfs`. 0, or the errno.
    int fileSystemType(std::uint32_t& type) const;

private:
    Descriptor descriptor_;
};

/// Opens a directory by a path of any length. Fails when any component is a symbolic link: a user
/// who may rename a directory of the path must not be able to redirect us. Empty, with errno, on
/// failure.
Descriptor openDirectoryWithoutLinks(const char* path, DirectoryUse use = DirectoryUse::list);

/// `lstat` for the entry `name` of the directory open as `directory`. Returns 0 or the errno.
int examineFileAt(int directory, const char* name, struct stat& info);

/// `lstat` for a path of any length. A path of PATH_MAX bytes or more fails if a directory in it
/// is a symbolic link. Returns 0 or the errno.
int examineFile(std::string_view path, struct stat& info);

/// `readlink` for a path of any length, like `examineFile`. Returns the number of bytes written
/// to `target` (without a terminator), or -1 with errno.
long readLinkTarget(std::string_view path, std::span<char> target);

/// Sets `isDirectory` to whether `path` itself is a directory; a symbolic link is not. Returns
/// 0, or the errno with `isDirectory` false.
int examineDirectory(const char* path, bool& isDirectory);

}  // namespace fscanner
