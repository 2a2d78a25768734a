#pragma once

#include <memory>
#include <string>

#include "fscanner/engine/cache.h"
#include "fscanner/engine/cache_directory.h"

namespace fscan {

struct Options;

/// Where the cache lies, by the command line, the configuration or the user's home.
struct CachePlace {
    std::wstring directory;  ///< absolute; empty where the user has no place for one
    bool chosen = false;     ///< on the command line or in the configuration
    bool monitored = false;
    bool compressed = false;

    static CachePlace of(const Options& options);

    fscanner::FsCacheTableNames tables() const;
    bool exists() const;
    /// Why the directory is no place for a cache; empty where it is one.
    std::string problem() const;
    /// Whether the last use did not end well, so that the next makes the cache anew.
    bool isMarked() const;
    /// A cache object over it, with no file touched. The directory must exist.
    std::unique_ptr<fscanner::FS_Cache> cache() const;
    /// What is wrong, when the cache gave this status, in one line; empty for a success.
    std::string failure(int status) const;
};

}  // namespace fscan
