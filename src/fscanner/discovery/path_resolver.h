#pragma once

#include <cstddef>
#include <vector>

#include "fscanner/discovery/path_relation.h"
#include "fscanner/platform/real_path.h"

namespace fscanner {

/// The resolved paths of one side of a query: its included or its excluded paths.
struct ResolvedPaths {
    std::vector<PathDrive> resolved;        ///< each path, with the drive on which it lies
    std::vector<PathDrive> parentResolved;  ///< mount points below a recursive path
    std::vector<PathDrive> excluded;        ///< on a file system that the query leaves out
    std::vector<PathDrive> unresolved;      ///< entries, as written, without an admitted drive
};

/// Finds for each path entry of a query the drive on which it lies and the drives below it. The
/// implementation of `PathHelper::pathResolver`, which explains the arguments. A list of the
/// result may contain a pair twice.
ResolvedPaths resolvePaths(const std::vector<PathInfo>& paths, const std::vector<DriveInfo>& drives,
                           const std::vector<PathInfo>& includedMounts,
                           const std::vector<PathInfo>& excludedMounts, const LinkGuard& mayTouch);

/// As `PathHelper::unix_path_resolver`, with the length of the drive's text given, because that
/// text may contain a ":" itself.
bool resolveText(const PathInfo& pathInfo, std::size_t driveLength, PathInfo& resolved,
                 PathInfo& parentResolved);

}  // namespace fscanner
