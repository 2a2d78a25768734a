#include "fscanner/discovery/pathhelper.h"

#include <algorithm>
#include <cwchar>
#include <map>
#include <set>
#include <tuple>
#include <utility>

#include "fscanner/common/debug.h"
#include "fscanner/common/path_text.h"
#include "fscanner/common/strings.h"
#include "fscanner/common/utf8.h"
#include "fscanner/common/wildcard.h"
#include "fscanner/discovery/mount_map.h"
#include "fscanner/discovery/path_resolver.h"

namespace fscanner {

// ---- One path ---------------------------------------------------------------

std::optional<std::string> PathHelper::realPath(const char* path, bool resolveLinks) {
    if (!path) return std::nullopt;
    return resolvePath(path, [=](std::string_view) { return resolveLinks; });
}

std::optional<std::wstring> PathHelper::realPath(const wchar_t* path, bool resolveLinks) {
    if (!path) return std::nullopt;
    const std::optional<std::string> real = realPath(toMultibyte(path).c_str(), resolveLinks);
    if (!real) return std::nullopt;
    return toWide(*real);
}

std::wstring PathHelper::buildRealPath(const wchar_t* path) {
    for (const bool resolveLinks : {true, false}) {
        if (const std::optional<std::wstring> real = realPath(path, resolveLinks)) return *real;
    }
    return path;
}

std::wstring PathHelper::buildResolvedPath(const wchar_t* path) {
    std::wstring resolved(path);
    if (resolved.size() > 1 && resolved.ends_with(L'/')) resolved.pop_back();
    return resolved;
}

std::vector<std::wstring> PathHelper::structured_path_decomposer(std::wstring_view path) {
    std::vector<std::wstring> components;
    for (std::size_t start = 0; start < path.size();) {
        const std::size_t end = std::min(path.find(L'/', start), path.size());
        if (end > start) components.emplace_back(path.substr(start, end - start));
        start = end + 1;
    }
    return components;
}

// ---- Paths and drives -------------------------------------------------------

std::wstring_view PathHelper::driveText(const DriveInfo& drive) {
    std::wstring_view name = drive.getName() ? drive.getName() : L"";
    // "/" has no ":" to lose where a list holds plain directories.
    if (!name.empty() && !name.ends_with(L'/')) name.remove_suffix(1);
    return name;
}

int PathHelper::pathLocation(std::wstring_view path, const std::vector<DriveInfo>& drives) {
    int location = -1;
    std::size_t longest = 0;
    for (std::size_t i = 0; i < drives.size(); ++i) {
        if (!isWithin(path, driveText(drives[i]))) continue;
        if (driveText(drives[i]).size() < longest) continue;
        longest = driveText(drives[i]).size();
        location = static_cast<int>(i);
    }
    return location;
}

bool PathHelper::isValidPath(const std::vector<DriveInfo>& drives, unsigned typeMask,
                             const wchar_t* path, bool /*flag*/) {
    if (typeMask == 0) {
        debug("PathHelper::isValidPath - media not valid!\n");
        return false;
    }
    // A plain prefix, ":" included, not a test of components.
    return std::any_of(drives.begin(), drives.end(), [&](const DriveInfo& drive) {
        const wchar_t* name = drive.getName();
        return (drive.getType() & typeMask) != 0 && name &&
               wcsnvccmp(name, path, static_cast<unsigned>(std::wcslen(name)), false) == 0;
    });
}

namespace {

void logPairs(const char* what, const std::vector<PathDrive>& pairs) {
    for (const PathDrive& pair : pairs) {
        debug("PathHelper::pathResolver - %s [%ls] [%d] [%ls]\n", what, pair.path.getPathName(),
              static_cast<int>(pair.drive.getType()),
              pair.drive.getFileSystem() ? pair.drive.getFileSystem() : L"");
    }
}

}  // namespace

void PathHelper::pathResolver(const std::vector<PathInfo>& paths,
                              const std::vector<DriveInfo>& drives,
                              const std::vector<PathInfo>& includeFileSystems,
                              const std::vector<PathInfo>& excludeFileSystems,
                              std::vector<PathDrive>& parentResolved,
                              std::vector<PathDrive>& resolved, std::vector<PathDrive>& excluded,
                              std::vector<PathDrive>& unresolved, const LinkGuard& mayTouch) {
    debug("PathHelper::pathResolver - entering... [pathList size is %d]\n",
          static_cast<int>(paths.size()));
    const ResolvedPaths found =
        resolvePaths(paths, drives, includeFileSystems, excludeFileSystems, mayTouch);
    pathDriveAccumulator(resolved, found.resolved, true);
    pathDriveAccumulator(parentResolved, found.parentResolved, true);
    pathDriveAccumulator(excluded, found.excluded, true);
    pathDriveAccumulator(unresolved, found.unresolved, true);
    if (debugInfo) {
        debug("PathHelper::pathResolver - list info...\n");
        logPairs("resolved", resolved);
        logPairs("parent resolved", parentResolved);
        logPairs("excluded", excluded);
        logPairs("unresolved", unresolved);
        debug("PathHelper::pathResolver - list info end\n");
    }
    debug("PathHelper::pathResolver - exit.\n");
}

// ---- Lists ------------------------------------------------------------------

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

// ---- Offered to hosts; nothing in fscanner uses what follows ----------------

int PathHelper::expand_path_variable(const wchar_t* source, wchar_t* destination, unsigned limit) {
    return expandPathVariables(source, destination, limit);
}

PathRelation PathHelper::path_components_analyzer(std::wstring_view path, std::wstring_view other) {
    return relatePaths(path, other);
}

PathRelation PathHelper::pathFilterByDrive(std::wstring_view path, const DriveInfo& drive) {
    return relatePaths(path, driveText(drive));
}

int PathHelper::unix_path_resolver(const PathInfo& pathInfo, PathInfo& resolved,
                                   PathInfo& parentResolved) {
    const wchar_t* text = pathInfo.getPathName() ? pathInfo.getPathName() : L"";
    debug("PathHelper::unix_path_resolver - path to resolve is %ls\n", text);
    const wchar_t* colon = std::wcschr(text, L':');
    if (!colon) return 0;
    const auto driveLength = static_cast<std::size_t>(colon - text);
    return resolveText(pathInfo, driveLength, resolved, parentResolved) ? 1 : 0;
}

std::vector<PathAncestor> PathHelper::pathReducer(std::wstring_view path) {
    std::vector<PathAncestor> chain;
    std::wstring prefix;
    if (path.starts_with(L'/')) {
        prefix = PathSeparator;
        chain.push_back({prefix, PathSeparator});
    }
    for (const std::wstring& component : structured_path_decomposer(path)) {
        if (needsSeparator(prefix)) prefix += PathSeparator;
        prefix += component;
        chain.push_back({prefix, component});
    }
    std::reverse(chain.begin(), chain.end());
    return chain;
}

bool PathHelper::fileSystemPathChecker(const wchar_t* path,
                                       const std::vector<PathInfo>& includeList,
                                       const std::vector<PathInfo>& excludeList) {
    const wchar_t* colon = std::wcschr(path, L':');
    const wchar_t* bare = colon ? colon + 1 : path;
    const int excluded = checkPathListEx(bare, excludeList, true);
    if (excluded < 0) return true;
    const int included = checkPathListEx(bare, includeList, true);
    if (included < 0) return false;
    const auto length = [](const std::vector<PathInfo>& list, int i) {
        return std::wcslen(list[static_cast<unsigned>(i)].getPathName());
    };
    return length(excludeList, excluded) <= length(includeList, included);
}

void PathHelper::fileSystemPathDriveListPruning(std::vector<PathDrive>& pairs,
                                                const std::vector<PathInfo>& includeList,
                                                const std::vector<PathInfo>& excludeList) {
    debug("PathHelper::fileSystemPathDriveListPruning - entering [list size is %d]...\n",
          static_cast<int>(pairs.size()));
    std::erase_if(pairs, [&](const PathDrive& pair) {
        const wchar_t* path = pair.path.getPathName();
        if (!path || fileSystemPathChecker(path, includeList, excludeList)) return false;
        debug("PathHelper::fileSystemPathDriveListPruning - path name '%ls' removed!\n", path);
        return true;
    });
    debug("PathHelper::fileSystemPathDriveListPruning - exit [list size is %d]\n",
          static_cast<int>(pairs.size()));
}

namespace {

bool sameFileSystem(const DriveInfo& a, const DriveInfo& b) {
    return sameText(a.getFileSystem(), b.getFileSystem());
}

}  // namespace

void PathHelper::buildExcludeList(const std::vector<DriveInfo>& drives, const PathDrive& pair,
                                  std::vector<PathInfo>& excluded) {
    if (drives.empty()) return;
    const wchar_t* pathText = pair.path.getPathName() ? pair.path.getPathName() : L"";
    const std::wstring_view path = withoutFinalSeparator(pathText);
    std::size_t maxIndex = 0;
    bool found = false;
    for (std::size_t i = 0; i < drives.size(); ++i) {
        const DriveInfo& drive = drives[i];
        const std::wstring mount(driveText(drive));
        const int pathLength = static_cast<int>(path.size());
        const int driveLength = static_cast<int>(mount.size());
        debug("PathHelper::buildExcludeList - check to exclude [%ls] [%d] [%ls]...\n",
              mount.c_str(), static_cast<int>(drive.getType()), drive.getFileSystem());
        if (path.size() >= mount.size()) {
            debug("PathHelper::buildExcludeList - 'tmpPathLen(%d)>tmpDriveLen(%d)'\n", pathLength,
                  driveLength);
            // As characters; the last such drive wins, which is the longest in a sorted list.
            if (!path.starts_with(mount)) continue;
            debug("PathHelper::buildExcludeList - '%ls' is substring of '%ls'\n", mount.c_str(),
                  pathText);
            maxIndex = i;
            found = true;
            continue;
        }
        debug("PathHelper::buildExcludeList - 'tmpPathLen(%d)<tmpDriveLen(%d)'\n", pathLength,
              driveLength);
        if (!isWithin(mount, path) || sameKind(drive, pair.drive)) continue;
        excluded.emplace_back(mount.c_str(), true);
        debug("PathHelper::buildExcludeList [1] - excluded path for '%ls' is '%ls'\n", pathText,
              mount.c_str());
    }
    const int index = static_cast<int>(maxIndex);
    debug("PathHelper::buildExcludeList - maxIndex is %d\n", index);
    // Without an enclosing drive the first one stands in, by its file system alone.
    const DriveInfo& enclosing = drives[maxIndex];
    if (found ? sameKind(enclosing, pair.drive) : sameFileSystem(enclosing, pair.drive)) {
        debug("PathHelper::buildExcludeList - not path excluded for maxIndex(%d)\n", index);
        return;
    }
    const std::wstring mount(driveText(enclosing));
    excluded.emplace_back(mount.c_str(), true);
    debug("PathHelper::buildExcludeList - excluded[2] path for '%ls' is '%ls'\n", pathText,
          mount.c_str());
}

void PathHelper::reduceDriveList(const std::vector<DriveInfo>& drives,
                                 std::vector<DriveInfo>& reduced, const PathDrive& pair) {
    debug("PathHelper::reduceDriveList - entering...\n");
    if (!pair.path.getPathName()) return;
    for (const DriveInfo& drive : drives) {
        if (pathFilterByDrive(pair.path.getPathName(), drive) != PathRelation::APART) {
            reduced.push_back(drive);
        }
    }
}

void PathHelper::pathAccumulator(std::vector<PathInfo>& dst, const std::vector<PathInfo>& src,
                                 bool widen) {
    accumulate(dst, src, widen);
}

namespace {

template <typename T>
bool isPresent(const std::vector<T>& list, const T& element) {
    const auto key = presenceKey(element);
    return std::any_of(list.begin(), list.end(),
                       [&](const T& other) { return presenceKey(other) == key; });
}

}  // namespace

bool PathHelper::checkforPathInfo(const std::vector<PathInfo>& list, const PathInfo& pathInfo) {
    return isPresent(list, pathInfo);
}

bool PathHelper::checkforPathDriveList(const std::vector<PathDrive>& list, const PathDrive& pair) {
    return isPresent(list, pair);
}

}  // namespace fscanner
