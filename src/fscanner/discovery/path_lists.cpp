#include <algorithm>
#include <map>
#include <set>
#include <string>
#include <tuple>
#include <utility>

#include "fscanner/discovery/list_duplicates.h"
#include "fscanner/discovery/mount_map.h"
#include "fscanner/discovery/pathhelper.h"
#include "fscanner/fs/debug.h"

namespace fscanner {

namespace {

// What counts as present, of an entry and of a pair.
auto presenceKey(const PathInfo& path) {
    return textKey(path.getPathName());
}

auto presenceKey(const PathDrive& pair) {
    return std::tuple(presenceKey(pair.path), textKey(pair.drive.getFileSystem()),
                      pair.drive.getType());
}

PathInfo& pathOf(PathInfo& path) {
    return path;
}
const PathInfo& pathOf(const PathInfo& path) {
    return path;
}
PathInfo& pathOf(PathDrive& pair) {
    return pair.path;
}
const PathInfo& pathOf(const PathDrive& pair) {
    return pair.path;
}

template <typename T>
bool isPresent(const std::vector<T>& list, const T& element) {
    const auto key = presenceKey(element);
    return std::any_of(list.begin(), list.end(),
                       [&](const T& other) { return presenceKey(other) == key; });
}

template <typename T>
void accumulate(std::vector<T>& dst, const std::vector<T>& src, bool widen) {
    // The keys are views of texts, which stay in place while the list grows.
    std::map<decltype(presenceKey(src.front())), std::size_t> present;
    for (std::size_t i = 0; i < dst.size(); ++i) present.emplace(presenceKey(dst[i]), i);
    std::vector<std::size_t> widened;
    for (const T& element : src) {
        const auto known = present.find(presenceKey(element));
        if (known == present.end()) {
            dst.push_back(element);
            present.emplace(presenceKey(dst.back()), dst.size() - 1);
        } else if (widen && pathOf(element).getRecursive()) {
            widened.push_back(known->second);
        }
    }
    for (const std::size_t i : widened) {
        pathOf(dst[i]) = PathInfo(pathOf(dst[i]).getPathName(), true);
    }
}

/// Tells which pairs the scan of an enclosing pair reaches anyway. Keeps the addresses
/// of those that it is asked about.
class CoveredPairs {
public:
    explicit CoveredPairs(const std::vector<DriveInfo>& drives) : mounts_(drives) {}

    /// Called with enclosing pairs first. One that is covered covers nothing that
    /// its own cover does not, so that only the others are kept in mind.
    bool operator()(const PathDrive& pair) {
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

private:
    /// `pair` lies below the cover's path.
    bool reaches(const PathDrive& cover, const PathDrive& pair) const {
        return sameKind(cover.drive, pair.drive) && mounts_.reaches(cover, pair.path.getPathName());
    }

    MountMap mounts_;
    std::map<std::wstring_view, std::vector<const PathDrive*>> covers_;
};

std::size_t depthOf(const PathDrive& pair) {
    return componentCount(pair.path.getPathName());
}

}  // namespace

void PathHelper::appendPathList(std::vector<PathInfo>& dst, const std::vector<PathInfo>& src,
                                bool skipPresent) {
    debug("PathHelper::appendPathList - dstPathList size is %d, srcPathList size is %d\n",
          static_cast<int>(dst.size()), static_cast<int>(src.size()));
    for (const PathInfo& path : src) {
        if (!skipPresent || std::find(dst.begin(), dst.end(), path) == dst.end()) {
            dst.push_back(path);
        }
    }
    debug("PathHelper::appendPathList - dstPathList new size is %d\n",
          static_cast<int>(dst.size()));
}

void PathHelper::pathAccumulator(std::vector<PathInfo>& dst, const std::vector<PathInfo>& src,
                                 bool widen) {
    accumulate(dst, src, widen);
}

void PathHelper::pathDriveAccumulator(std::vector<PathDrive>& dst,
                                      const std::vector<PathDrive>& src, bool widen) {
    accumulate(dst, src, widen);
}

void PathHelper::accumulatePairs(const std::vector<DriveInfo>& drives,
                                 const std::vector<PathDrive>& parentResolved,
                                 const std::vector<PathDrive>& resolved,
                                 std::vector<PathDrive>& out) {
    std::vector<PathDrive> merged;
    pathDriveAccumulator(merged, parentResolved, true);
    pathDriveAccumulator(merged, resolved, true);
    std::erase_if(merged, [](const PathDrive& pair) { return !pair.path.getPathName(); });
    std::stable_sort(merged.begin(), merged.end(), [](const PathDrive& x, const PathDrive& y) {
        return depthOf(x) < depthOf(y);
    });
    CoveredPairs covered(drives);
    out.clear();
    for (const PathDrive& pair : merged) {
        if (!covered(pair)) out.push_back(pair);
    }
}

bool PathHelper::removePathListDuplicate(std::vector<PathInfo>& list) {
    return removeEarlierDuplicates(list, [](const PathInfo& path) {
        return std::tuple(textKey(path.getPathName()), path.getRecursive());
    });
}

void PathHelper::differencePathList(const std::vector<PathInfo>& a, const std::vector<PathInfo>& b,
                                    std::vector<PathInfo>& out) {
    std::set<decltype(presenceKey(PathInfo()))> texts;
    for (const PathInfo& path : b) texts.insert(presenceKey(path));
    for (const PathInfo& path : a) {
        if (!texts.contains(presenceKey(path))) out.push_back(path);
    }
}

void PathHelper::extractPathList(const std::vector<PathDrive>& pairs, unsigned typeMask,
                                 std::vector<PathInfo>& out) {
    for (const PathDrive& pair : pairs) {
        if ((pair.drive.getType() & typeMask) != 0) out.push_back(pair.path);
    }
}

void PathHelper::buildPathList(const std::vector<DriveInfo>& drives, std::vector<PathInfo>& out) {
    for (const DriveInfo& drive : drives) {
        out.emplace_back(std::wstring(driveText(drive)).c_str(), true);
    }
}

bool PathHelper::checkforPathInfo(const std::vector<PathInfo>& list, const PathInfo& pathInfo) {
    return isPresent(list, pathInfo);
}

bool PathHelper::checkforPathDriveList(const std::vector<PathDrive>& list, const PathDrive& pair) {
    return isPresent(list, pair);
}

}  // namespace fscanner
