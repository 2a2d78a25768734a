#include "fscanner/discovery/drivehelper.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <cwchar>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>

#include "fscanner/common/debug.h"
#include "fscanner/common/path_text.h"
#include "fscanner/common/utf8.h"
#include "fscanner/common/wildcard.h"
#include "fscanner/discovery/filesystemhelper.h"
#include "fscanner/discovery/mountlist.h"
#include "fscanner/discovery/pathhelper.h"
#include "fscanner/platform/paths.h"

namespace fscanner {

// ---- Lists of drives --------------------------------------------------------

namespace {

DriveType typeOf(const MountEntry& mount) {
    return mount.isRemote() ? DRIVE_REMOTE : DRIVE_LOCAL;
}

/// The types of the drives that a mount gives: a "dfs" gives one of each.
std::vector<DriveType> typesOf(const MountEntry& mount) {
    if (mount.getFileSystemType() == std::string_view("dfs")) return {DRIVE_REMOTE, DRIVE_LOCAL};
    return {typeOf(mount)};
}

void appendDrive(const std::wstring& name, DriveType type, const MountEntry& mount,
                 std::vector<DriveInfo>& drives) {
    drives.emplace_back(name.c_str(), type, toWide(mount.getFileSystemType()).c_str());
    debug("DriveHelper::buildDriveList - drive: %ls, %d\n", name.c_str(), static_cast<int>(type));
}

}  // namespace

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

// ---- Lists to resolve paths on ----------------------------------------------

namespace {

/// Tells, from the last drive to the first, whether a later one hides this one.
class HiddenDrives {
public:
    bool operator()(const DriveInfo& drive) {
        Visible& visible = visible_[PathHelper::driveText(drive)];
        const bool pairMember =
            visible.dfs && isDfs(drive) && !visible.types.contains(drive.getType());
        if (!visible.types.empty() && !pairMember) return true;
        visible.dfs = isDfs(drive);
        visible.types.insert(drive.getType());
        return false;
    }

private:
    struct Visible {
        std::set<DriveType> types;
        bool dfs = false;
    };
    std::map<std::wstring_view, Visible> visible_;
};

std::size_t depthOf(const DriveInfo& drive) {
    return componentCount(PathHelper::driveText(drive));
}

}  // namespace

void normaliseDriveList(std::vector<DriveInfo>& drives) {
    removeFromEnd(drives, HiddenDrives());
    std::stable_sort(drives.begin(), drives.end(), [](const DriveInfo& a, const DriveInfo& b) {
        return depthOf(a) < depthOf(b);
    });
}

void addMissingRoot(std::vector<DriveInfo>& mounted) {
    const auto isRoot = [](const DriveInfo& drive) {
        return drive.getName() && std::wcscmp(drive.getName(), L"/:") == 0;
    };
    if (mounted.empty() || std::any_of(mounted.begin(), mounted.end(), isRoot)) return;
    mounted.insert(mounted.begin(), DriveInfo(L"/:", DRIVE_LOCAL, L"rootfs"));
}

// ---- What searches go by ----------------------------------------------------

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

}  // namespace

std::vector<DriveInfo> listMountedDrives(const MountTable& table) {
    const std::vector<MountEntry> mounts = reachableMounts(table);
    const RealDirectories realDirectories(table.ofKernel ? std::vector<MountEntry>() : mounts);
    std::vector<DriveInfo> drives;
    for (const MountEntry& mount : mounts) {
        const std::string directory = table.ofKernel ? mount.getMountDir() : realDirectories(mount);
        const std::wstring name = toWide(directory) + L':';
        const std::vector<DriveType> types =
            mount.isDummy() ? std::vector{DRIVE_UNKNOWN} : typesOf(mount);
        for (const DriveType type : types) appendDrive(name, type, mount, drives);
    }
    return drives;
}

// ---- Offered to hosts; nothing in fscanner uses what follows ----------------

namespace {

/// A directory whose own name ends in ":" is taken as it is: that ":" then counts
/// as the drive name's, and the drive's path lacks it.
std::wstring driveName(const MountEntry& mount) {
    std::wstring name = toWide(mount.getMountDir());
    if (!name.ends_with(L':')) name += L':';
    return name;
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
        for (const DriveType type : typesOf(mount))
            appendDrive(driveName(mount), type, mount, list);
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

// ---- Drives by other names --------------------------------------------------

// Drives by other names. A mount table may name a mount directory that is reached
// through symbolic links; a search below the link's target meets the mount under
// its link-free name, and has to know that name as a drive too.

namespace {

/// A drive whose links lead in ever longer circles ends here.
constexpr int kMaxLevels = 32;

bool isRemote(const DriveInfo& drive) {
    return drive.getType() == DRIVE_REMOTE;
}

void logNoLink(const std::wstring& path, int error) {
    if (error == EINVAL) {
        debug("DriveHelper::driveEnumerator - the path specified [%ls] is not a symbolic link!\n",
              path.c_str());
        return;
    }
    debug("DriveHelper::driveEnumerator - unable to access path specified [%ls] (error %d)\n",
          path.c_str(), error);
}

bool isPresent(const DriveInfo& drive, const std::vector<DriveInfo>& links) {
    if (!DriveHelper::checkforDriveInfo(links, drive)) return false;
    debug("DriveHelper::driveEnumerator - path already present!\n");
    return true;
}

class LinkSearch {
public:
    LinkSearch(std::vector<std::wstring> remoteMounts, std::vector<DriveInfo>& links)
        : remoteMounts_(std::move(remoteMounts)), links_(links) {}

    void enumerate(const DriveInfo& drive, bool skipPresent, int level);

private:
    void checkAncestor(const DriveInfo& drive, const std::wstring& path,
                       const std::wstring& ancestor, int level);
    std::optional<std::wstring> linkFreeTarget(const std::wstring& ancestor) const;
    bool mayRead(const std::wstring& path) const;

    std::vector<std::wstring> remoteMounts_;
    std::vector<DriveInfo>& links_;
};

void LinkSearch::enumerate(const DriveInfo& drive, bool skipPresent, int level) {
    if (!drive.getName()) {
        debug("DriveHelper::driveEnumerator - path pointer is null\n");
        return;
    }
    debug("DriveHelper::driveEnumerator - check [%ls] path for symbolik link...\n",
          drive.getName());
    if (skipPresent && isPresent(drive, links_)) return;
    const std::wstring path(PathHelper::driveText(drive));
    // The remote drive at hand may have no entry of its own in the list.
    if (isRemote(drive)) remoteMounts_.push_back(path);
    const std::vector<PathAncestor> chain = PathHelper::pathReducer(path);
    for (auto ancestor = chain.rbegin(); ancestor != chain.rend(); ++ancestor) {
        if (mayRead(ancestor->path)) checkAncestor(drive, path, ancestor->path, level);
    }
    if (isRemote(drive)) remoteMounts_.pop_back();
}

void LinkSearch::checkAncestor(const DriveInfo& drive, const std::wstring& path,
                               const std::wstring& ancestor, int level) {
    debug("DriveHelper::driveEnumerator - checking [%ls] path...\n", ancestor.c_str());
    const std::optional<std::wstring> target = linkFreeTarget(ancestor);
    if (!target) {
        logNoLink(ancestor, errno);
        return;
    }
    // What lies below the ancestor may hold links of its own: the next level finds them.
    std::wstring name = *target == PathHelper::PathSeparator ? L"" : *target;
    name += path.substr(ancestor.size());
    name += name.empty() ? L"/:" : L":";
    debug("DriveHelper::driveEnumerator - new drive is [%ls]\n", name.c_str());
    const DriveInfo found(name.c_str(), drive.getType(), drive.getFileSystem());
    if (DriveHelper::checkforDriveInfo(links_, found)) return;
    links_.push_back(found);
    if (level < kMaxLevels) enumerate(found, false, level + 1);
}

/// Where the link `ancestor` leads. Nothing, and errno says why, for what is no link
/// or leads nowhere.
std::optional<std::wstring> LinkSearch::linkFreeTarget(const std::wstring& ancestor) const {
    std::optional<std::string> target = readLink(toMultibyte(ancestor));
    if (!target) return std::nullopt;
    debug("DriveHelper::driveEnumerator - link is [%s]\n", target->c_str());
    const bool relative = !target->starts_with('/');
    if (relative) target->insert(0, toMultibyte(ancestor.substr(0, ancestor.rfind(L'/') + 1)));
    const std::optional<std::string> real =
        resolvePath(*target, [this](std::string_view path) { return mayRead(toWide(path)); });
    if (!real) return std::nullopt;
    const std::wstring path = toWide(*real);
    if (relative) debug("DriveHelper::driveEnumerator - real link is [%ls]\n", path.c_str());
    return path;
}

bool LinkSearch::mayRead(const std::wstring& path) const {
    return std::none_of(remoteMounts_.begin(), remoteMounts_.end(),
                        [&](const std::wstring& mount) { return isWithin(path, mount); });
}

}  // namespace

void DriveHelper::buildExcludeLinkList(const std::vector<DriveInfo>& drives, unsigned mask,
                                       std::vector<DriveInfo>& links) {
    std::vector<std::wstring> remoteMounts;
    for (const DriveInfo& drive : drives) {
        if (isRemote(drive)) remoteMounts.emplace_back(PathHelper::driveText(drive));
    }
    LinkSearch search(std::move(remoteMounts), links);
    for (const DriveInfo& drive : drives) {
        if ((drive.getType() & mask) != 0) search.enumerate(drive, false, 1);
    }
}

void DriveHelper::driveEnumerator(const DriveInfo& drive, std::vector<DriveInfo>& links,
                                  bool skipPresent) {
    LinkSearch({}, links).enumerate(drive, skipPresent, 1);
}

}  // namespace fscanner
