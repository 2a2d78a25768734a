#pragma once

#include "fscanner/export.h"

namespace fscanner {

/// What a mount is; tested against a drive group's mask with bitwise AND.
enum DriveType : unsigned {
    DRIVE_UNKNOWN = 0,  ///< not a mount point, or only a placeholder
    DRIVE_LOCAL = 2,
    DRIVE_REMOTE = 4,
};

/// Masks of the drive groups.
enum DriveGroup : unsigned {
    mdOtherDriveGroup = 0,
    mdRemoteDriveGroup = 4,
    mdLocalDriveGroup = 27,
    mdAllDriveGroup = 31,
};

/// One mounted file system: the drive name (the mount directory with ":"
/// appended), the file-system type's name, and the drive type. Owns its texts.
class FSCANNER_EXPORT DriveInfo {
public:
    DriveInfo() = default;
    /// Copies of a drive have their own texts; one that is moved from has none.
    DriveInfo(const wchar_t* name, DriveType type, const wchar_t* fileSystem);
    DriveInfo(const DriveInfo& other);
    DriveInfo(DriveInfo&& other) noexcept;
    DriveInfo& operator=(const DriveInfo& other);
    DriveInfo& operator=(DriveInfo&& other) noexcept;
    ~DriveInfo();

    /// The name and the file-system type belong to the object; null when not set.
    const wchar_t* getName() const { return name_; }
    const wchar_t* getFileSystem() const { return fileSystem_; }
    DriveType getType() const { return type_; }

    /// Same type, and both texts equal exactly.
    bool operator==(const DriveInfo& other) const;

private:
    wchar_t* name_ = nullptr;
    wchar_t* fileSystem_ = nullptr;
    DriveType type_ = DRIVE_UNKNOWN;
};

/// Whether somebody has to answer whoever touches what is mounted: a server of the network, or
/// a process. One that is dead lets nobody go.
FSCANNER_EXPORT bool fsIsServed(const DriveInfo& drive);

}  // namespace fscanner
