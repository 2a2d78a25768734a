#include <algorithm>
#include <cwchar>
#include <map>
#include <set>
#include <string_view>

#include "fscanner/discovery/drivehelper.h"
#include "fscanner/discovery/list_duplicates.h"
#include "fscanner/discovery/pathhelper.h"

namespace fscanner {

namespace {

bool isDfs(const DriveInfo& drive) {
    return drive.getFileSystem() && std::wcscmp(drive.getFileSystem(), L"dfs") == 0;
}

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

}  // namespace fscanner
