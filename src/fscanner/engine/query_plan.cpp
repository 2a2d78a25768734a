#include "fscanner/engine/query_plan.h"

#include <algorithm>
#include <optional>

#include "fscanner/common/path_text.h"
#include "fscanner/common/utf8.h"
#include "fscanner/common/wildcard.h"
#include "fscanner/discovery/drivehelper.h"
#include "fscanner/discovery/mountlist.h"
#include "fscanner/discovery/path_resolver.h"
#include "fscanner/fs/fs_query.h"

namespace fscanner {

namespace {

// The excluded paths of a drive group, and the mount points below them.
std::vector<PathInfo> groupPaths(const ResolvedPaths& side, unsigned mask) {
    std::vector<PathInfo> paths;
    PathHelper::extractPathList(side.resolved, mask, paths);
    PathHelper::extractPathList(side.parentResolved, mask, paths);
    return paths;
}

// The number of directories that hold what is in this one.
unsigned levelsOf(std::wstring_view path) {
    path = withoutFinalSeparator(path);
    return path.empty() || path == L"/"
               ? 0U
               : static_cast<unsigned>(std::count(path.begin(), path.end(), L'/'));
}

constexpr unsigned kAnyDepth = std::numeric_limits<unsigned>::max();

}  // namespace

bool QueryPlan::make(const FsQuery& query) {
    if (!discover(query)) return false;
    prune(query);
    resolve(query);
    return true;
}

bool QueryPlan::discover(const FsQuery& query) {
    if (!readTable()) return false;
    if (wakeAutomounter(query) && !readTable()) return false;
    return !mounted_.empty();
}

bool QueryPlan::readTable() {
    std::optional<MountTable> table = readMountTable();
    if (!table) return false;
    if (*table == table_) return true;
    table_ = std::move(*table);
    listDrives();
    return true;
}

void QueryPlan::listDrives() {
    drives_ = listMountedDrives(table_);
    normaliseDriveList(drives_);
    mounted_.clear();
    placeholders_.clear();
    for (const DriveInfo& drive : drives_)
        (isPlaceholder(drive) ? placeholders_ : mounted_).push_back(drive);
    addMissingRoot(mounted_);
    mounts_ = MountMap(drives_);
    allStop_ = mounts_.withoutCrossing();
}

// Opens placeholders, so that the automounter mounts what the query searches. A placeholder may
// stand for one file system, or for a directory of them; in the latter case the path in it says
// which. False if none was opened, and so the mount table has not changed.
bool QueryPlan::wakeAutomounter(const FsQuery& query) const {
    if (placeholders_.empty()) return false;
    std::vector<DriveInfo> allowed;
    DriveHelper::fileSystemDriveListPruning(placeholders_, allowed, query.getIncludedFileSystems(),
                                            query.getExcludedFileSystems());
    bool opened = false;
    const auto open = [&opened](std::wstring_view path) {
        opened |= accessMountPath(toMultibyte(path).c_str());
    };
    for (const PathInfo& entry : query.getIncludedPaths()) {
        const std::wstring path = realPathOf(entry);
        if (path.empty()) continue;
        const DriveInfo* const drive = mounts_.holding(path);
        if (drive && isPlaceholder(*drive)) open(path);
        if (!entry.getRecursive()) continue;
        for (const DriveInfo& below : allowed) {
            const std::wstring_view mount = PathHelper::driveText(below);
            if (relatePaths(mount, path) == PathRelation::INSIDE) open(mount);
        }
    }
    return opened;
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
    // A path that lies on a placeholder itself resolves, but is not searched.
    std::vector<PathInfo> notSearched = excludedMounts_;
    PathHelper::buildPathList(placeholders_, notSearched);
    included_ = ResolvedPaths();
    PathHelper::pathResolver(query.getIncludedPaths(), current_, includedMounts_, notSearched,
                             included_.parentResolved, included_.resolved, included_.excluded,
                             included_.unresolved);
    pairs_.clear();
    PathHelper::accumulatePairs(drives_, included_.parentResolved, included_.resolved, pairs_);
    // Exclusions are resolved twice. First without touching any served drive, to find the served
    // drives that the exclusions do not leave out. Then links may be read on those drives.
    touched_.clear();
    resolveExclusions(query);
    for (const PathDrive& pair : pairs_)
        if (fsIsServed(pair.drive) &&
            !checkPathList(pair.path.getPathName(), exclusions(pair), query.getCaseSensitive(),
                           pair.path.getRecursive()))
            touched_.emplace(PathHelper::driveText(pair.drive));
    if (!touched_.empty()) resolveExclusions(query);
}

bool QueryPlan::mayTouch(std::string_view path) const {
    const DriveInfo* const drive = mounts_.holding(toWide(path));
    return !drive || !fsIsServed(*drive) || touched_.contains(PathHelper::driveText(*drive));
}

void QueryPlan::resolveExclusions(const FsQuery& query) {
    excluded_ = ResolvedPaths();
    PathHelper::pathResolver(query.getExcludedPaths(), current_, includedMounts_, excludedMounts_,
                             excluded_.parentResolved, excluded_.resolved, excluded_.excluded,
                             excluded_.unresolved,
                             [this](std::string_view path) { return mayTouch(path); });
    localExclusions_ = groupPaths(excluded_, mdLocalDriveGroup);
    remoteExclusions_ = groupPaths(excluded_, mdRemoteDriveGroup);
    for (const PathInfo& entry : query.getExcludedPaths()) addPattern(entry);
}

// A pattern may match on every drive of its group, but `pathResolver` resolves it only to the drive
// on which a path of this text would lie. So it is added to the exclusions as it is.
void QueryPlan::addPattern(const PathInfo& exclusion) {
    const std::optional<PathEntry> entry = parsePathEntry(
        exclusion, mounted_, [this](std::string_view path) { return mayTouch(path); });
    if (!entry || !entry->valid || !entry->driveName.empty()) return;
    if (!checkWildCard(entry->path.c_str())) return;
    const std::vector<PathInfo> pattern = {PathInfo(entry->path.c_str(), entry->recursive)};
    if ((entry->mask & mdLocalDriveGroup) != 0)
        PathHelper::appendPathList(localExclusions_, pattern, true);
    if ((entry->mask & mdRemoteDriveGroup) != 0)
        PathHelper::appendPathList(remoteExclusions_, pattern, true);
}

bool QueryPlan::isLocal(const PathDrive& pair) {
    return (static_cast<unsigned>(pair.drive.getType()) & mdLocalDriveGroup) != 0;
}

// The pair's path is one of the query's, or a mount point below one: the nearest.
unsigned QueryPlan::depthOf(const PathDrive& pair) const {
    const std::wstring_view path = pair.path.getPathName();
    unsigned least = kAnyDepth;
    for (const PathDrive& entry : included_.resolved) {
        const PathRelation relation = relatePaths(path, entry.path.getPathName());
        if (relation == PathRelation::SAME ||
            (relation == PathRelation::INSIDE && entry.path.getRecursive()))
            least = std::min(least, levelsOf(path) - levelsOf(entry.path.getPathName()));
    }
    return least == kAnyDepth ? 0 : least;
}

EntryChoice QueryPlan::choiceFor(const FsQuery& query, const PathDrive& pair) const {
    EntryChoice choice{query.getKinds(), query.getDepth()};
    const unsigned above = depthOf(pair);
    const auto below = [above](unsigned depth) { return depth - std::min(depth, above); };
    choice.depth.least = below(choice.depth.least);
    if (choice.depth.most != kAnyDepth) choice.depth.most = below(choice.depth.most);
    if (above > 0 && query.getOneFileSystem()) choice.depth.most = 0;
    return choice;
}

bool QueryPlan::searches(std::wstring_view realPath) const {
    const DriveInfo* const drive = mounts_.holding(realPath);
    return !drive || std::find(current_.begin(), current_.end(), *drive) != current_.end();
}

const MountMap& QueryPlan::stopsOf(const FsQuery& query) const {
    return query.getOneFileSystem() ? allStop_ : mounts_;
}

const std::vector<PathInfo>& QueryPlan::exclusions(const PathDrive& pair) const {
    return isLocal(pair) ? localExclusions_ : remoteExclusions_;
}

}  // namespace fscanner
