#include <algorithm>
#include <cwchar>

#include "fscanner/discovery/pathhelper.h"
#include "fscanner/fs/debug.h"

namespace fscanner {

bool PathHelper::fileSystemPathChecker(const wchar_t* path,
                                       const std::vector<PathInfo>& includeList,
                                       const std::vector<PathInfo>& excludeList) {
    const wchar_t* colon = std::wcschr(path, L':');
    const wchar_t* bare = colon ? colon + 1 : path;
    const int excluded = checkPathListEx(bare, excludeList, true);
    if (excluded < 0) return true;
    const int included = checkPathListEx(bare, includeList, true);
    if (included < 0) return false;
    const auto length = [](const std::vector<PathInfo>& list, int i) {
        return std::wcslen(list[static_cast<unsigned>(i)].getPathName());
    };
    return length(excludeList, excluded) <= length(includeList, included);
}

void PathHelper::fileSystemPathDriveListPruning(std::vector<PathDrive>& pairs,
                                                const std::vector<PathInfo>& includeList,
                                                const std::vector<PathInfo>& excludeList) {
    debug("PathHelper::fileSystemPathDriveListPruning - entering [list size is %d]...\n",
          static_cast<int>(pairs.size()));
    std::erase_if(pairs, [&](const PathDrive& pair) {
        const wchar_t* path = pair.path.getPathName();
        if (!path || fileSystemPathChecker(path, includeList, excludeList)) return false;
        debug("PathHelper::fileSystemPathDriveListPruning - path name '%ls' removed!\n", path);
        return true;
    });
    debug("PathHelper::fileSystemPathDriveListPruning - exit [list size is %d]\n",
          static_cast<int>(pairs.size()));
}

}  // namespace fscanner
