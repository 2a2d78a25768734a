#include "fscanner/filetype/filetypehelper.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cwchar>
#include <functional>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <string_view>

#include "fscanner/common/debug.h"
#include "fscanner/common/path_text.h"
#include "fscanner/common/strings.h"
#include "fscanner/common/utf8.h"
#include "fscanner/filetype/directory_types.h"
#include "fscanner/filetype/file_program.h"
#include "fscanner/platform/paths.h"

namespace fscanner {

namespace {

/// Answers with the help of `types`, one of the thread's two caches. `method` is the caller's
/// name for the log.
std::optional<std::wstring> cachedLine(DirectoryTypes& types, const char* method,
                                       const wchar_t* path, const DescribeDirectory& describe) {
    if (path == nullptr || std::wcslen(path) > longestPath()) return std::nullopt;
    auto line = types.lineOf(path, toMultibyte(path).c_str(), describe);
    if (!line) debug("FileTypeChecker::%s - path file name '%ls' not found!\n", method, path);
    return line;
}

}  // namespace

FileTypeChecker::FileTypeChecker() {
    std::array<char, 64> name{};
    auto identity = static_cast<unsigned>(reinterpret_cast<std::uintptr_t>(this));
    std::snprintf(name.data(), name.size(), "./tav_cmd_file_%x", identity);
    commandFile_ = name.data();
}

std::optional<std::wstring> FileTypeChecker::typeLine(const wchar_t* path) {
    static thread_local DirectoryTypes types;
    auto describe = [this](const FileLocation& wanted) {
        return describeDirectory(wanted, running_);
    };
    return cachedLine(types, "getFileTypeEx", path, describe);
}

bool FileTypeChecker::check(const wchar_t* path, StringList<wchar_t>& wanted) {
    if (wanted.size() == 0) return true;
    const std::optional<std::wstring> line = typeLine(path);
    if (!line) return false;
    const std::wstring description = descriptionOf(*line, std::wcslen(path));
    StringList<wchar_t> words;
    if (!fileTypeSplitter(description.c_str(), words)) {
        debug("FileTypeChecker::check - fileTypeSplitter[2] of '%ls' failed!\n",
              description.c_str());
        return false;
    }
    return checkTypeList(words, wanted);
}

bool FileTypeChecker::fileTypeSplitter(const wchar_t* text, StringList<wchar_t>& words) {
    if (text == nullptr) {
        debug("FileTypeChecker::fileTypeSplitter - unable to split a null pointer string\n");
        return false;
    }
    try {
        const auto pieces = splitTypeWords(text);
        for (const std::wstring& piece : pieces) words.insert(piece.c_str());
        return !pieces.empty();
    } catch (const std::bad_alloc&) {
        debug("FileTypeChecker::fileTypeSplitter - unable to allocate tmp buffer\n");
        return false;
    }
}

bool FileTypeChecker::checkTypeList(StringList<wchar_t>& fileWords, StringList<wchar_t>& wanted) {
    for (int i = 0; i < wanted.size(); ++i) {
        StringList<wchar_t> words;
        if (!fileTypeSplitter(wanted.at(i), words)) {
            debug("FileTypeChecker::checkTypeList - fileTypeSplitter of '%ls' failed!\n",
                  wanted.at(i));
            continue;
        }
        for (int j = 0; j < words.size(); ++j) {
            if (fileWords.find(words.at(j)) >= 0) return true;
        }
    }
    return false;
}

// ---- Offered to hosts; nothing in fscanner uses what follows ----------------

namespace {

/// The form of an answer that hosts release with `free`.
bool handOut(const std::optional<std::wstring>& line, wchar_t** info) {
    if (!line) return false;
    *info = mallocCopy(*line);
    return *info != nullptr;
}

}  // namespace

bool FileTypeChecker::check(const wchar_t* dir, const wchar_t* name, StringList<wchar_t>& wanted) {
    if (dir == nullptr || name == nullptr) return false;
    if (wanted.size() == 0) return true;
    return check(joinPath(dir, name).c_str(), wanted);
}

bool FileTypeChecker::getFileTypeEx(const wchar_t* path, wchar_t** info) {
    return handOut(typeLine(path), info);
}

bool FileTypeChecker::getFileTypeEx_2(const wchar_t* path, wchar_t** info) {
    static thread_local DirectoryTypes types;
    auto describe = [this](const FileLocation& wanted) {
        return describeThroughList(wanted, commandFile_.c_str());
    };
    return handOut(cachedLine(types, "getFileTypeEx_2", path, describe), info);
}

bool FileTypeChecker::getFileType(const wchar_t* path, wchar_t** info) {
    if (path == nullptr || *path == 0) return false;
    const std::string bytes = toMultibyte(path);
    const std::string description = describeFiles(AT_FDCWD, {&bytes, 1})[0];
    if (description.empty()) return false;
    return handOut(std::wstring(path) + L": " + toWide(description), info);
}

// The overloads of FileTypeChecker::check that take many files, or descriptions
// that the caller has already.

namespace {

bool validName(const wchar_t* pathFileName) {
    if (pathFileName == nullptr) {
        debug("FileTypeChecker::check - pathFileName is a null pointer!\n");
    }
    return pathFileName != nullptr;
}

bool verdict(const std::wstring& description, StringList<wchar_t>& fileWords,
             StringList<wchar_t>& wanted) {
    if (!FileTypeChecker::fileTypeSplitter(description.c_str(), fileWords)) {
        debug("FileTypeChecker::check - fileTypeSplitter of '%ls' failed!\n", description.c_str());
        return false;
    }
    bool matched = FileTypeChecker::checkTypeList(fileWords, wanted);
    debug("FileTypeChecker::check - matched is %s\n", matched ? "true" : "false");
    return matched;
}

/// The line of `data` that begins with `path` and a colon.
std::optional<std::wstring_view> findLine(std::wstring_view data, std::wstring_view path) {
    while (!data.empty()) {
        std::wstring_view line = data.substr(0, data.find(L'\n'));
        if (line.starts_with(path) && line.substr(path.size()).starts_with(L':')) return line;
        data.remove_prefix(std::min(line.size() + 1, data.size()));
    }
    return std::nullopt;
}

/// The content of a regular file, or nothing.
std::optional<std::string> readFile(const char* path) {
    int descriptor = open(path, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    if (descriptor < 0) return std::nullopt;
    std::unique_ptr<std::FILE, decltype(&std::fclose)> file(fdopen(descriptor, "r"), &std::fclose);
    struct stat info {};
    if (!file || fstat(descriptor, &info) != 0 || !S_ISREG(info.st_mode)) return std::nullopt;
    std::string content(static_cast<std::size_t>(info.st_size), '\0');
    content.resize(std::fread(content.data(), 1, content.size(), file.get()));
    return content;
}

}  // namespace

bool FileTypeChecker::check(const wchar_t* dir, StringList<wchar_t>& names,
                            StringList<wchar_t>& wanted, std::vector<bool>& matched) {
    const auto count = static_cast<std::size_t>(names.size());
    matched.assign(count, wanted.size() == 0);
    if (wanted.size() == 0) return true;
    if (!validName(dir)) return false;
    auto directory = NameDirectory::open(toMultibyte(dir).c_str());
    if (!directory) return false;
    std::vector<std::string> files;
    files.reserve(count);
    for (int i = 0; i < names.size(); ++i) files.push_back(toMultibyte(names.at(i)));
    const auto descriptions = describeFiles(directory->descriptor(), files);
    for (std::size_t i = 0; i < count; ++i) {
        StringList<wchar_t> words;
        matched[i] = verdict(toWide(descriptions[i]), words, wanted);
    }
    return true;
}

bool FileTypeChecker::check(const wchar_t* pathFileName, wchar_t* dataBuffer,
                            StringList<wchar_t>& fileWords, StringList<wchar_t>& wanted) {
    if (!validName(pathFileName)) return false;
    if (dataBuffer == nullptr) {
        debug("FileTypeChecker::check - data corrupted!\n");
        return false;
    }
    const std::wstring_view path(pathFileName);
    auto line = findLine(dataBuffer, path);
    if (!line) {
        debug("FileTypeChecker::check - pathFileName '%ls' not found in dataBuffer!\n",
              pathFileName);
        return false;
    }
    std::wstring description = descriptionOf(*line, path.size() + 1);
    if (description.find_first_not_of(L' ') == description.npos) {
        debug("FileTypeChecker::check - no type info found in dataBuffer!\n");
        return false;
    }
    return verdict(description, fileWords, wanted);
}

bool FileTypeChecker::check(const wchar_t* dir, const wchar_t* name, wchar_t* dataBuffer,
                            StringList<wchar_t>& fileWords, StringList<wchar_t>& wanted) {
    const HeapText path(getFullPathName(dir, name));
    return check(path.get(), dataBuffer, fileWords, wanted);
}

bool FileTypeChecker::check(const wchar_t* pathFileName, const wchar_t* dataFile,
                            StringList<wchar_t>& fileWords, StringList<wchar_t>& wanted) {
    if (!validName(pathFileName)) return false;
    auto content = dataFile ? readFile(toMultibyte(dataFile).c_str()) : std::nullopt;
    if (!content) {
        debug("FileTypeChecker::check - cannot open '%ls' data file!\n", dataFile ? dataFile : L"");
        return false;
    }
    if (content->find('\0') != content->npos) {
        debug("FileTypeChecker::check - data corrupted!\n");
        return false;
    }
    return check(pathFileName, toWide(*content).data(), fileWords, wanted);
}

}  // namespace fscanner
