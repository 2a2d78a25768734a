#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "fscanner/filetype/file_type_cache.h"

namespace fscanner {

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
/// Describes what `makeListFile` lists, through `listFile`, which is made for it
/// and removed.
std::vector<FileAnswer> describeThroughList(const FileLocation& wanted, const char* listFile);

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

}  // namespace fscanner
