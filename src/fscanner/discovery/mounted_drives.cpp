#include "fscanner/discovery/mounted_drives.h"

#include <set>
#include <string>

#include "fscanner/common/utf8.h"
#include "fscanner/discovery/real_path.h"
#include "fscanner/fs/debug.h"

namespace fscanner {

namespace {

/// To look at such a mount may take forever, or make an automounter mount.
bool isSlow(const MountEntry& mount) {
    return mount.isDummy() || mount.isRemote();
}

/// The real paths of mount directories.
class RealDirectories {
public:
    explicit RealDirectories(const std::vector<MountEntry>& mounts) {
        for (const MountEntry& mount : mounts)
            if (isSlow(mount)) slow_.insert(mount.getMountDir());
        for (const MountEntry& mount : mounts)
            if (isSlow(mount)) slow_.insert((*this)(mount));
    }

    /// The directory as the table has it where it cannot be resolved.
    std::string operator()(const MountEntry& mount) const {
        std::string directory = mount.getMountDir();
        if (!directory.starts_with('/')) return directory;
        // Of a slow mount only what leads to it is looked at.
        const std::size_t end = isSlow(mount) ? directory.rfind('/') : directory.size();
        auto real = resolvePath("/" + directory.substr(0, end),
                                [this](std::string_view path) { return !isBehind(path); });
        if (!real) return directory;
        if (end == directory.size()) return *real;
        return (*real == "/" ? "" : *real) + directory.substr(end);
    }

private:
    bool isBehind(std::string_view path) const {
        for (; !path.empty(); path = path.substr(0, path.rfind('/')))
            if (slow_.contains(path)) return true;
        return false;
    }

    std::set<std::string, std::less<>> slow_;
};

void appendDrive(const std::string& directory, DriveType type, const MountEntry& mount,
                 std::vector<DriveInfo>& drives) {
    const std::wstring name = toWide(directory) + L':';
    drives.emplace_back(name.c_str(), type, toWide(mount.getFileSystemType()).c_str());
    debug("DriveHelper::buildDriveList - drive: %ls, %d\n", name.c_str(), static_cast<int>(type));
}

}  // namespace

std::vector<DriveInfo> listMountedDrives(const MountTable& table) {
    const std::vector<MountEntry> mounts = reachableMounts(table);
    const RealDirectories realDirectories(table.ofKernel ? std::vector<MountEntry>() : mounts);
    std::vector<DriveInfo> drives;
    for (const MountEntry& mount : mounts) {
        const std::string directory = table.ofKernel ? mount.getMountDir() : realDirectories(mount);
        if (mount.isDummy()) {
            appendDrive(directory, DRIVE_UNKNOWN, mount, drives);
            continue;
        }
        // A "dfs" is both.
        const bool twofold = mount.getFileSystemType() == std::string_view("dfs");
        if (mount.isRemote() || twofold) appendDrive(directory, DRIVE_REMOTE, mount, drives);
        if (!mount.isRemote() || twofold) appendDrive(directory, DRIVE_LOCAL, mount, drives);
    }
    return drives;
}

}  // namespace fscanner
