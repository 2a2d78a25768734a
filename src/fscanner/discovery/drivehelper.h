#pragma once

#include <vector>

#include "fscanner/discovery/drive_info.h"
#include "fscanner/discovery/filesystem_info.h"
#include "fscanner/discovery/mountlist.h"

namespace fscanner {

/// Drive lists: pruned by file system; for hosts also made from the mount table, merged, and
/// extended by the link-free names of mounts that are reached through symbolic links.
/// Searches make theirs by `listMountedDrives`. Stateless. Lists named as results are
/// appended to.
class DriveHelper {
public:
    /// Appends the drives whose file system is in `included`, unless that is
    /// empty, and not in `excluded`. Names are compared without case.
    static void fileSystemDriveListPruning(const std::vector<DriveInfo>& drives,
                                           std::vector<DriveInfo>& result,
                                           const std::vector<FileSystemInfo>& included,
                                           const std::vector<FileSystemInfo>& excluded);
    static bool checkFileSystems(const wchar_t* name, const std::vector<FileSystemInfo>& list,
                                 bool caseFlag);

    // ---- Offered to hosts; nothing in fscanner uses what follows ------------

    /// What is mounted exactly at `path`; the last mount there counts.
    static DriveType getDriverType(const wchar_t* path);

    /// Appends the mounts whose type is in `mask`, in the mount table's order,
    /// after opening every placeholder. A file system "dfs" gives two drives, one
    /// of each type. Always true; an unreadable table gives no drive.
    static bool buildDriveList(std::vector<DriveInfo>& list, unsigned mask);
    /// The same of mounts at hand, without opening anything.
    static void buildDriveList(const std::vector<MountEntry>& mounts, unsigned mask,
                               std::vector<DriveInfo>& list);

    /// Index of the first drive whose name starts with `name`; -1 when there is
    /// none, and for a name that does not end in ":".
    static int checkDrive(const std::vector<DriveInfo>& list, const wchar_t* name, bool caseFlag);
    /// Whether an equal drive is in the list.
    static bool checkforDriveInfo(const std::vector<DriveInfo>& list, const DriveInfo& drive);

    /// Appends `source` (with `skipPresent`, only what is not there yet) and then
    /// removes duplicates from the whole destination.
    static void appendDriveList(const std::vector<DriveInfo>& source,
                                std::vector<DriveInfo>& destination, bool skipPresent);
    /// Of equal drives the last one stays. True when any was removed.
    static bool removeDriveListDuplicate(std::vector<DriveInfo>& list);

    /// Finds the link-free names of every drive whose type is in `mask`. Nothing
    /// at or below any remote mount in `drives` is looked at.
    static void buildExcludeLinkList(const std::vector<DriveInfo>& drives, unsigned mask,
                                     std::vector<DriveInfo>& links);
    /// The same for one drive. With `skipPresent`, one that is in `links` already
    /// is left alone.
    static void driveEnumerator(const DriveInfo& drive, std::vector<DriveInfo>& links,
                                bool skipPresent);
};

/// Makes of a drive list one on which paths can be resolved: of drives with one
/// name only the last, which hides the others, stays (a "dfs" pair stays whole),
/// and enclosing mounts come before those they contain, otherwise in list order.
void normaliseDriveList(std::vector<DriveInfo>& drives);

/// Puts the root in front, as a local drive of type "rootfs", where a list of drives has
/// others and not it: below a changed root the table has no line for "/", because the
/// mount that it lies on begins outside.
void addMissingRoot(std::vector<DriveInfo>& mounted);

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
