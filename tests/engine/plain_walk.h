#pragma once

#include <dirent.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cwctype>
#include <functional>
#include <map>
#include <optional>

#include "engine/temp_tree.h"
#include "fscanner/fs/fs_query.h"

/// A plain recursive walk with an evaluation of its own: it says what searches have to find.
namespace fscanner::plain {

using Names = std::vector<std::string>;

// ---- The plain walk ---------------------------------------------------------

struct FileSystem {
    bool remote;
    std::string type;
};

/// A file or directory as it lies there.
struct File {
    std::string directory;  // below the tree, "" for the tree itself
    std::string name;
    struct stat info;
    FileSystem on;  // that of its directory

    std::string path() const { return directory.empty() ? name : directory + "/" + name; }
    std::wstring wideName() const { return toWide(name); }
    bool isLink() const { return S_ISLNK(info.st_mode); }
    unsigned kind() const {
        switch (info.st_mode & S_IFMT) {
            case S_IFDIR:
                return FS_KIND_DIRECTORY;
            case S_IFLNK:
                return FS_KIND_LINK;
            case S_IFIFO:
                return FS_KIND_PIPE;
            case S_IFSOCK:
                return FS_KIND_SOCKET;
            default:
                return FS_KIND_FILE;
        }
    }
};

inline void walk(const std::string& root, const std::string& below,
                 const std::map<dev_t, FileSystem>& systems, std::vector<File>& files) {
    DIR* const directory = ::opendir((root + "/" + below).c_str());
    ASSERT_NE(directory, nullptr) << below;
    struct stat here {};
    ASSERT_EQ(::fstat(::dirfd(directory), &here), 0) << below;
    while (const dirent* entry = ::readdir(directory)) {
        const std::string name = entry->d_name;
        if (name == "." || name == "..") continue;
        File file{below, name, {}, systems.at(here.st_dev)};
        ASSERT_EQ(::lstat((root + "/" + file.path()).c_str(), &file.info), 0) << file.path();
        files.push_back(file);
        if (S_ISDIR(file.info.st_mode)) walk(root, file.path(), systems, files);
    }
    ::closedir(directory);
}

// ---- The plain evaluation ---------------------------------------------------

inline bool sameLetter(wchar_t a, wchar_t b, bool cased) {
    return a == b ||
           (!cased &&
            (std::towlower(static_cast<wint_t>(a)) == std::towlower(static_cast<wint_t>(b)) ||
             std::towupper(static_cast<wint_t>(a)) == std::towupper(static_cast<wint_t>(b))));
}

inline bool fits(const wchar_t* pattern, const wchar_t* text, bool cased) {
    if (*pattern == L'*')
        return fits(pattern + 1, text, cased) || (*text && fits(pattern, text + 1, cased));
    if (*pattern == 0 || *text == 0) return *pattern == *text;
    return (*pattern == L'?' || sameLetter(*pattern, *text, cased)) &&
           fits(pattern + 1, text + 1, cased);
}

/// `a == b` of the language: nothing where both are patterns.
inline std::optional<bool> equal(const std::wstring& a, const std::wstring& b, bool cased) {
    const bool patternA = a.find_first_of(L"*?") != a.npos;
    const bool patternB = b.find_first_of(L"*?") != b.npos;
    if (patternA && patternB) return std::nullopt;
    return patternB ? fits(b.c_str(), a.c_str(), cased) : fits(a.c_str(), b.c_str(), cased);
}

/// The value of a criteria for a file; nothing where it cannot be told.
using Value = std::optional<long long>;

inline Value named(const File& file, const wchar_t* text, bool cased) {
    return equal(file.wideName(), text, cased);
}

struct Question {
    Names include;  // below the tree; with a group before it, and "+" behind it
                    // for recursive
    Names exclude = {};
    const wchar_t* criteria = L"";
    std::function<Value(const File&, bool cased)> value = [](const File&, bool) { return 1; };
    bool cased = true;
    const wchar_t* notFileSystem = nullptr;
    const wchar_t* onlyFileSystem = nullptr;
    unsigned kinds = FS_KINDS_BUT_DIRECTORIES;
    FsDepthRange depth = {};
};

/// "$local::a/b+", split into its parts. Without a group it is for local drives.
struct Place {
    bool local = true;
    bool remote = false;
    bool recursive;
    std::wstring path;

    explicit Place(std::string text) : recursive(text.ends_with('+')) {
        if (recursive) text.pop_back();
        if (const std::size_t end = text.find("::"); end != text.npos) {
            local = !text.starts_with("$remote");
            remote = !text.starts_with("$local");
            text.erase(0, end + 2);
        }
        // The only link to a searched directory.
        if (text == "by" || text.starts_with("by/")) text.replace(0, 2, "binds");
        path = toWide(text);
    }
    bool isOnIts(const FileSystem& system) const { return system.remote ? remote : local; }
    /// One directory of exactly this name, with what lies below it.
    bool holds(const std::wstring& directory) const {
        return directory == path ||
               (recursive && (path.empty() || directory.starts_with(path + L"/")));
    }
    /// The depth of what lies in that directory.
    unsigned depthOf(const std::wstring& directory) const {
        const auto levels = [](const std::wstring& text) {
            return text.empty() ? 0 : 1 + std::count(text.begin(), text.end(), L'/');
        };
        return static_cast<unsigned>(levels(directory) - levels(path) + 1);
    }
    /// All directories of that name.
    bool describes(const std::wstring& directory, bool cased) const {
        if (path.empty()) return recursive || directory.empty();
        return fits(path.c_str(), directory.c_str(), cased) ||
               (recursive && fits((path + L"/*").c_str(), directory.c_str(), cased));
    }
};

inline bool isAnswer(const Question& question, const File& file) {
    const auto isNamed = [&](const wchar_t* system) { return toWide(file.on.type) == system; };
    if (question.notFileSystem && isNamed(question.notFileSystem)) return false;
    if (question.onlyFileSystem && !isNamed(question.onlyFileSystem)) return false;
    if ((question.kinds & file.kind()) == 0) return false;
    const std::wstring directory = toWide(file.directory);
    // Searched paths are places: patterns and the case mode do not apply to them.
    const bool searched =
        std::any_of(question.include.begin(), question.include.end(), [&](const std::string& text) {
            const Place place(text);
            if (!place.isOnIts(file.on) || !place.holds(directory)) return false;
            const unsigned depth = place.depthOf(directory);
            return question.depth.least <= depth && depth <= question.depth.most;
        });
    // A directory that is left out with all below it is no entry either.
    const bool excluded =
        std::any_of(question.exclude.begin(), question.exclude.end(), [&](const std::string& text) {
            const Place place(text);
            return place.isOnIts(file.on) &&
                   (place.describes(directory, question.cased) ||
                    (file.kind() == FS_KIND_DIRECTORY && place.recursive &&
                     place.describes(toWide(file.path()), question.cased)));
        });
    return searched && !excluded && question.value(file, question.cased).value_or(0) != 0;
}

inline void add(FsQuery& query, const Question& question, const TempTree& tree) {
    const auto entry = [&](const std::string& text) {
        const std::size_t end = text.find("::");
        const std::size_t group = end == text.npos ? 0 : end + 2;
        const std::string path = text.substr(group, text.size() - group - text.ends_with('+'));
        return toWide(text.substr(0, group) + "*:" + tree.path(path));
    };
    for (const std::string& text : question.include)
        query.addIncludePath(entry(text).c_str(), text.ends_with('+'));
    for (const std::string& text : question.exclude)
        query.addExcludePath(entry(text).c_str(), text.ends_with('+'));
    if (question.notFileSystem) query.addExcludeFileSystem(question.notFileSystem);
    if (question.onlyFileSystem) query.addIncludeFileSystem(question.onlyFileSystem);
    query.setQuery(question.criteria);
    query.setCaseSensitive(question.cased ? 0 : 1);
    query.setKinds(question.kinds);
    query.setDepth(question.depth);
}

/// The paths of the answer, sorted.
inline Names answerOf(const Question& question, const TempTree& tree,
                      const std::vector<File>& files) {
    Names paths;
    for (const File& file : files)
        if (isAnswer(question, file)) paths.push_back(tree.path(file.path()));
    std::sort(paths.begin(), paths.end());
    return paths;
}

}  // namespace fscanner::plain
