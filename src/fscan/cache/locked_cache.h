#pragma once

#include <memory>

#include "fscanner/engine/cache.h"

namespace fscan {

struct CachePlace;
struct Options;

/// The lock on the cache of a place, where that has one. Who waits for it is told so,
/// and why when it is not to be had.
class LockedCache {
public:
    /// Any number read it at a time.
    enum class Use { read, change };

    LockedCache(const CachePlace& place, const Options& options, Use use);
    LockedCache(const LockedCache&) = delete;
    LockedCache& operator=(const LockedCache&) = delete;
    ~LockedCache();

    /// STATUS_NOTHING_FOUND where there is no cache.
    int status() const { return status_; }
    /// Opens the cache as it is: it is not made, and not mended. False where there is
    /// none, or no sound one.
    [[nodiscard]] bool open() const;
    /// Null where there is none.
    fscanner::FS_Cache* get() const { return cache_.get(); }

private:
    void lock(const CachePlace& place, const Options& options, Use use);

    std::unique_ptr<fscanner::FS_Cache> cache_;
    int status_;
};

}  // namespace fscan
