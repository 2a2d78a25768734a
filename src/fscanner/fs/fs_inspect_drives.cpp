#include <new>

#include "fscanner/discovery/drivehelper.h"
#include "fscanner/discovery/mount_table.h"
#include "fscanner/fs/fs_inspect.h"

namespace fscanner {

bool fsListDrives(std::vector<DriveInfo>& drives) {
    try {
        std::vector<MountEntry> mounts;
        if (!MountTableManager::getMountEntryList(mounts)) return false;
        // Placeholders stay closed: a listing shall not wait for an automounter.
        DriveHelper::buildDriveList(mounts, mdAllDriveGroup, drives);
        addMissingRoot(drives);
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

}  // namespace fscanner
