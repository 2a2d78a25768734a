// The overloads of FileTypeChecker::check that take many files, or descriptions
// that the caller has already.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cwchar>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "fscanner/common/heap_string.h"
#include "fscanner/common/paths.h"
#include "fscanner/common/utf8.h"
#include "fscanner/filetype/directory_names.h"
#include "fscanner/filetype/file_program.h"
#include "fscanner/filetype/file_type_checker.h"
#include "fscanner/filetype/type_words.h"
#include "fscanner/fs/debug.h"

namespace fscanner {
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

/// The whole regular file, or nothing.
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
