#pragma once

#include "fscanner/export.h"

namespace fscanner {

/// The type of a drive. A bitwise AND with the mask of a drive group tells whether the drive
/// belongs to that group.
enum DriveType : unsigned {
    DRIVE_UNKNOWN = 0,  ///< not a mount point, or the placeholder of an automounter
    DRIVE_LOCAL = 2,
    DRIVE_REMOTE = 4,
};

/// The masks of the drive groups.
enum DriveGroup : unsigned {
    mdOtherDriveGroup = 0,
    mdRemoteDriveGroup = 4,
    mdLocalDriveGroup = 27,
    mdAllDriveGroup = 31,
};

/// One mounted file system: the drive name (the mount directory and ":"), the name of the
/// file-system type, and the drive type. Owns its texts. Without memory the constructors and
/// the copy assignment throw `std::bad_alloc`.
class FSCANNER_EXPORT DriveInfo {
public:
    DriveInfo() = default;
    /// Copies both texts; null is allowed. A copied drive has its own texts. A moved-from drive
    /// may have none.
    DriveInfo(const wchar_t* name, DriveType type, const wchar_t* fileSystem);
    DriveInfo(const DriveInfo& other);
    DriveInfo(DriveInfo&& other) noexcept;
    DriveInfo& operator=(const DriveInfo& other);
    DriveInfo& operator=(DriveInfo&& other) noexcept;
    ~DriveInfo();

    /// The name and the file-system type. The object owns them; null if not set.
    const wchar_t* getName() const { return name_; }
    const wchar_t* getFileSystem() const { return fileSystem_; }
    DriveType getType() const { return type_; }

    /// Whether the types and both texts are equal. Null differs from empty.
    bool operator==(const DriveInfo& other) const;

private:
    wchar_t* name_ = nullptr;
    wchar_t* fileSystem_ = nullptr;
    DriveType type_ = DRIVE_UNKNOWN;
};

/// Whether a server or a process answers the calls for this file system: it is not local, or its
/// type begins with "fuse". If that server or process is dead, calls may block for ever.
FSCANNER_EXPORT bool fsIsServed(const DriveInfo& drive);

}  // namespace fscanner
