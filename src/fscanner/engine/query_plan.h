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

namespace fscanner {

class FsQuery;

/// From a query's paths and file systems to the (path, drive) pairs to search and
/// what each leaves out. Every way of running a query goes through one plan.
///
/// The steps are apart because a host that repeats a query need not repeat them:
/// `discover` reads the mount table, `prune` applies the file systems, `resolve`
/// the paths. Each needs the one before it.
///
/// Of an automounter's placeholders only these are opened: the one that holds a searched
/// path, by that path, and those below a recursive path where the query's file systems
/// allow their type. No search enters one.
class QueryPlan {
public:
    /// All steps. False when `discover` fails.
    bool make(const FsQuery& query);

    /// Reads the mount table, and lists the drives if it is another one than before. False
    /// when it has no drive or cannot be read.
    bool discover(const FsQuery& query);
    void prune(const FsQuery& query);
    void resolve(const FsQuery& query);

    /// What `discover` has read.
    const MountTable& table() const { return table_; }
    /// Where mounted drives, and placeholders of an automounter, begin.
    const MountMap& mounts() const { return mounts_; }
    /// The mounted drives, parents before children, and those of them that the query's
    /// file systems allow.
    const std::vector<DriveInfo>& mounted() const { return mounted_; }
    const std::vector<DriveInfo>& searched() const { return current_; }
    /// The pairs to search, enclosing ones first.
    const std::vector<PathDrive>& pairs() const { return pairs_; }
    const ResolvedPaths& included() const { return included_; }
    const ResolvedPaths& excluded() const { return excluded_; }

    /// Whether a pair belongs to the local drive group.
    static bool isLocal(const PathDrive& pair);
    /// The query's own exclusions that concern a pair: those of its drive group.
    const std::vector<PathInfo>& exclusions(const PathDrive& pair) const;
    const std::vector<PathInfo>& localExclusions() const { return localExclusions_; }

    /// Whether the links of what is left out may be read there. On a drive that somebody
    /// serves, only where the search goes there as well: a dead one would never answer.
    bool mayTouch(std::string_view path) const;

private:
    bool readTable();
    void listDrives();
    bool wakeAutomounter(const FsQuery& query) const;
    void resolveExclusions(const FsQuery& query);
    void addPattern(const PathInfo& exclusion);

    MountTable table_;
    std::vector<DriveInfo> drives_;        // normalised, placeholders included
    std::vector<DriveInfo> placeholders_;  // those of them
    std::vector<DriveInfo> mounted_;       // the others
    std::vector<DriveInfo> current_;       // those whose file system the query allows
    MountMap mounts_;
    std::vector<PathInfo> includedMounts_;
    std::vector<PathInfo> excludedMounts_;
    ResolvedPaths included_;
    ResolvedPaths excluded_;
    std::vector<PathDrive> pairs_;
    std::set<std::wstring, std::less<>> touched_;  // served drives, by mount directory
    std::vector<PathInfo> localExclusions_;
    std::vector<PathInfo> remoteExclusions_;
};

}  // namespace fscanner
