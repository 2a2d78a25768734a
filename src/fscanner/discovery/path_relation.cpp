#include "fscanner/discovery/path_relation.h"

#include <cwchar>

#include "fscanner/common/wildcard.h"

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

// ---- Lists of patterns ------------------------------------------------------

namespace {

/// `entryAt(i)` is the i-th entry, or null when it takes no part.
template <typename EntryAt>
int longestMatch(const wchar_t* path, std::size_t count, EntryAt entryAt, bool caseFlag) {
    int index = -1;
    std::size_t longest = 0;
    for (std::size_t i = 0; i < count; ++i) {
        const PathInfo* entry = entryAt(i);
        if (!entry || !entry->getPathName()) continue;
        const std::size_t length = std::wcslen(entry->getPathName());
        if (index >= 0 && length <= longest) continue;
        if (!wildvcpathcmp(entry->getPathName(), path, entry->getRecursive(), caseFlag)) continue;
        index = static_cast<int>(i);
        longest = length;
    }
    return index;
}

}  // namespace

bool checkPathList(const wchar_t* path, const std::vector<PathInfo>& list, bool caseFlag,
                   bool recursiveOnly) {
    for (const PathInfo& entry : list) {
        if (!entry.getPathName() || (recursiveOnly && !entry.getRecursive())) continue;
        if (wildvcpathcmp(entry.getPathName(), path, entry.getRecursive(), caseFlag)) return true;
    }
    return false;
}

int checkPathListEx(const wchar_t* path, const std::vector<PathInfo>& list, bool caseFlag) {
    return longestMatch(
        path, list.size(), [&](std::size_t i) { return &list[i]; }, caseFlag);
}

int checkPathDriveListEx(const wchar_t* path, const std::vector<PathDrive>& list, unsigned typeMask,
                         bool caseFlag) {
    const auto pairAt = [&](std::size_t i) {
        return (list[i].drive.getType() & typeMask) != 0 ? &list[i].path : nullptr;
    };
    return longestMatch(path, list.size(), pairAt, caseFlag);
}

}  // namespace fscanner
