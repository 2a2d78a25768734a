#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>

#include "fscanner/platform/descriptor.h"

struct stat;

namespace fscanner {

/// What a directory entry is, as far as the directory itself tells.
enum class EntryType : unsigned char { unknown, directory, other };

/// The entries of one directory, packed one behind the other and taken from the
/// last to the first. "." and ".." are left out when they are added.
///
/// A record is the name, its terminator, the type and the name's length, so that
/// reading backwards needs no table of offsets.
class DirectoryEntries {
public:
    /// So many bytes can be read behind a name, whatever they are.
    static constexpr std::size_t kReadableBehind = 32;

    /// One entry; the name is terminated and valid until the next change.
    struct Entry {
        std::string_view name;
        EntryType type = EntryType::unknown;
    };

    void clear();
    /// `name` is the system's: shorter than 64 KiB.
    void add(std::string_view name, EntryType type);
    bool empty() const { return end_ == 0; }
    /// Takes the last entry; false when none is left.
    bool takeLast(Entry& entry);

private:
    std::string data_;
    std::size_t end_ = 0;
};

/// An open directory, move-only. Everything below it is reached through its descriptor and
/// never through a symbolic link.
class Directory {
public:
    /// Opens an absolute path, of any length, in which no component may be a link. 0, or
    /// the errno.
    int openPath(const char* path);
    /// Opens the directory `name` in `parent`; a link is refused. 0, or the errno.
    int openChild(const Directory& parent, const char* name);
    /// Opens the directory that `child` lies in now. 0, or the errno.
    int openParent(const Directory& child);
    void close() { descriptor_.close(); }
    bool isOpen() const { return static_cast<bool>(descriptor_); }

    /// Reads all entries in the system's order through `buffer` (some ten KiB at
    /// best). 0, or the errno.
    int read(DirectoryEntries& entries, std::span<char> buffer) const;
    /// `fstatat` of an entry, not following links. 0, or the errno.
    int statEntry(const char* name, struct stat& info) const;
    /// Remembers which directory this is, and tells whether `other` is the same.
    struct Identity {
        unsigned long long device = 0;
        unsigned long long inode = 0;
        bool operator==(const Identity&) const = default;
    };
    /// 0, or the errno.
    int identify(Identity& identity) const;

private:
    Descriptor descriptor_;
};

/// What a directory is opened for: to list it, or only to reach what is in it, which
/// needs no permission to read it.
enum class DirectoryUse { list, reach };

/// Opens a directory; its path may have any length. A symbolic link anywhere in the path
/// fails: whoever may rename what lies on the way must not lead us elsewhere. errno tells why.
Descriptor openDirectoryWithoutLinks(const char* path, DirectoryUse use = DirectoryUse::list);

/// `lstat` for the entry `name` of the directory open as `directory`. 0, or the errno.
int examineFileAt(int directory, const char* name, struct stat& info);

/// `lstat` for a path of any length. In one that is too long for the system, no directory
/// may be a symbolic link. 0, or the errno.
int examineFile(std::string_view path, struct stat& info);

/// `readlink` for such a path: the bytes of the target, or -1 with errno.
long readLinkTarget(std::string_view path, std::span<char> target);

/// Whether `path` is a directory itself, links not followed. 0, or the errno (and
/// `isDirectory` is false then).
int examineDirectory(const char* path, bool& isDirectory);

}  // namespace fscanner
