#include "fscanner/engine/query_plan.h"

#include "fscanner/fs/fs_query.h"

namespace fscanner {

namespace {

// The exclusions of a drive group: the paths themselves and the mount points below.
std::vector<PathInfo> groupPaths(const ResolvedPaths& side, unsigned mask) {
    std::vector<PathInfo> paths;
    PathHelper::extractPathList(side.resolved, mask, paths);
    PathHelper::extractPathList(side.parentResolved, mask, paths);
    return paths;
}

}  // namespace

bool QueryPlan::discover() {
    mounted_.clear();
    DriveHelper::buildDriveList(mounted_, mdAllDriveGroup);
    normaliseDriveList(mounted_);
    addMissingRoot(mounted_);
    drives_ = mounted_;
    for (const unsigned mask : {mdRemoteDriveGroup, mdOtherDriveGroup, mdLocalDriveGroup}) {
        std::vector<DriveInfo> links;
        DriveHelper::buildExcludeLinkList(mounted_, mask, links);
        DriveHelper::appendDriveList(links, drives_, true);
    }
    normaliseDriveList(drives_);
    return !mounted_.empty();
}

void QueryPlan::prune(const FsQuery& query) {
    current_.clear();
    DriveHelper::fileSystemDriveListPruning(mounted_, current_, query.getIncludedFileSystems(),
                                            query.getExcludedFileSystems());
    std::vector<PathInfo> all;
    includedMounts_.clear();
    excludedMounts_.clear();
    PathHelper::buildPathList(mounted_, all);
    PathHelper::buildPathList(current_, includedMounts_);
    PathHelper::differencePathList(all, includedMounts_, excludedMounts_);
}

void QueryPlan::resolve(const FsQuery& query) {
    const auto resolveSide = [this](const std::vector<PathInfo>& entries) {
        ResolvedPaths side;
        PathHelper::pathResolver(entries, current_, includedMounts_, excludedMounts_,
                                 side.parentResolved, side.resolved, side.excluded,
                                 side.unresolved);
        return side;
    };
    included_ = resolveSide(query.getIncludedPaths());
    excluded_ = resolveSide(query.getExcludedPaths());
    pairs_.clear();
    PathHelper::accumulatePairs(drives_, included_.parentResolved, included_.resolved, pairs_);
    localExclusions_ = groupPaths(excluded_, mdLocalDriveGroup);
    remoteExclusions_ = groupPaths(excluded_, mdRemoteDriveGroup);
}

bool QueryPlan::isLocal(const PathDrive& pair) {
    return (static_cast<unsigned>(pair.drive.getType()) & mdLocalDriveGroup) != 0;
}

const std::vector<PathInfo>& QueryPlan::exclusions(const PathDrive& pair) const {
    return isLocal(pair) ? localExclusions_ : remoteExclusions_;
}

std::vector<PathInfo> QueryPlan::mountPoints(const PathDrive& pair) const {
    std::vector<PathInfo> mounts;
    PathHelper::buildExcludeList(drives_, pair, mounts);
    return mounts;
}

}  // namespace fscanner
