// Drives by other names. A mount table may name a mount directory that is reached
// through symbolic links; a search below the link's target meets the mount under
// its link-free name, and has to know that name as a drive too.

#include <algorithm>
#include <cerrno>
#include <optional>
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
    if (level < maxLevels) enumerate(found, false, level + 1);
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
    return std::none_of(remoteMounts_.begin(), remoteMounts_.end(), [&](const std::wstring& mount) {
        const PathRelation relation = relatePaths(path, mount);
        return relation == PathRelation::SAME || relation == PathRelation::INSIDE;
    });
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
