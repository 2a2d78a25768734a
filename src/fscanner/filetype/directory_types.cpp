#include "fscanner/filetype/directory_types.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <memory>
#include <utility>

#include "fscanner/common/debug.h"
#include "fscanner/common/utf8.h"
#include "fscanner/filetype/file_program.h"
#include "fscanner/platform/directory.h"

namespace fscanner {

// ---- Names ------------------------------------------------------------------

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

}  // namespace

// ---- Types ------------------------------------------------------------------

namespace {

constexpr std::wstring_view kSeparator = L": ";

std::wstring lineFor(std::wstring_view path, const std::string& description) {
    std::wstring line(path);
    line += kSeparator;
    appendWide(line, description);
    return line;
}

FileStamp stampOf(const struct stat& info) {
    return {true,
            info.st_dev,
            info.st_ino,
            static_cast<unsigned long long>(info.st_size),
            info.st_ctim.tv_sec,
            info.st_ctim.tv_nsec};
}

std::vector<FileStamp> stampsOf(int directory, const std::vector<std::string>& names) {
    std::vector<FileStamp> stamps;
    stamps.reserve(names.size());
    for (const std::string& name : names) {
        struct stat info {};
        const bool there = examineFileAt(directory, name.c_str(), info) == 0;
        stamps.push_back(there ? stampOf(info) : FileStamp());
    }
    return stamps;
}

std::vector<FileAnswer> pairUp(std::vector<std::string> names,
                               std::vector<std::string> descriptions,
                               const std::vector<FileStamp>& stamps) {
    std::vector<FileAnswer> answers;
    answers.reserve(names.size());
    for (std::size_t i = 0; i < names.size(); ++i) {
        answers.push_back({std::move(names[i]), std::move(descriptions[i]), stamps[i]});
    }
    return answers;
}

}  // namespace

FileLocation locate(const std::string& path) {
    std::size_t slash = path.rfind('/');
    if (slash == path.npos) return {".", path};
    return {slash == 0 ? "/" : path.substr(0, slash), path.substr(slash + 1)};
}

std::vector<FileAnswer> describeDirectory(const FileLocation& wanted, RunningFile& running) {
    auto directory = NameDirectory::open(wanted.directory.c_str());
    auto names = directory ? directory->names(wanted.name) : std::nullopt;
    if (!names) return {};
    std::sort(names->begin(), names->end());
    if (!std::binary_search(names->begin(), names->end(), wanted.name)) return {};
    const auto stamps = stampsOf(directory->descriptor(), *names);
    auto descriptions = describeFiles(directory->descriptor(), *names, &running);
    return pairUp(std::move(*names), std::move(descriptions), stamps);
}

std::optional<std::wstring> DirectoryTypes::lineOf(std::wstring_view path,
                                                   const std::string& pathBytes,
                                                   const DescribeDirectory& describe) {
    FileLocation wanted = locate(pathBytes);
    if (wanted.name.empty()) return std::nullopt;
    // The cache's keys are decoded from the bytes of the names. The host's spelling of the
    // same path may differ.
    std::wstring key = toWide(pathBytes);
    // The path may lead to another file by now. That has another stamp.
    struct stat info {};
    const bool there = examineFile(pathBytes, info) == 0;
    Element cached = there ? cache_.take(key, stampOf(info)) : Element();
    std::wstring line = cached.getID() >= 0 ? std::wstring(cached.getFileTypeInfo())
                                            : describeAll(key, wanted, describe);
    // A line without a description: the type is unknown. Such lines are cached too, so
    // that a directory on which `file` hangs costs one time-out and not one per file.
    if (line.size() <= key.size() + kSeparator.size()) return std::nullopt;
    return line.replace(0, key.size(), path);
}

// Describes the directory of the wanted file: returns that file's line and caches the others.
std::wstring DirectoryTypes::describeAll(std::wstring_view key, const FileLocation& wanted,
                                         const DescribeDirectory& describe) {
    std::wstring line;
    std::wstring path(key.substr(0, key.rfind(L'/') + 1));
    const std::size_t prefix = path.size();
    for (const FileAnswer& answer : describe(wanted)) {
        path.resize(prefix);
        appendWide(path, answer.name);
        std::wstring answerLine = lineFor(path, answer.description);
        if (answer.name == wanted.name) {
            line = std::move(answerLine);
        } else {
            cache_.insert(Element(batch_, answerLine.c_str()), path, answer.stamp);
        }
    }
    batch_ = batch_ % 65536 + 1;
    return line;
}

// ---- Offered to hosts; nothing in fscanner uses what follows ----------------

namespace {

/// Opens with O_EXCL: the name can be guessed, so an existing file may be a trap.
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

std::vector<FileAnswer> describeThroughList(const FileLocation& wanted, const char* listFile) {
    auto names = writeListFile(wanted.directory.c_str(), listFile);
    if (!names) return {};
    struct Remover {
        const char* path;
        ~Remover() { unlink(path); }
    } remover{listFile};
    const auto stamps = stampsOf(AT_FDCWD, *names);
    for (std::string& name : *names) name.erase(0, name.rfind('/') + 1);
    if (std::find(names->begin(), names->end(), wanted.name) == names->end()) return {};
    auto descriptions = describeListedFiles(listFile, names->size());
    return pairUp(std::move(*names), std::move(descriptions), stamps);
}

}  // namespace fscanner
