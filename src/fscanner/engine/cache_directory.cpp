#include "fscanner/engine/cache_directory.h"

#include <charconv>
#include <string_view>

#include "fscanner/common/heap_string.h"
#include "fscanner/common/paths.h"
#include "fscanner/common/utf8.h"
#include "fscanner/fs/debug.h"
#include "fscanner/fs/fs_config.h"
#include "fscanner/fs/fs_fileinfo.h"
#include "fscanner/fs/fs_provider.h"
#include "fscanner/fs/wall.h"
#include "fscanner/platform/small_file.h"
#include "fscanner/platform/user_directory.h"

namespace fscanner {

namespace {

constexpr std::string_view kTag =
    "Signature: 8a477f597d28d172789f06886806bc55\n"
    "# This directory holds a cache of fscanner and may be deleted while nobody uses it.\n";

void tag(const std::wstring& directory) {
    const std::wstring file = directory + L"/CACHEDIR.TAG";
    if (presenceOf(file) == Presence::absent)
        writeSmallFile(file, kTag.data(), static_cast<unsigned>(kTag.size()));
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

}  // namespace

std::wstring fsDefaultCacheDirectory() {
    return behindWall("::fsDefaultCacheDirectory", []() -> std::wstring {
        const std::string home = userCacheHome();
        if (home.empty()) return L"";
        const std::wstring base = toWide(home + "/fscanner");
        const HeapText directory(getUserCacheDir(base.c_str(), false));
        return directory ? directory.get() : L"";
    });
}

bool fsPrepareCacheDirectory(const wchar_t* directory) {
    std::wstring problem;
    return fsPrepareCacheDirectory(directory, problem);
}

bool fsPrepareCacheDirectory(const wchar_t* directory, std::wstring& problem) {
    if (!directory || !*directory) {
        problem = L"there is no path";
        return false;
    }
    return behindWall("::fsPrepareCacheDirectory", [&] {
        const std::string path = toMultibyte(directory);
        std::string wrong = makePrivateDirectories(path);
        if (wrong.empty()) wrong = privacyProblem(path);
        if (!wrong.empty()) {
            problem = toWide(wrong);
            debug("::fsPrepareCacheDirectory - '%ls' cannot be used: %ls\n", directory,
                  problem.c_str());
            return false;
        }
        tag(directory);
        return true;
    });
}

bool FsCacheSettings::set(const char* key, const char* value) {
    if (!key || !value) return false;
    const std::string_view name(key);
    if (name == FS_OPTION_MONITORED) return parseBool(value, monitored);
    if (name == FS_OPTION_COMPRESSED) return parseBool(value, compressed);
    if (name == FS_OPTION_FRESH) return parseBool(value, fresh);
    if (name == FS_OPTION_WAIT) return parseCount(value, wait);
    if (name != FS_OPTION_CACHE_DIRECTORY || *value != '/') return false;
    return behindWall("FsCacheSettings::set", [&] {
        directory = toWide(value);
        return true;
    });
}

FsCacheSettings fsCacheSettings(const FsConfig& config, std::string* error) {
    FsCacheSettings settings;
    for (const char* key : {FS_OPTION_CACHE_DIRECTORY, FS_OPTION_MONITORED, FS_OPTION_COMPRESSED}) {
        const std::string value = config.getString("provider_cache", key, "");
        if (value.empty() || settings.set(key, value.c_str()) || !error || !error->empty())
            continue;
        const bool path = key == FS_OPTION_CACHE_DIRECTORY;
        *error = std::string(key) + ": " + value +
                 (path ? " is no absolute path" : " is neither true nor false");
    }
    return settings;
}

FsCacheTableNames fsCacheTableNames(bool compressed) {
    const bool large = FsFileInfo::getLargeFileSupport();
    const std::wstring kind = L"." + toWide(localeWord()) + (large ? L"" : L".small") +
                              (compressed ? L".compressed" : L"");
    return {L"directories" + kind, L"files" + kind};
}

}  // namespace fscanner
