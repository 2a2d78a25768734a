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

/// An open directory, for reading its names and for reaching its files by its
/// descriptor, so that both speak of the same directory whatever is renamed.
class NameDirectory {
public:
    /// Nothing when `path` is not a directory or cannot be read. A symbolic link is
    /// not followed anywhere in it.
    static std::optional<NameDirectory> open(const char* path);

    int descriptor() const { return dirfd(stream_.get()); }
    /// Every name but those of directories; nothing when reading fails midway. A
    /// directory may be the place of a mount whose server is gone, and to look at it
    /// is to wait; so it is there only as the one that is `wanted`.
    std::optional<std::vector<std::string>> names(std::string_view wanted = {});

private:
    struct Closer {
        void operator()(DIR* stream) const { closedir(stream); }
    };
    explicit NameDirectory(DIR* stream) : stream_(stream) {}

    std::unique_ptr<DIR, Closer> stream_;
};

class RunningFile;

/// A file's path cut at its last "/": the directory to list ("/" for a file of
/// the root, "." for a path without "/") and the name in it.
struct FileLocation {
    std::string directory;
    std::string name;
};
FileLocation locate(const std::string& path);

/// One file of a directory. An empty description means that `file` had no answer.
struct FileAnswer {
    std::string name;
    std::string description;
    FileStamp stamp;  // from before it was described
};
/// Describes the files of a directory if the wanted file is among them.
using DescribeDirectory = std::function<std::vector<FileAnswer>(const FileLocation& wanted)>;

/// Lists the directory through its descriptor and describes each file under its
/// bare name, by `running` where that is possible.
std::vector<FileAnswer> describeDirectory(const FileLocation& wanted, RunningFile& running);

/// Types of files, asked for one by one and found out a directory at a time.
///
/// The first question about a directory describes all its files; the answers to
/// the others wait in the cache, and each is used once, and only for the file that was
/// described, unchanged: asking again describes the directory again.
class DirectoryTypes {
public:
    /// The line "path: description"; nothing when the type is unknown.
    std::optional<std::wstring> lineOf(std::wstring_view path, const std::string& pathBytes,
                                       const DescribeDirectory& describe);

private:
    std::wstring describeOthers(std::wstring_view key, const FileLocation& wanted,
                                const DescribeDirectory& describe);

    FileTypeCache cache_;
    int batch_ = 0;
};

// ---- Offered to hosts; nothing in fscanner uses what follows ----------------

/// Writes the paths dir + "/" + name of the directory's entries to `listFile`, one a
/// line: all but directories, hidden files and links included. Returns the number
/// of lines; -1, and no file is left, when the list cannot be made.
///
/// The file must not exist yet and is its owner's alone. A name with a newline
/// cannot stand in a list of lines and is left out.
int makeListFile(const char* dir, const char* listFile);

/// The same, returning the paths that were written.
std::optional<std::vector<std::string>> writeListFile(const char* dir, const char* listFile);

/// Describes what `makeListFile` lists, through `listFile`, which is made for it
/// and removed.
std::vector<FileAnswer> describeThroughList(const FileLocation& wanted, const char* listFile);

}  // namespace fscanner
