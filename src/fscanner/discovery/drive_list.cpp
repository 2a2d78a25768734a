#include <algorithm>
#include <cstring>
#include <cwchar>
#include <string>
#include <tuple>
#include <utility>

#include "fscanner/common/utf8.h"
#include "fscanner/common/wildcard.h"
#include "fscanner/discovery/drivehelper.h"
#include "fscanner/discovery/list_duplicates.h"
#include "fscanner/discovery/mount_access.h"
#include "fscanner/discovery/mount_table.h"
#include "fscanner/fs/debug.h"

namespace fscanner {

namespace {

DriveType typeOf(const MountEntry& mount) {
    return mount.isRemote() ? DRIVE_REMOTE : DRIVE_LOCAL;
}

/// A directory whose own name ends in ":" is taken as it is: that ":" then counts
/// as the drive name's, and the drive's path lacks it.
std::wstring driveName(const MountEntry& mount) {
    std::wstring name = toWide(mount.getMountDir());
    if (!name.ends_with(L':')) name += L':';
    return name;
}

void appendDrive(const MountEntry& mount, DriveType type, std::vector<DriveInfo>& list) {
    const std::wstring name = driveName(mount);
    list.emplace_back(name.c_str(), type, toWide(mount.getFileSystemType()).c_str());
    debug("DriveHelper::buildDriveList - drive: %ls, %d\n", name.c_str(), static_cast<int>(type));
}

}  // namespace

DriveType DriveHelper::getDriverType(const wchar_t* path) {
    debug("DriveHelper::getDriverType - entering...\n");
    const std::string directory = toMultibyte(path);
    std::vector<MountEntry> mounts;
    MountTableManager::getMountEntryList(mounts);
    DriveType type = DRIVE_UNKNOWN;
    for (const MountEntry& mount : mounts) {
        if (!mount.isDummy() && directory == mount.getMountDir()) type = typeOf(mount);
    }
    return type;
}

bool DriveHelper::buildDriveList(std::vector<DriveInfo>& list, unsigned mask) {
    debug("DriveHelper::buildDriveList - entering...\n");
    accessToAllMountPaths();
    std::vector<MountEntry> mounts;
    MountTableManager::getMountEntryList(mounts);
    buildDriveList(mounts, mask, list);
    debug("DriveHelper::buildDriveList - exit.\n");
    return true;
}

void DriveHelper::buildDriveList(const std::vector<MountEntry>& mounts, unsigned mask,
                                 std::vector<DriveInfo>& list) {
    for (const MountEntry& mount : mounts) {
        // Placeholders are no drives, and so are never excluded from a scan either.
        if (mount.isDummy()) continue;
        debug("DriveHelper::buildDriveList - [%s] [%s] [%s]\n", mount.getDevName(),
              mount.getMountDir(), mount.getFileSystemType());
        if ((mask & typeOf(mount)) == 0) continue;
        if (std::strcmp(mount.getFileSystemType(), "dfs") == 0) {
            appendDrive(mount, DRIVE_REMOTE, list);
            appendDrive(mount, DRIVE_LOCAL, list);
        } else {
            appendDrive(mount, typeOf(mount), list);
        }
    }
}

int DriveHelper::checkDrive(const std::vector<DriveInfo>& list, const wchar_t* name,
                            bool caseFlag) {
    const std::size_t length = std::wcslen(name);
    if (length == 0 || name[length - 1] != L':') return -1;
    const auto found = std::find_if(list.begin(), list.end(), [&](const DriveInfo& drive) {
        return drive.getName() &&
               wcsnvccmp(drive.getName(), name, static_cast<unsigned>(length), caseFlag) == 0;
    });
    return found == list.end() ? -1 : static_cast<int>(found - list.begin());
}

bool DriveHelper::checkforDriveInfo(const std::vector<DriveInfo>& list, const DriveInfo& drive) {
    return std::find(list.begin(), list.end(), drive) != list.end();
}

void DriveHelper::appendDriveList(const std::vector<DriveInfo>& source,
                                  std::vector<DriveInfo>& destination, bool skipPresent) {
    debug("DriveHelper::appendDriveList - dstDriveList size is %d, srcDriveList size is %d\n",
          static_cast<int>(destination.size()), static_cast<int>(source.size()));
    for (const DriveInfo& drive : source) {
        if (!skipPresent || !checkforDriveInfo(destination, drive)) destination.push_back(drive);
    }
    removeDriveListDuplicate(destination);
    debug("DriveHelper::appendDriveList - dstDriveList new size is %d\n",
          static_cast<int>(destination.size()));
}

bool DriveHelper::removeDriveListDuplicate(std::vector<DriveInfo>& list) {
    return removeEarlierDuplicates(list, [](const DriveInfo& drive) {
        return std::tuple(drive.getType(), textKey(drive.getName()),
                          textKey(drive.getFileSystem()));
    });
}

void DriveHelper::fileSystemDriveListPruning(const std::vector<DriveInfo>& drives,
                                             std::vector<DriveInfo>& result,
                                             const std::vector<FileSystemInfo>& included,
                                             const std::vector<FileSystemInfo>& excluded) {
    for (const DriveInfo& drive : drives) {
        const wchar_t* fileSystem = drive.getFileSystem();
        if ((included.empty() || checkFileSystems(fileSystem, included, false)) &&
            !checkFileSystems(fileSystem, excluded, false)) {
            result.push_back(drive);
            continue;
        }
        debug(
            "DriveHelper::fileSystemDriveListPruning - drive '%ls' with '%ls' fileSystem "
            "excluded!\n",
            drive.getName(), fileSystem);
    }
}

bool DriveHelper::checkFileSystems(const wchar_t* name, const std::vector<FileSystemInfo>& list,
                                   bool caseFlag) {
    return name && std::any_of(list.begin(), list.end(), [&](const FileSystemInfo& entry) {
               return entry.getName() && wcsvccmp(entry.getName(), name, caseFlag) == 0;
           });
}

}  // namespace fscanner
