#pragma once

#include <dirent.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "fscanner/filetype/file_type_cache.h"

namespace fscanner {

/// An open directory. Its names are read and its files are reached through one
/// descriptor, so that both concern the same directory even if it is renamed.
class NameDirectory {
public:
    /// Empty when `path` is not a directory, cannot be read, or has a symbolic link as
    /// any component.
    static std::optional<NameDirectory> open(const char* path);

    int descriptor() const { return dirfd(stream_.get()); }
    /// The names of all entries except directories; a directory is included only if its
    /// name is `wanted`. Directories are left out because one may be the mount point of a
    /// server that is gone, and examining it would block. Empty when reading fails.
    std::optional<std::vector<std::string>> names(std::string_view wanted = {});

private:
    struct Closer {
        void operator()(DIR* stream) const { closedir(stream); }
    };
    explicit NameDirectory(DIR* stream) : stream_(stream) {}

    std::unique_ptr<DIR, Closer> stream_;
};

class RunningFile;

/// A path split at its last "/": the directory to list ("/" for a file in the root,
/// "." for a path without "/") and the name in it.
struct FileLocation {
    std::string directory;
    std::string name;
};
FileLocation locate(const std::string& path);

/// The answer of `file` about one file of a directory. An empty description means that
/// there was none.
struct FileAnswer {
    std::string name;
    std::string description;
    FileStamp stamp;  // taken before the file was described
};
/// Describes the files of a directory. Returns nothing if the wanted file is not there.
using DescribeDirectory = std::function<std::vector<FileAnswer>(const FileLocation& wanted)>;

/// Lists the directory through its descriptor and describes the files by their names in
/// it, with the kept process `running` if possible.
std::vector<FileAnswer> describeDirectory(const FileLocation& wanted, RunningFile& running);

/// The types of files. They are asked for one by one and determined per directory.
///
/// The first question about a directory describes all its files. The answers about the
/// other files are cached. A cached answer is used once, and only if the file has not
/// changed since; a second question about the same file describes the directory again.
class DirectoryTypes {
public:
    /// The line "path: description"; nothing when the type is unknown. `pathBytes` is
    /// `path` in the system's encoding.
    std::optional<std::wstring> lineOf(std::wstring_view path, const std::string& pathBytes,
                                       const DescribeDirectory& describe);

private:
    std::wstring describeAll(std::wstring_view key, const FileLocation& wanted,
                             const DescribeDirectory& describe);

    FileTypeCache cache_;
    int batch_ = 0;
};

// ---- Offered to hosts; nothing in fscanner uses what follows ----------------

/// Writes the paths dir + "/" + name of the directory's entries to `listFile`, one per
/// line. Directories are left out; hidden files and links are included. A path with a
/// newline cannot be listed and is left out. Returns the number of lines, or -1; then
/// there is no list file.
///
/// The list file must not exist yet. Only its owner may read or write it.
int makeListFile(const char* dir, const char* listFile);

/// The same; returns the paths that were written, or nothing.
std::optional<std::vector<std::string>> writeListFile(const char* dir, const char* listFile);

/// Describes the files that `makeListFile` lists. Creates `listFile` for that and
/// removes it.
std::vector<FileAnswer> describeThroughList(const FileLocation& wanted, const char* listFile);

}  // namespace fscanner
