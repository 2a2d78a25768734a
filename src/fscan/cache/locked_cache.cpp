#include "fscan/cache/locked_cache.h"

#include <limits>

#include "fscan/cache/cache_place.h"
#include "fscan/options/options.h"
#include "fscan/output/messages.h"
#include "fscan/output/progress_line.h"
#include "fscan/process/exit_status.h"
#include "fscan/process/interruption.h"
#include "fscanner/fs/fs_scan_observer.h"

namespace fscan {

namespace {

constexpr int lockMilliseconds = 10000;
constexpr unsigned openMilliseconds = 10000;

/// Tells the user that the program waits for the cache, and lets signals end the wait.
class LockWatcher : public fscanner::FsScanObserver {
public:
    explicit LockWatcher(bool quiet) : line_(quiet), previous_(fsSetScanObserver(this)) {}
    LockWatcher(const LockWatcher&) = delete;
    LockWatcher& operator=(const LockWatcher&) = delete;
    ~LockWatcher() override { fsSetScanObserver(previous_); }

    bool waiting(unsigned elapsedMilliseconds) override {
        line_.showWaiting(elapsedMilliseconds);
        return !Interruption::pending();
    }

private:
    ProgressLine line_;
    fscanner::FsScanObserver* previous_;
};

}  // namespace

LockedCache::LockedCache(const CachePlace& place, const Options& options, Use use) {
    if (place.directory.empty()) {
        complain("there is no place for a cache: neither XDG_CACHE_HOME nor a home");
        status_ = ExitStatus::failure;
    } else if (!place.exists()) {
        status_ = ExitStatus::nothingFound;
    } else if (const std::string problem = place.problem(); !problem.empty()) {
        complain(problem);
        status_ = ExitStatus::failure;
    } else {
        lock(place, options, use);
    }
}

LockedCache::~LockedCache() {
    if (cache_) cache_->unlock();
}

bool LockedCache::open() const {
    return cache_ && cache_->create(openMilliseconds, fscanner::FS_CACHE_OPEN) == 0;
}

void LockedCache::lock(const CachePlace& place, const Options& options, Use use) {
    std::unique_ptr<fscanner::FS_Cache> cache = place.cache();
    const LockWatcher watcher(options.quiet);
    const int limit = options.wait ? std::numeric_limits<int>::max() : lockMilliseconds;
    const int code = use == Use::read ? cache->lockShared(limit) : cache->lock(limit);
    if (code != fscanner::FS_CACHE_SUCCESS) {
        if (!Interruption::pending()) complain(place.failure(code));
        status_ = ExitStatus::failure;
    } else {
        cache_ = std::move(cache);
    }
}

}  // namespace fscan
