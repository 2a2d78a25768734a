#pragma once

#include <cstddef>
#include <vector>

#include "fscanner/discovery/path_relation.h"
#include "fscanner/platform/real_path.h"

namespace fscanner {

/// What one side of a query, its included or its excluded paths, resolves to.
struct ResolvedPaths {
    std::vector<PathDrive> resolved;        ///< the path, on the drive it lies on
    std::vector<PathDrive> parentResolved;  ///< mount points below a recursive path
    std::vector<PathDrive> excluded;        ///< left out by the query's file systems
    std::vector<PathDrive> unresolved;      ///< on no drive that the entry allows
};

/// Tells for each path entry of a query which drive it lies on, and which drives lie below
/// it. The work of `PathHelper::pathResolver`, where the arguments are explained; a list may
/// have a pair twice.
ResolvedPaths resolvePaths(const std::vector<PathInfo>& paths, const std::vector<DriveInfo>& drives,
                           const std::vector<PathInfo>& includedMounts,
                           const std::vector<PathInfo>& excludedMounts, const LinkGuard& mayTouch);

/// `PathHelper::unix_path_resolver` with the drive's length known: its text may have a ":" too.
bool resolveText(const PathInfo& pathInfo, std::size_t driveLength, PathInfo& resolved,
                 PathInfo& parentResolved);

}  // namespace fscanner
