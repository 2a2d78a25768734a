#pragma once

#include "fscanner/discovery/drive_info.h"
#include "fscanner/discovery/path_info.h"

namespace fscanner {

/// A place to search, and the drive that it lies on.
struct PathDrive {
    PathInfo path;
    DriveInfo drive;
};

}  // namespace fscanner
