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

}  // namespace fscanner
