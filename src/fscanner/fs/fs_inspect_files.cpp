#include <sys/stat.h>

#include <cerrno>

#include "fscanner/common/utf8.h"
#include "fscanner/discovery/real_path.h"
#include "fscanner/fs/fs_inspect.h"
#include "fscanner/fs/wall.h"
#include "fscanner/platform/directory.h"

namespace fscanner {

int fsOpenDirectory(const wchar_t* path) {
    errno = path ? ENOMEM : EINVAL;
    if (!path) return -1;
    return behindWall("::fsOpenDirectory", -1, [path] {
        return openDirectoryWithoutLinks(toMultibyte(path).c_str(), DirectoryUse::reach).release();
    });
}

std::wstring fsResolvePath(const wchar_t* path,
                           const std::function<bool(const wchar_t* path)>& mayTouch) {
    errno = EINVAL;
    if (!path || !mayTouch) return {};
    return behindWall("::fsResolvePath", std::wstring(), [&] {
        const auto isLink = [&](std::string_view bytes) {
            struct stat info {};
            return mayTouch(toWide(bytes).c_str()) &&
                   lstat(std::string(bytes).c_str(), &info) == 0 && S_ISLNK(info.st_mode);
        };
        return toWide(resolvePath(toMultibyte(path), isLink).value_or(""));
    });
}

}  // namespace fscanner
