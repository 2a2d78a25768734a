#pragma once

namespace fscan {

class Output;
struct Options;

/// What a user asks of the cache itself. Each waits some seconds for other processes,
/// and returns the exit status; 1 where there is no cache.
int showCacheStatus(const Options& options, Output& out);
/// STATUS_FAILURE where a file is damaged.
int checkCache(const Options& options, Output& out);
int compactCache(const Options& options, Output& out);
/// Drops the tree of one directory. The status is also 1 where the cache does not have it.
int forgetCachedTree(const Options& options, Output& out);
/// Deletes the files of the cache and the tag of its directory, and nothing else.
int clearCache(const Options& options, Output& out);

}  // namespace fscan
