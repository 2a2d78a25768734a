#include "fscanner/engine/cache_directory.h"

#include <string_view>

#include "fscanner/common/heap_string.h"
#include "fscanner/common/paths.h"
#include "fscanner/common/utf8.h"
#include "fscanner/fs/debug.h"
#include "fscanner/fs/fs_fileinfo.h"
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
    if (!directory || !*directory) return false;
    return behindWall("::fsPrepareCacheDirectory", [directory] {
        const std::string path = toMultibyte(directory);
        if (!makePrivateDirectories(path)) {
            debug("::fsPrepareCacheDirectory - '%ls' cannot be made\n", directory);
            return false;
        }
        if (!isPrivateDirectory(path)) {
            debug("::fsPrepareCacheDirectory - '%ls' may be written by others\n", directory);
            return false;
        }
        tag(directory);
        return true;
    });
}

FsCacheTableNames fsCacheTableNames(bool compressed) {
    const bool large = FsFileInfo::getLargeFileSupport();
    const std::wstring kind = L"." + toWide(localeWord()) + (large ? L"" : L".small") +
                              (compressed ? L".compressed" : L"");
    return {L"directories" + kind, L"files" + kind};
}

}  // namespace fscanner
