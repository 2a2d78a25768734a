#include "fscanner/discovery/path_resolver.h"

#include <algorithm>
#include <cwchar>
#include <map>
#include <utility>

#include "fscanner/common/debug.h"
#include "fscanner/common/path_text.h"
#include "fscanner/common/wildcard.h"
#include "fscanner/discovery/path_entry.h"
#include "fscanner/discovery/pathhelper.h"

namespace fscanner {

namespace {

using Pairs = std::vector<PathDrive>;

/// Whether the path may lie on the drive, or the drive below the path, as far as a comparison
/// of their texts tells. For a recursive path `searched` ends in "/*". The texts are compared
/// without case and not by components, so `resolveOnDrive` decides.
bool textsMatch(const std::wstring& searched, const std::wstring& drive) {
    const unsigned length = static_cast<unsigned>(drive.size());
    if (wcsnvccmp(searched.c_str(), drive.c_str(), length, false) == 0) {
        debug("PathHelper::unix_path_resolver - tmpPathName (include) tmpDrive\n");
        return true;
    }
    debug("PathHelper::unix_path_resolver - tmpPathName (not include) tmpDrive\n");
    if (!wildcasecmp(searched.c_str(), drive.c_str(), false)) return false;
    debug("PathHelper::unix_path_resolver - tmpPathName (wild match) tmpDrive\n");
    return true;
}

}  // namespace

bool resolveText(const PathInfo& pathInfo, std::size_t driveLength, PathInfo& resolved,
                 PathInfo& parentResolved) {
    const std::wstring drive(pathInfo.getPathName(), driveLength);
    const std::wstring path(pathInfo.getPathName() + driveLength + 1);
    std::wstring searched = path;
    if (pathInfo.getRecursive()) searched += searched.ends_with(L'/') ? L"*" : L"/*";
    debug("PathHelper::unix_path_resolver - tmpPathName is '%ls'\n", searched.c_str());
    debug("PathHelper::unix_path_resolver - tmpDrive is '%ls'\n", drive.c_str());
    if (!textsMatch(searched, drive)) {
        debug("PathHelper::unix_path_resolver - errors found!\n");
        return false;
    }
    const std::wstring bare = PathHelper::buildResolvedPath(path.c_str());
    const std::wstring& parent = drive.size() > bare.size() ? drive : bare;
    resolved = PathInfo(path.c_str(), pathInfo.getRecursive());
    parentResolved = PathInfo(parent.c_str(), pathInfo.getRecursive());
    debug("PathHelper::unix_path_resolver - unixResolvedPathInfo is %ls\n", path.c_str());
    debug("PathHelper::unix_path_resolver - unixParentResolvedPathInfo is %ls\n", parent.c_str());
    return true;
}

namespace {

class Resolver {
public:
    Resolver(const std::vector<DriveInfo>& drives, const std::vector<PathInfo>& includedMounts,
             const std::vector<PathInfo>& excludedMounts)
        : drives_(drives) {
        for (const PathInfo& mount : excludedMounts) addMount(mount, false);
        for (const PathInfo& mount : includedMounts) addMount(mount, true);
    }

    void resolve(const PathEntry& entry);
    ResolvedPaths take() { return std::move(found_); }

private:
    bool canResolve(const PathEntry& entry) const;
    bool admits(const PathEntry& entry, const DriveInfo& drive) const;
    bool resolveOnDrive(const PathEntry& entry, const DriveInfo& drive, std::wstring_view location);
    void add(PathInfo path, const DriveInfo& drive, Pairs& list);
    void addMount(const PathInfo& mount, bool searched);
    bool isSearched(const wchar_t* path) const;

    const std::vector<DriveInfo>& drives_;
    // By mount point: whether the query's file systems allow it.
    std::map<std::wstring, bool, std::less<>> searched_;
    ResolvedPaths found_;  // in the order of the entries
};

void Resolver::resolve(const PathEntry& entry) {
    bool found = false;
    if (canResolve(entry)) {
        const int at = PathHelper::pathLocation(entry.path, drives_);
        const std::wstring_view location =
            at < 0 ? std::wstring_view()
                   : PathHelper::driveText(drives_[static_cast<unsigned>(at)]);
        for (std::size_t i = 0; i < drives_.size(); ++i) {
            if (!admits(entry, drives_[i])) continue;
            debug("PathHelper::pathResolver - driveList[%d] is '%ls'\n", static_cast<int>(i),
                  drives_[i].getName());
            found |= resolveOnDrive(entry, drives_[i], location);
        }
    }
    if (found) return;
    found_.unresolved.push_back({PathInfo(entry.text.c_str(), entry.recursive), DriveInfo()});
}

/// For an empty mask, which admits no drive, `isValidPath` is called for its log line.
bool Resolver::canResolve(const PathEntry& entry) const {
    if (!entry.valid || entry.path.empty()) return false;
    return entry.mask != 0 ||
           PathHelper::isValidPath(drives_, entry.mask, entry.path.c_str(), true);
}

bool Resolver::admits(const PathEntry& entry, const DriveInfo& drive) const {
    return (drive.getType() & entry.mask) != 0 && drive.getName() &&
           (entry.driveName.empty() || entry.driveName == drive.getName());
}

/// Adds the pair of this entry and drive to a list, if the path lies on the drive or the drive
/// below the path. False otherwise. Compares whole components.
bool Resolver::resolveOnDrive(const PathEntry& entry, const DriveInfo& drive,
                              std::wstring_view location) {
    const std::wstring_view mount = PathHelper::driveText(drive);
    const PathInfo text((std::wstring(mount) + L":" + entry.path).c_str(), entry.recursive);
    debug("PathHelper::unix_path_resolver - path to resolve is %ls\n", text.getPathName());
    PathInfo onDrive;
    PathInfo atMount;
    if (!resolveText(text, mount.size(), onDrive, atMount)) return false;
    if (mount == location) {
        add(std::move(onDrive), drive, found_.resolved);
        return true;
    }
    if (!entry.recursive || relatePaths(entry.path, mount) != PathRelation::AROUND) return false;
    add(std::move(atMount), drive, found_.parentResolved);
    return true;
}

void Resolver::add(PathInfo path, const DriveInfo& drive, Pairs& list) {
    (isSearched(path.getPathName()) ? list : found_.excluded).push_back({std::move(path), drive});
}

void Resolver::addMount(const PathInfo& mount, bool searched) {
    if (mount.getPathName())
        searched_[std::wstring(withoutFinalSeparator(mount.getPathName()))] = searched;
}

/// Whether the query's file systems allow the drive on which `path` lies; the innermost mount
/// point decides. Like `fileSystemPathChecker`, but mount points are names here, not patterns.
bool Resolver::isSearched(const wchar_t* path) const {
    bool searched = true;
    climb(path, [&](std::wstring_view directory) {
        const auto mount = searched_.find(directory);
        if (mount != searched_.end()) searched = mount->second;
        return mount != searched_.end();
    });
    return searched;
}

}  // namespace

ResolvedPaths resolvePaths(const std::vector<PathInfo>& paths, const std::vector<DriveInfo>& drives,
                           const std::vector<PathInfo>& includedMounts,
                           const std::vector<PathInfo>& excludedMounts, const LinkGuard& mayTouch) {
    Resolver resolver(drives, includedMounts, excludedMounts);
    for (const PathInfo& path : paths) {
        if (const auto entry = parsePathEntry(path, drives, mayTouch)) resolver.resolve(*entry);
    }
    return resolver.take();
}

}  // namespace fscanner
