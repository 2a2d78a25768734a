#include "fscanner/discovery/path_relation.h"

#include <cwchar>

#include "fscanner/common/wildcard.h"

namespace fscanner {

bool checkPathList(const wchar_t* path, const std::vector<PathInfo>& list, bool caseFlag,
                   bool recursiveOnly) {
    for (const PathInfo& entry : list) {
        if (!entry.getPathName() || (recursiveOnly && !entry.getRecursive())) continue;
        if (wildvcpathcmp(entry.getPathName(), path, entry.getRecursive(), caseFlag)) return true;
    }
    return false;
}

// ---- Offered to hosts; nothing in fscanner uses what follows ----------------

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
