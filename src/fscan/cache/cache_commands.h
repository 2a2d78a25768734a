#pragma once

#include "fscan/process/exit_status.h"

namespace fscan {

class Output;
struct Options;

/// The commands for the cache itself. Each waits some seconds for other processes that use
/// it. The status is `nothingFound` where there is no cache.
ExitStatus showCacheStatus(const Options& options, Output& out);
/// The status is `failure` where a file is damaged.
ExitStatus checkCache(const Options& options, Output& out);
ExitStatus compactCache(const Options& options, Output& out);
/// Drops the tree of one directory; `nothingFound` also where the cache does not have it.
ExitStatus forgetCachedTree(const Options& options, Output& out);
/// Deletes the files of the cache and the tag of its directory, and nothing else.
ExitStatus clearCache(const Options& options, Output& out);

}  // namespace fscan
