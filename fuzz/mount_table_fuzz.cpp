// A mount table of any text: the drives that are made of it, and what searches resolve
// to. A search of the local drives never gets a pair on another, nor walks into one.

#include "discovery/fixtures.h"
#include "fscanner/discovery/drivehelper.h"
#include "fscanner/discovery/mount_map.h"
#include "fuzz.h"

namespace {

using namespace fscanner;

std::wstring mountOf(const DriveInfo& drive) {
    const std::wstring name = drive.getName();
    return name.substr(0, name.size() - 1);
}

bool isStrictlyBelow(const std::wstring& path, const std::wstring& above) {
    const std::wstring prefix = above.ends_with(L'/') ? above : above + L'/';
    return path.size() > prefix.size() && path.starts_with(prefix);
}

void requireThatItStaysLocal(const std::vector<DriveInfo>& drives, const PathDrive& pair) {
    require((static_cast<unsigned>(pair.drive.getType()) & mdLocalDriveGroup) != 0);
    std::vector<PathInfo> exclusions;
    PathHelper::buildExcludeList(drives, pair, exclusions);
    for (const DriveInfo& drive : drives) {
        const std::wstring mount = mountOf(drive);
        if (drive.getType() != 4 || !isStrictlyBelow(mount, pair.path.getPathName())) continue;
        bool excluded = false;
        for (const PathInfo& path : exclusions)
            excluded = excluded || mount == path.getPathName() ||
                       isStrictlyBelow(mount, path.getPathName());
        require(excluded);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(asText(data, size));
    const MountMap ofKernel(listMountedDrives({text, true}));
    const PathDrive root{PathInfo(L"/", true), DriveInfo()};
    require(ofKernel.stopsInside(root).empty() || ofKernel.hasInside(L"/"));
    const std::vector<DriveInfo> drives = normalisedDrivesOf(text);
    const ResolvedSearch all(drives, {"$all::/+", "$all::*:/usr/lib+", "$remote::/a"}, {L"nfs"},
                             {L"ext4"});
    for (const PathDrive& pair : ResolvedSearch(drives, {"$local::/+", "/a+"}).pairs)
        requireThatItStaysLocal(drives, pair);
    return 0;
}
