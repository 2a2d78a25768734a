#include "fscanner/filetype/directory_names.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <string_view>

namespace fscanner {

std::optional<NameDirectory> NameDirectory::open(const char* path) {
    int descriptor = ::open(path, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (descriptor < 0) return std::nullopt;
    DIR* stream = fdopendir(descriptor);
    if (stream == nullptr) {
        close(descriptor);
        return std::nullopt;
    }
    return NameDirectory(stream);
}

std::optional<std::vector<std::string>> NameDirectory::names() {
    std::vector<std::string> names;
    while (true) {
        errno = 0;
        const dirent* entry = readdir(stream_.get());
        if (entry == nullptr) break;
        std::string_view name = entry->d_name;
        if (name != "." && name != "..") names.emplace_back(name);
    }
    if (errno != 0) return std::nullopt;
    return names;
}

}  // namespace fscanner
