#include "fscanner/filetype/file_type_checker.h"

#include <fcntl.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cwchar>
#include <functional>
#include <memory>
#include <new>

#include "fscanner/common/heap_string.h"
#include "fscanner/common/paths.h"
#include "fscanner/common/utf8.h"
#include "fscanner/filetype/directory_types.h"
#include "fscanner/filetype/file_program.h"
#include "fscanner/filetype/type_words.h"
#include "fscanner/fs/debug.h"

namespace fscanner {
namespace {

/// Answers from one of the thread's two caches; `method` is for the log.
bool typeLine(DirectoryTypes& types, const char* method, const wchar_t* path,
              const DescribeDirectory& describe, wchar_t** info) {
    if (path == nullptr || std::wcslen(path) > longestPath()) return false;
    std::unique_ptr<char[]> bytes(myWcsToMbs(path));
    if (!bytes) {
        debug("FileTypeChecker::%s - unable to allocate path buffer\n", method);
        return false;
    }
    auto line = types.lineOf(path, bytes.get(), describe);
    if (!line) {
        debug("FileTypeChecker::%s - path file name '%ls' not found!\n", method, path);
        return false;
    }
    *info = mallocCopy(*line);
    return *info != nullptr;
}

}  // namespace

FileTypeChecker::FileTypeChecker() {
    std::array<char, 64> name{};
    auto identity = static_cast<unsigned>(reinterpret_cast<std::uintptr_t>(this));
    std::snprintf(name.data(), name.size(), "./tav_cmd_file_%x", identity);
    commandFile_ = name.data();
}

bool FileTypeChecker::getFileTypeEx(const wchar_t* path, wchar_t** info) {
    static thread_local DirectoryTypes types;
    auto describe = [this](const FileLocation& wanted) {
        return describeDirectory(wanted, running_);
    };
    return typeLine(types, "getFileTypeEx", path, describe, info);
}

bool FileTypeChecker::getFileTypeEx_2(const wchar_t* path, wchar_t** info) {
    static thread_local DirectoryTypes types;
    auto describe = [this](const FileLocation& wanted) {
        return describeThroughList(wanted, commandFile_.c_str());
    };
    return typeLine(types, "getFileTypeEx_2", path, describe, info);
}

bool FileTypeChecker::getFileType(const wchar_t* path, wchar_t** info) {
    if (path == nullptr || *path == 0) return false;
    const std::string bytes = toMultibyte(path);
    const std::string description = describeFiles(AT_FDCWD, {&bytes, 1})[0];
    if (description.empty()) return false;
    *info = mallocCopy(std::wstring(path) + L": " + toWide(description));
    return *info != nullptr;
}

bool FileTypeChecker::check(const wchar_t* path, StringList<wchar_t>& wanted) {
    if (wanted.size() == 0) return true;
    wchar_t* info = nullptr;
    if (!getFileTypeEx(path, &info)) return false;
    HeapText line(info);
    std::wstring description = descriptionOf(info, std::wcslen(path));
    StringList<wchar_t> words;
    if (!fileTypeSplitter(description.c_str(), words)) {
        debug("FileTypeChecker::check - fileTypeSplitter[2] of '%ls' failed!\n",
              description.c_str());
        return false;
    }
    return checkTypeList(words, wanted);
}

bool FileTypeChecker::check(const wchar_t* dir, const wchar_t* name, StringList<wchar_t>& wanted) {
    if (dir == nullptr || name == nullptr) return false;
    if (wanted.size() == 0) return true;
    HeapText path(getFullPathName(dir, name));
    return path && check(path.get(), wanted);
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

}  // namespace fscanner
