#include "fscanner/engine/cache_directory.h"

#include <fcntl.h>
#include <sys/file.h>

#include <cerrno>
#include <charconv>
#include <filesystem>
#include <limits>
#include <optional>
#include <set>
#include <string_view>
#include <utility>

#include "fscanner/common/debug.h"
#include "fscanner/common/path_text.h"
#include "fscanner/common/utf8.h"
#include "fscanner/engine/cache_files.h"
#include "fscanner/engine/watch_protocol.h"
#include "fscanner/fs/fs_config.h"
#include "fscanner/fs/fs_fileinfo.h"
#include "fscanner/fs/fs_provider.h"
#include "fscanner/fs/no_throw.h"
#include "fscanner/platform/descriptor.h"
#include "fscanner/platform/directory_lock.h"
#include "fscanner/platform/paths.h"
#include "fscanner/platform/private_directory.h"
#include "fscanner/platform/small_file.h"
#include "fscanner/store/table_replacement.h"

namespace fscanner {

namespace {

constexpr std::string_view kTag =
    "Signature: 8a477f597d28d172789f06886806bc55\n"
    "# This directory holds a cache of fscanner and may be deleted while nobody uses it.\n";

constexpr const wchar_t* kTagName = L"CACHEDIR.TAG";

std::wstring tagOf(const std::wstring& directory) {
    return joinPath(directory, kTagName);
}

enum class Tag { none, own, foreign };

// The tag of another program has the same first line and differs in the next. An incomplete tag of
// ours counts as none: another process is writing it, or was interrupted.
Tag readTag(const std::wstring& directory) {
    constexpr std::string_view own = "\n# This directory holds a cache of fscanner";
    if (presenceOf(tagOf(directory)) == Presence::absent) return Tag::none;
    const std::optional<std::string> text = readSmallFile(tagOf(directory));
    if (!text) return Tag::foreign;
    if (text->find(own) != text->npos) return Tag::own;
    return kTag.starts_with(*text) ? Tag::none : Tag::foreign;
}

constexpr std::string_view kHoldsOthers = " is no cache directory: it holds other things, such as ";

bool isOfCache(std::string_view name) {
    return name == "CACHEDIR.TAG" || name == "lost+found" || name.starts_with("fscanner.") ||
           name.starts_with("directories.") || name.starts_with("files.");
}

// Why the content of the directory forbids a cache in it; empty if it does not.
std::string contentProblem(const std::string& path, Tag tag) {
    if (tag == Tag::own) return {};
    if (tag == Tag::foreign) return path + " has the CACHEDIR.TAG of another program";
    std::error_code error;
    std::filesystem::directory_iterator at;
    do at = std::filesystem::directory_iterator(path, error);
    while (error == std::errc::interrupted);
    for (const std::filesystem::directory_iterator end; !error && at != end; at.increment(error))
        if (const std::string name = at->path().filename(); !isOfCache(name))
            return std::string(path).append(kHoldsOthers).append(name);
    return error ? path + ": " + error.message() : "";
}

// The tag of a directory that may hold a cache. Nothing if it may not: `problem` and the log then
// say why.
std::optional<Tag> tagOfPlace(const wchar_t* directory, Missing missing, std::wstring& problem) {
    std::string wrong = "there is no path";
    Tag tag = Tag::none;
    if (directory && *directory) {
        const std::string path = toMultibyte(directory);
        wrong = privateDirectoryProblem(path, missing);
        if (wrong.empty() && presenceOf(directory) == Presence::there) {
            tag = readTag(directory);
            wrong = contentProblem(path, tag);
        }
    }
    if (wrong.empty()) return tag;
    problem = toWide(wrong);
    debug("::fsPrepareCacheDirectory - '%ls' cannot be used: %ls\n", directory ? directory : L"",
          problem.c_str());
    return std::nullopt;
}

bool parseCount(std::string_view text, int& value) {
    int count = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), count);
    if (error != std::errc() || end != text.data() + text.size() || count < 0) return false;
    value = count;
    return true;
}

bool parseBool(std::string_view text, bool& value) {
    const bool yes = text == "true" || text == "1";
    if (!yes && text != "false" && text != "0") return false;
    value = yes;
    return true;
}

// Parses a size such as "500M": digits, and optionally K, M, G or T for a power of 1024.
bool parseSize(std::string_view text, unsigned long long& size) {
    unsigned long long number = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc() || end - stop > 1) return false;
    constexpr std::string_view letters = "KMGTkmgt";
    const std::size_t letter = stop == end ? 0 : letters.find(*stop);
    if (letter == letters.npos) return false;
    const unsigned bits = stop == end ? 0 : 10 * (static_cast<unsigned>(letter) % 4 + 1);
    if (number > std::numeric_limits<unsigned long long>::max() >> bits) return false;
    size = number << bits;
    return true;
}

const wchar_t* const kDirectoriesTable = L"directories";
const wchar_t* const kFilesTable = L"files";

// The endings of the tables' names, ".C.UTF-8" and the like. Each cache has a counter or, when it
// was interrupted, a mark.
std::set<std::wstring> cacheKinds(const std::wstring& directory) {
    const std::wstring start = std::wstring(kDirectoriesTable) + L".";
    std::set<std::wstring> kinds;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(toMultibyte(directory), error)) {
        std::wstring name = toWide(entry.path().filename().native());
        for (const std::wstring_view suffix : {CacheCounterSuffix, CacheUpdateSuffix}) {
            if (!name.starts_with(start) || !name.ends_with(suffix)) continue;
            name.resize(name.size() - suffix.size());
            if (name.size() > start.size() && !name.ends_with(TableReplacement::kSuffix))
                kinds.insert(name.substr(start.size() - 1));
        }
    }
    return kinds;
}

FsCacheTableNames tableNames(const std::wstring& kind) {
    return {kDirectoriesTable + kind, kFilesTable + kind};
}

}  // namespace

std::wstring fsDefaultCacheDirectory() {
    return noThrow("::fsDefaultCacheDirectory", []() -> std::wstring {
        const std::string home = userCacheHome();
        if (home.empty()) return L"";
        const std::wstring base = toWide(home + "/fscanner");
        return userCacheDirectory(base.c_str(), nullptr, false).value_or(L"");
    });
}

bool fsPrepareCacheDirectory(const wchar_t* directory) {
    std::wstring problem;
    return fsPrepareCacheDirectory(directory, problem);
}

bool fsPrepareCacheDirectory(const wchar_t* directory, std::wstring& problem) {
    return noThrow("::fsPrepareCacheDirectory", [&] {
        const std::optional<Tag> tag = tagOfPlace(directory, Missing::make, problem);
        if (!tag) return false;
        if (*tag == Tag::none)
            writeSmallFile(tagOf(directory), kTag.data(), static_cast<unsigned>(kTag.size()));
        return true;
    });
}

bool fsCheckCacheDirectory(const wchar_t* directory, std::wstring& problem) {
    return noThrow("::fsCheckCacheDirectory",
                   [&] { return tagOfPlace(directory, Missing::accept, problem).has_value(); });
}

bool FsCacheSettings::set(const char* key, const char* value) {
    if (!key || !value) return false;
    const std::string_view name(key);
    if (name == FS_OPTION_MONITORED) return parseBool(value, monitored);
    if (name == FS_OPTION_COMPRESSED) return parseBool(value, compressed);
    if (name == FS_OPTION_FRESH) return parseBool(value, fresh);
    if (name == FS_OPTION_VERIFY) return parseBool(value, verify);
    if (name == FS_OPTION_WAIT) return parseCount(value, wait);
    if (name == FS_OPTION_CACHE_LIMIT) return parseSize(value, limit);
    if (name != FS_OPTION_CACHE_DIRECTORY || *value != '/') return false;
    return noThrow("FsCacheSettings::set", [&] {
        directory = toWide(value);
        return true;
    });
}

FsCacheSettings fsCacheSettings(const FsConfig& config, std::string* error) {
    FsCacheSettings settings;
    const std::pair<const char*, const char*> keys[] = {
        {FS_OPTION_CACHE_DIRECTORY, " is no absolute path"},
        {FS_OPTION_MONITORED, " is neither true nor false"},
        {FS_OPTION_COMPRESSED, " is neither true nor false"},
        {FS_OPTION_VERIFY, " is neither true nor false"},
        {FS_OPTION_CACHE_LIMIT, " is no size such as 500M"}};
    for (const auto& [key, rule] : keys) {
        const std::string value = config.getString("provider_cache", key, "");
        if (value.empty() || settings.set(key, value.c_str()) || !error || !error->empty())
            continue;
        *error = std::string(key) + ": " + value + rule;
    }
    return settings;
}

FsCacheTableNames fsCacheTableNames(bool compressed) {
    const bool large = FsFileInfo::getLargeFileSupport();
    const std::wstring kind = L"." + toWide(localeWord()) + (large ? L"" : L".small") +
                              (compressed ? L".compressed" : L"");
    return tableNames(kind);
}

std::vector<std::wstring> fsCacheFiles(const wchar_t* directory) {
    return noThrow("::fsCacheFiles", [&] {
        std::vector<std::wstring> files;
        if (!directory) return files;
        for (const std::wstring& kind : cacheKinds(directory))
            for (const std::wstring& name : cacheFileNames(tableNames(kind)))
                if (std::wstring path = joinPath(directory, name); isRegularFile(path))
                    files.push_back(std::move(path));
        return files;
    });
}

std::vector<std::wstring> fsCachePlaceFiles(const wchar_t* directory) {
    return noThrow("::fsCachePlaceFiles", [&]() -> std::vector<std::wstring> {
        if (!directory) return {};
        std::vector<std::wstring> files{tagOf(directory),
                                        joinPath(directory, toWide(kDirectoryLockName))};
        if (fsCacheIsWatched(directory)) return files;
        for (const char* name : {kWatchSocketName, kWatchLockName})
            files.push_back(joinPath(directory, toWide(name)));
        return files;
    });
}

// Whoever watches holds the lock of this file.
bool fsCacheIsWatched(const wchar_t* directory) {
    return noThrow("::fsCacheIsWatched", [&] {
        if (!directory) return false;
        const std::string path = toMultibyte(joinPath(directory, toWide(kWatchLockName)));
        const Descriptor file = openAt(AT_FDCWD, path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK);
        return file && ::flock(file.get(), LOCK_SH | LOCK_NB) != 0 && errno == EWOULDBLOCK;
    });
}

bool fsCacheIsMarked(const wchar_t* directory, const FsCacheTableNames& tables) {
    return noThrow("::fsCacheIsMarked", [&] {
        return directory &&
               presenceOf(joinPath(directory, tables.directories + CacheUpdateSuffix)) !=
                   Presence::absent;
    });
}

}  // namespace fscanner
