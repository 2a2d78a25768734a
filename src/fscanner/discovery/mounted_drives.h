#pragma once

#include <vector>

#include "fscanner/discovery/drive_info.h"
#include "fscanner/discovery/mountlist.h"

namespace fscanner {

/// The drives that searches go by, in the table's order. They differ from
/// `DriveHelper::buildDriveList` in what decides whether an answer is right:
/// - A name is the directory and ":", also where the directory's own name ends in ":".
/// - A directory that the table names through symbolic links has its real path. Nothing at
///   or below a remote mount or a placeholder is looked at for that.
/// - Mounts that are known to be covered are left out.
/// - Placeholders are there, as drives of the type `DRIVE_UNKNOWN`.
std::vector<DriveInfo> listMountedDrives(const MountTable& table);

/// Whether a drive only stands for what an automounter mounts.
inline bool isPlaceholder(const DriveInfo& drive) {
    return drive.getType() == DRIVE_UNKNOWN;
}

}  // namespace fscanner
