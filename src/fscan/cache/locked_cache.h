#pragma once

#include <memory>

#include "fscan/process/exit_status.h"
#include "fscanner/engine/cache.h"

namespace fscan {

struct CachePlace;
struct Options;

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
