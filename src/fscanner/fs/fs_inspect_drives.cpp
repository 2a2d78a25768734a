#include <new>

#include "fscanner/discovery/drivehelper.h"
#include "fscanner/discovery/mounted_drives.h"
#include "fscanner/fs/fs_inspect.h"

namespace fscanner {

bool fsListDrives(std::vector<DriveInfo>& drives) {
    try {
        const std::optional<MountTable> table = readMountTable();
        if (!table) return false;
        // Placeholders stay closed: a listing shall not wait for an automounter.
        for (DriveInfo& drive : listMountedDrives(*table))
            if (!isPlaceholder(drive)) drives.push_back(std::move(drive));
        addMissingRoot(drives);
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

}  // namespace fscanner
