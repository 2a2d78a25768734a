#include <cerrno>

#include "fscanner/common/utf8.h"
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

}  // namespace fscanner
