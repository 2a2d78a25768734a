#pragma once

#include <dirent.h>

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

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

/// Writes the paths dir + "/" + name of the directory's entries to `listFile`, one a
/// line: all but directories, hidden files and links included. Returns the number
/// of lines; -1, and no file is left, when the list cannot be made.
///
/// The file must not exist yet and is its owner's alone. A name with a newline
/// cannot stand in a list of lines and is left out.
int makeListFile(const char* dir, const char* listFile);

/// The same, returning the paths that were written.
std::optional<std::vector<std::string>> writeListFile(const char* dir, const char* listFile);

}  // namespace fscanner
