#pragma once

#include <dirent.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace fscanner {

/// An open directory, for reading its names and for reaching its files by its
/// descriptor, so that both speak of the same directory whatever is renamed.
class NameDirectory {
public:
    /// Nothing when `path` is not a directory or cannot be read. A symbolic link
    /// is not followed in its last component.
    static std::optional<NameDirectory> open(const char* path);

    int descriptor() const { return dirfd(stream_.get()); }
    /// Every name but "." and ".."; nothing when reading fails midway.
    std::optional<std::vector<std::string>> names();

private:
    struct Closer {
        void operator()(DIR* stream) const { closedir(stream); }
    };
    explicit NameDirectory(DIR* stream) : stream_(stream) {}

    std::unique_ptr<DIR, Closer> stream_;
};

}  // namespace fscanner
