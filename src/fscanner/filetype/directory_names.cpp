#include "fscanner/filetype/directory_names.h"

#include <cerrno>

#include "fscanner/platform/directory.h"

namespace fscanner {

std::optional<NameDirectory> NameDirectory::open(const char* path) {
    Descriptor descriptor = openDirectoryWithoutLinks(path);
    DIR* stream = descriptor ? fdopendir(descriptor.get()) : nullptr;
    if (stream == nullptr) return std::nullopt;
    descriptor.release();
    return NameDirectory(stream);
}

std::optional<std::vector<std::string>> NameDirectory::names(std::string_view wanted) {
    std::vector<std::string> names;
    while (true) {
        errno = 0;
        const dirent* entry = readdir(stream_.get());
        if (entry == nullptr) break;
        std::string_view name = entry->d_name;
        if (name == "." || name == "..") continue;
        if (entry->d_type != DT_DIR || name == wanted) names.emplace_back(name);
    }
    if (errno != 0) return std::nullopt;
    return names;
}

}  // namespace fscanner
