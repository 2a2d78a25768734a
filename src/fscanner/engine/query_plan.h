#pragma once

#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "fscanner/discovery/drivehelper.h"
#include "fscanner/discovery/mount_map.h"
#include "fscanner/discovery/mountlist.h"
#include "fscanner/discovery/path_resolver.h"
#include "fscanner/discovery/pathhelper.h"
#include "fscanner/engine/walk.h"

namespace fscanner {

class FsQuery;

/// Turns a query's paths and file systems into the (path, drive) pairs to search and the
/// exclusions of each. Every way of running a query uses this plan.
///
/// The steps are separate because a repeated query need not repeat all of them: `discover`
/// reads the mount table, `prune` applies the query's file systems, `resolve` its paths. Each step
/// needs the one before it.
///
/// Only these placeholders of an automounter are opened: the placeholder on which a searched path
/// lies, by that path, and those below a recursive path whose type the query's file systems
/// allow. No search enters a placeholder itself.
class QueryPlan {
public:
    /// Runs all steps. False if `discover` fails.
    bool make(const FsQuery& query);

    /// Reads the mount table, and lists the drives anew if its text has changed. False if the
    /// table cannot be read or has no drive.
    bool discover(const FsQuery& query);
    void prune(const FsQuery& query);
    void resolve(const FsQuery& query);

    /// The mount table that `discover` has read.
    const MountTable& table() const { return table_; }
    /// The mount points of all drives and placeholders.
    const MountMap& mounts() const { return mounts_; }
    /// Those at which the query's search stops.
    const MountMap& stopsOf(const FsQuery& query) const;
    /// The mounted drives, parents before children.
    const std::vector<DriveInfo>& mounted() const { return mounted_; }
    /// The mounted drives that the query's file systems allow.
    const std::vector<DriveInfo>& searched() const { return current_; }
    /// Whether the query's file systems allow the drive on which the path lies.
    bool searches(std::wstring_view realPath) const;
    /// The pairs to search. A pair comes before the pairs inside it.
    const std::vector<PathDrive>& pairs() const { return pairs_; }
    const ResolvedPaths& included() const { return included_; }
    const ResolvedPaths& excluded() const { return excluded_; }

    /// Whether the pair's drive belongs to the local drive group.
    static bool isLocal(const PathDrive& pair);
    /// The query's exclusions for the drive group of the pair.
    const std::vector<PathInfo>& exclusions(const PathDrive& pair) const;
    const std::vector<PathInfo>& localExclusions() const { return localExclusions_; }

    /// The entries that the query asks for, as a search of the pair counts their depths. A depth of
    /// at most 0: none below the pair's path.
    EntryChoice choiceFor(const FsQuery& query, const PathDrive& pair) const;

    /// Whether symbolic links at `path` may be read to resolve an exclusion. On a served drive
    /// (`fsIsServed`) only if the search goes there anyway: a dead server would block the query.
    bool mayTouch(std::string_view path) const;

private:
    bool readTable();
    void listDrives();
    bool wakeAutomounter(const FsQuery& query) const;
    void resolveExclusions(const FsQuery& query);
    void addPattern(const PathInfo& exclusion);
    unsigned depthOf(const PathDrive& pair) const;

    MountTable table_;
    std::vector<DriveInfo> drives_;        // normalised, with placeholders
    std::vector<DriveInfo> placeholders_;  // the placeholders among drives_
    std::vector<DriveInfo> mounted_;       // the other drives
    std::vector<DriveInfo> current_;       // the mounted drives that the query allows
    MountMap mounts_;
    MountMap allStop_;  // the same, where no mount point is crossed
    std::vector<PathInfo> includedMounts_;
    std::vector<PathInfo> excludedMounts_;
    ResolvedPaths included_;
    ResolvedPaths excluded_;
    std::vector<PathDrive> pairs_;
    std::set<std::wstring, std::less<>> touched_;  // served drives to search, by mount directory
    std::vector<PathInfo> localExclusions_;
    std::vector<PathInfo> remoteExclusions_;
};

}  // namespace fscanner
