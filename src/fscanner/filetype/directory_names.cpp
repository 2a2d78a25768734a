#include "fscanner/filetype/directory_names.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <memory>
#include <utility>

#include "fscanner/fs/debug.h"
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

namespace {

struct FileCloser {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, FileCloser>;

/// Made exclusively: whatever lies under a name that can be guessed is not ours.
File createList(const char* path) {
    int descriptor = open(path, O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (descriptor < 0) return nullptr;
    File file(fdopen(descriptor, "w+"));
    if (!file) {
        close(descriptor);
        unlink(path);
    }
    return file;
}

/// The paths to list, in the directory's order.
std::optional<std::vector<std::string>> listablePaths(const std::string& dir) {
    auto directory = NameDirectory::open(dir.c_str());
    auto names = directory ? directory->names() : std::nullopt;
    if (!names) {
        debug("::makeListFile - opendir on '%s' path failed!'\n", dir.c_str());
        return std::nullopt;
    }
    const std::string prefix = dir == "/" ? dir : dir + "/";
    std::vector<std::string> paths;
    for (const std::string& name : *names) {
        std::string path = prefix;
        path += name;
        struct stat info {};
        if (examineFileAt(directory->descriptor(), name.c_str(), info) != 0) {
            debug("::makeListFile - stat on '%s' file failed!\n", path.c_str());
            continue;
        }
        if (S_ISDIR(info.st_mode) || path.find('\n') != path.npos) continue;
        paths.push_back(std::move(path));
    }
    return paths;
}

bool writeLines(File file, const std::vector<std::string>& lines) {
    bool written = true;
    for (const std::string& line : lines) {
        written = written && std::fprintf(file.get(), "%s\n", line.c_str()) >= 0;
    }
    return std::fclose(file.release()) == 0 && written;
}

}  // namespace

std::optional<std::vector<std::string>> writeListFile(const char* dir, const char* listFile) {
    File file = createList(listFile);
    if (!file) return std::nullopt;
    auto paths = listablePaths(dir);
    if (paths && writeLines(std::move(file), *paths)) return paths;
    unlink(listFile);
    return std::nullopt;
}

int makeListFile(const char* dir, const char* listFile) {
    auto paths = writeListFile(dir, listFile);
    return paths ? static_cast<int>(paths->size()) : -1;
}

}  // namespace fscanner
