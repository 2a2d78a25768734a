#include "fscanner/discovery/path_relation.h"

#include <algorithm>

#include "fscanner/discovery/pathhelper.h"

namespace fscanner {

namespace {

/// Both without a final separator, so that the root is the empty text.
bool isBelow(std::wstring_view path, std::wstring_view directory) {
    return path.size() > directory.size() && path.starts_with(directory) &&
           path[directory.size()] == L'/';
}

}  // namespace

std::wstring_view withoutFinalSeparator(std::wstring_view path) {
    if (path.ends_with(L'/')) path.remove_suffix(1);
    return path;
}

PathRelation relatePaths(std::wstring_view path, std::wstring_view other) {
    path = withoutFinalSeparator(path);
    other = withoutFinalSeparator(other);
    if (path == other) return PathRelation::SAME;
    if (isBelow(path, other)) return PathRelation::INSIDE;
    return isBelow(other, path) ? PathRelation::AROUND : PathRelation::APART;
}

std::size_t componentCount(std::wstring_view path) {
    std::size_t count = 0;
    wchar_t previous = L'/';
    for (const wchar_t c : path) {
        if (c != L'/' && previous == L'/') ++count;
        previous = c;
    }
    return count;
}

PathRelation PathHelper::path_components_analyzer(std::wstring_view path, std::wstring_view other) {
    return relatePaths(path, other);
}

std::wstring_view PathHelper::driveText(const DriveInfo& drive) {
    std::wstring_view name = drive.getName() ? drive.getName() : L"";
    // "/" has no ":" to lose where a list holds plain directories.
    if (!name.empty() && !name.ends_with(L'/')) name.remove_suffix(1);
    return name;
}

PathRelation PathHelper::pathFilterByDrive(std::wstring_view path, const DriveInfo& drive) {
    return relatePaths(path, driveText(drive));
}

int PathHelper::pathLocation(std::wstring_view path, const std::vector<DriveInfo>& drives) {
    int location = -1;
    std::size_t longest = 0;
    for (std::size_t i = 0; i < drives.size(); ++i) {
        const PathRelation relation = pathFilterByDrive(path, drives[i]);
        if (relation != PathRelation::SAME && relation != PathRelation::INSIDE) continue;
        if (driveText(drives[i]).size() < longest) continue;
        longest = driveText(drives[i]).size();
        location = static_cast<int>(i);
    }
    return location;
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

std::vector<PathAncestor> PathHelper::pathReducer(std::wstring_view path) {
    std::vector<PathAncestor> chain;
    std::wstring prefix;
    if (path.starts_with(L'/')) {
        prefix = PathSeparator;
        chain.push_back({prefix, PathSeparator});
    }
    for (const std::wstring& component : structured_path_decomposer(path)) {
        if (!prefix.empty() && !prefix.ends_with(L'/')) prefix += PathSeparator;
        prefix += component;
        chain.push_back({prefix, component});
    }
    std::reverse(chain.begin(), chain.end());
    return chain;
}

}  // namespace fscanner
