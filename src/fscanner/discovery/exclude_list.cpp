#include <cwchar>
#include <string>

#include "fscanner/discovery/mount_map.h"
#include "fscanner/discovery/owned_text.h"
#include "fscanner/discovery/pathhelper.h"
#include "fscanner/fs/debug.h"

namespace fscanner {

namespace {

bool sameFileSystem(const DriveInfo& a, const DriveInfo& b) {
    return sameText(a.getFileSystem(), b.getFileSystem());
}

/// `path` without a final "/" (the root is the empty text), shorter than `mount`.
bool liesInside(std::wstring_view mount, std::wstring_view path) {
    return mount.starts_with(path) && (mount.size() == path.size() || mount[path.size()] == L'/');
}

}  // namespace

void PathHelper::buildExcludeList(const std::vector<DriveInfo>& drives, const PathDrive& pair,
                                  std::vector<PathInfo>& excluded) {
    if (drives.empty()) return;
    const wchar_t* pathText = pair.path.getPathName() ? pair.path.getPathName() : L"";
    std::wstring_view path(pathText);
    if (path.ends_with(L'/')) path.remove_suffix(1);
    std::size_t maxIndex = 0;
    bool found = false;
    for (std::size_t i = 0; i < drives.size(); ++i) {
        const DriveInfo& drive = drives[i];
        const std::wstring mount(driveText(drive));
        const int pathLength = static_cast<int>(path.size());
        const int driveLength = static_cast<int>(mount.size());
        debug("PathHelper::buildExcludeList - check to exclude [%ls] [%d] [%ls]...\n",
              mount.c_str(), static_cast<int>(drive.getType()), drive.getFileSystem());
        if (path.size() >= mount.size()) {
            debug("PathHelper::buildExcludeList - 'tmpPathLen(%d)>tmpDriveLen(%d)'\n", pathLength,
                  driveLength);
            // As characters; the last such drive wins, which is the longest in a sorted list.
            if (!path.starts_with(mount)) continue;
            debug("PathHelper::buildExcludeList - '%ls' is substring of '%ls'\n", mount.c_str(),
                  pathText);
            maxIndex = i;
            found = true;
            continue;
        }
        debug("PathHelper::buildExcludeList - 'tmpPathLen(%d)<tmpDriveLen(%d)'\n", pathLength,
              driveLength);
        if (!liesInside(mount, path) || sameKind(drive, pair.drive)) continue;
        excluded.emplace_back(mount.c_str(), true);
        debug("PathHelper::buildExcludeList [1] - excluded path for '%ls' is '%ls'\n", pathText,
              mount.c_str());
    }
    const int index = static_cast<int>(maxIndex);
    debug("PathHelper::buildExcludeList - maxIndex is %d\n", index);
    // Without an enclosing drive the first one stands in, by its file system alone.
    const DriveInfo& enclosing = drives[maxIndex];
    if (found ? sameKind(enclosing, pair.drive) : sameFileSystem(enclosing, pair.drive)) {
        debug("PathHelper::buildExcludeList - not path excluded for maxIndex(%d)\n", index);
        return;
    }
    const std::wstring mount(driveText(enclosing));
    excluded.emplace_back(mount.c_str(), true);
    debug("PathHelper::buildExcludeList - excluded[2] path for '%ls' is '%ls'\n", pathText,
          mount.c_str());
}

void PathHelper::reduceDriveList(const std::vector<DriveInfo>& drives,
                                 std::vector<DriveInfo>& reduced, const PathDrive& pair) {
    debug("PathHelper::reduceDriveList - entering...\n");
    if (!pair.path.getPathName()) return;
    for (const DriveInfo& drive : drives) {
        if (pathFilterByDrive(pair.path.getPathName(), drive) != PathRelation::APART) {
            reduced.push_back(drive);
        }
    }
}

}  // namespace fscanner
