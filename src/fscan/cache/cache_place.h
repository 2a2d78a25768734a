#pragma once

#include <memory>
#include <string>
#include <vector>

#include "fscan/process/exit_status.h"
#include "fscanner/engine/cache.h"
#include "fscanner/engine/cache_directory.h"

namespace fscan {

struct Options;

/// Where the cache is: chosen by the command line, by the configuration, or in the user's home.
struct CachePlace {
    std::wstring directory;  ///< absolute; empty where the user has no home directory
    bool chosen = false;     ///< on the command line or in the configuration
    bool monitored = false;
    bool compressed = false;

    static CachePlace of(const Options& options);

    fscanner::FsCacheTableNames tables() const;
    bool exists() const;
    /// Why the directory cannot be used for a cache; empty where it can.
    std::string problem() const;
    /// The files of all caches in the directory: nothing else is ever removed.
    std::vector<std::wstring> files() const;
    /// Whether the last change was interrupted: the next search repairs the cache.
    bool isMarked() const;
    /// A cache object for the directory, which must exist. No file is touched.
    std::unique_ptr<fscanner::FS_Cache> cache() const;
    /// The message for a result of the cache, an `FS_CACHE_...`; empty for a success.
    std::string failure(int code) const;
};

/// Holds the lock on a cache, where there is one. The user is told about a wait for it, and
/// why it could not be had.
class LockedCache {
public:
    /// Several processes can read at a time; one that changes is alone.
    enum class Use { read, change };

    LockedCache(const CachePlace& place, const Options& options, Use use);
    LockedCache(const LockedCache&) = delete;
    LockedCache& operator=(const LockedCache&) = delete;
    ~LockedCache();

    /// `found` with the lock, `nothingFound` where there is no cache, else `failure`.
    ExitStatus status() const { return status_; }
    /// Opens the cache, but neither makes nor repairs it. False where there is none, or it is
    /// damaged.
    [[nodiscard]] bool open() const;
    /// Null where there is none.
    fscanner::FS_Cache* get() const { return cache_.get(); }

private:
    void lock(const CachePlace& place, const Options& options, Use use);

    std::unique_ptr<fscanner::FS_Cache> cache_;
    ExitStatus status_ = ExitStatus::found;
};

}  // namespace fscan
