// Drives by other names. A mount table may name a mount directory that is reached
// through symbolic links; a search below the link's target meets the mount under
// its link-free name, and has to know that name as a drive too.

#include <algorithm>
#include <cerrno>
#include <string>

#include "fscanner/common/utf8.h"
#include "fscanner/discovery/drivehelper.h"
#include "fscanner/discovery/pathhelper.h"
#include "fscanner/discovery/real_path.h"
#include "fscanner/fs/debug.h"

namespace fscanner {

namespace {

/// A drive whose links lead in ever longer circles ends here.
constexpr int maxLevels = 32;

bool isRemote(const DriveInfo& drive) {
    return drive.getType() == DRIVE_REMOTE;
}

class LinkSearch {
public:
    LinkSearch(std::vector<std::wstring> remoteMounts, std::vector<DriveInfo>& links)
        : remoteMounts_(std::move(remoteMounts)), links_(links) {}

    void enumerate(const DriveInfo& drive, int level);

private:
    void checkAncestor(const DriveInfo& drive, const std::wstring& path,
                       const std::wstring& ancestor, int level);
    std::wstring linkFreePath(const std::wstring& ancestor, const std::wstring& target,
                              std::wstring_view below) const;
    bool mayRead(const std::wstring& path) const;

    std::vector<std::wstring> remoteMounts_;
    std::vector<DriveInfo>& links_;
};

void LinkSearch::enumerate(const DriveInfo& drive, int level) {
    debug("DriveHelper::driveEnumerator - check [%ls] path for symbolik link...\n",
          drive.getName());
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
    const std::optional<std::string> link = readLink(toMultibyte(ancestor));
    if (!link) {
        const int error = errno;
        if (error == EINVAL) {
            debug(
                "DriveHelper::driveEnumerator - the path specified [%ls] is not a symbolic "
                "link!\n",
                ancestor.c_str());
        } else {
            debug(
                "DriveHelper::driveEnumerator - unable to access path specified [%ls] (error "
                "%d)\n",
                ancestor.c_str(), error);
        }
        return;
    }
    const std::wstring target = toWide(*link);
    debug("DriveHelper::driveEnumerator - link is [%ls]\n", target.c_str());
    const std::wstring name =
        linkFreePath(ancestor, target, std::wstring_view(path).substr(ancestor.size())) + L":";
    debug("DriveHelper::driveEnumerator - new drive is [%ls]\n", name.c_str());
    const DriveInfo found(name.c_str(), drive.getType(), drive.getFileSystem());
    if (DriveHelper::checkforDriveInfo(links_, found)) return;
    links_.push_back(found);
    if (level < maxLevels) enumerate(found, level + 1);
}

/// `below`, the drive's path below the ancestor, is appended as it is: it leads to
/// the mount itself, which is not looked at.
std::wstring LinkSearch::linkFreePath(const std::wstring& ancestor, const std::wstring& target,
                                      std::wstring_view below) const {
    const bool relative = !target.starts_with(L'/');
    const std::wstring full =
        relative ? ancestor.substr(0, ancestor.rfind(L'/') + 1) + target : target;
    const std::optional<std::string> real = resolvePath(
        toMultibyte(full), [this](std::string_view path) { return mayRead(toWide(path)); });
    std::wstring path = real ? toWide(*real) : full;
    if (relative) debug("DriveHelper::driveEnumerator - real link is [%ls]\n", path.c_str());
    if (path == PathHelper::PathSeparator) path.clear();
    path += below;
    return path.empty() ? PathHelper::PathSeparator : path;
}

bool LinkSearch::mayRead(const std::wstring& path) const {
    return std::none_of(remoteMounts_.begin(), remoteMounts_.end(), [&](const std::wstring& mount) {
        const PathRelation relation = relatePaths(path, mount);
        return relation == PathRelation::SAME || relation == PathRelation::INSIDE;
    });
}

bool isPresent(const DriveInfo& drive, const std::vector<DriveInfo>& links) {
    if (!DriveHelper::checkforDriveInfo(links, drive)) return false;
    debug("DriveHelper::driveEnumerator - path already present!\n");
    return true;
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
        if ((drive.getType() & mask) != 0 && drive.getName()) search.enumerate(drive, 1);
    }
}

void DriveHelper::driveEnumerator(const DriveInfo& drive, std::vector<DriveInfo>& links,
                                  bool skipPresent) {
    if (!drive.getName()) {
        debug("DriveHelper::driveEnumerator - path pointer is null\n");
        return;
    }
    if (skipPresent && isPresent(drive, links)) return;
    LinkSearch({}, links).enumerate(drive, 1);
}

}  // namespace fscanner
