#include "fscanner/discovery/mount_map.h"

#include <algorithm>

#include "fscanner/common/path_text.h"
#include "fscanner/common/strings.h"
#include "fscanner/discovery/pathhelper.h"

namespace fscanner {

namespace {

std::wstring_view textOf(const PathInfo& path) {
    return withoutFinalSeparator(path.getPathName() ? path.getPathName() : L"");
}

/// The prefix of all paths below a directory.
std::wstring prefixBelow(std::wstring_view directory) {
    std::wstring text(directory);
    endWithSeparator(text);
    return text;
}

}  // namespace

bool sameKind(const DriveInfo& a, const DriveInfo& b) {
    return a.getType() == b.getType() && sameText(a.getFileSystem(), b.getFileSystem());
}

MountMap::MountMap(const std::vector<DriveInfo>& drives) {
    for (const DriveInfo& drive : drives)
        drives_.emplace(withoutFinalSeparator(PathHelper::driveText(drive)), drive);
}

bool MountMap::stops(std::wstring_view path, const DriveInfo& drive) const {
    const auto [first, last] = drives_.equal_range(withoutFinalSeparator(path));
    return std::any_of(first, last, [&](const auto& at) { return isStop(at.second, drive); });
}

bool MountMap::reaches(const PathDrive& pair, std::wstring_view path) const {
    const std::size_t length = textOf(pair.path).size();
    bool stopped = false;
    climb(path, [&](std::wstring_view directory) {
        stopped = directory.size() > length && stops(directory, pair.drive);
        return stopped || directory.size() <= length;
    });
    return !stopped;
}

std::vector<std::wstring> MountMap::stopsInside(const PathDrive& pair) const {
    const std::wstring prefix = prefixBelow(textOf(pair.path));
    std::vector<std::wstring> paths;
    for (auto at = drives_.lower_bound(prefix);
         at != drives_.end() && at->first.starts_with(prefix); ++at) {
        const bool known = !paths.empty() && paths.back() == at->first;
        if (!known && isStop(at->second, pair.drive)) paths.push_back(at->first);
    }
    return paths;
}

bool MountMap::hasInside(std::wstring_view path) const {
    const std::wstring prefix = prefixBelow(path);
    const auto first = drives_.lower_bound(prefix);
    return first != drives_.end() && first->first.starts_with(prefix);
}

const DriveInfo* MountMap::holding(std::wstring_view path) const {
    const DriveInfo* drive = nullptr;
    climb(path, [&](std::wstring_view directory) {
        const auto found = drives_.find(directory);
        if (found != drives_.end()) drive = &found->second;
        return drive != nullptr;
    });
    return drive;
}

// Only pairs that are not covered are remembered. A covered pair need not be: everything that it
// would cover is covered by its own cover, too.
bool CoveredPairs::operator()(const PathDrive& pair) {
    const std::wstring_view path = withoutFinalSeparator(pair.path.getPathName());
    const bool covered = climb(path, [&](std::wstring_view directory) {
        const auto covers = covers_.find(directory);
        if (covers == covers_.end() || directory == path) return false;
        return std::any_of(covers->second.begin(), covers->second.end(),
                           [&](const PathDrive* cover) { return reaches(*cover, pair); });
    });
    if (!covered && pair.path.getRecursive()) covers_[path].push_back(&pair);
    return covered;
}

/// Whether the scan of `cover` reaches `pair`, whose path lies below the cover's path.
bool CoveredPairs::reaches(const PathDrive& cover, const PathDrive& pair) const {
    return sameKind(cover.drive, pair.drive) && mounts_.reaches(cover, pair.path.getPathName());
}

}  // namespace fscanner
