#include "fscan/cache/cache_place.h"

#include <fmt/format.h>
#include <sys/stat.h>
#include <sys/statvfs.h>

#include <filesystem>
#include <limits>
#include <utility>

#include "fscan/options/options.h"
#include "fscan/output/output.h"
#include "fscan/output/progress_line.h"
#include "fscan/process/exit_status.h"
#include "fscan/process/interruption.h"
#include "fscan/text/text.h"
#include "fscan/text/values.h"
#include "fscanner/fs/fs_config.h"
#include "fscanner/fs/fs_scan_observer.h"

namespace fscan {

namespace {

std::string absolute(const std::string& path) {
    std::error_code error;
    const std::filesystem::path result = std::filesystem::absolute(path, error);
    return error ? std::string() : result.lexically_normal().native();
}

std::string unusable(const std::wstring& directory, const std::wstring& problem) {
    return fmt::format("{}: the cache directory cannot be used: {}", toBytes(directory),
                       toBytes(problem));
}

/// The state of the disk that may explain a failure, as the end of a sentence.
std::string diskText(const std::string& directory) {
    struct statvfs disk {};
    if (statvfs(directory.c_str(), &disk) != 0) return {};
    if ((disk.f_flag & ST_RDONLY) != 0) return ": its file system is read-only";
    if (disk.f_files != 0 && disk.f_favail == 0) return ": its disk takes no more files";
    return fmt::format(" ({} left on its disk)", sizeText(disk.f_bavail * disk.f_frsize));
}

}  // namespace

CachePlace CachePlace::of(const Options& options) {
    CachePlace place;
    std::string unusable;
    fscanner::FsCacheSettings kept = fscanner::fsCacheSettings(settings(), &unusable);
    if (!unusable.empty()) complain("the setting " + unusable);
    place.directory = options.cacheDirectory ? toWide(absolute(*options.cacheDirectory))
                                             : std::move(kept.directory);
    place.chosen = !place.directory.empty();
    if (!place.chosen) place.directory = fscanner::fsDefaultCacheDirectory();
    place.monitored = kept.monitored;
    place.compressed = kept.compressed;
    return place;
}

fscanner::FsCacheTableNames CachePlace::tables() const {
    return fscanner::fsCacheTableNames(compressed);
}

bool CachePlace::exists() const {
    struct stat info {};
    return !directory.empty() && stat(toBytes(directory).c_str(), &info) == 0 &&
           S_ISDIR(info.st_mode);
}

std::string CachePlace::problem() const {
    std::wstring problem;
    if (fscanner::fsCheckCacheDirectory(directory.c_str(), problem)) return {};
    return unusable(directory, problem);
}

std::vector<std::wstring> CachePlace::files() const {
    return fscanner::fsCacheFiles(directory.c_str());
}

bool CachePlace::isMarked() const {
    return fscanner::fsCacheIsMarked(directory.c_str(), tables());
}

std::unique_ptr<fscanner::FS_Cache> CachePlace::cache() const {
    const fscanner::FsCacheTableNames names = tables();
    return std::make_unique<fscanner::FS_Cache>(names.directories.c_str(), names.files.c_str(),
                                                directory.c_str(), monitored, compressed, true);
}

std::string CachePlace::failure(int code) const {
    const std::string where = toBytes(directory);
    switch (code) {
        case fscanner::FS_CACHE_SUCCESS:
            return {};
        case fscanner::FS_CACHE_LOCK_TIMED_OUT:
            return fmt::format("{}: another process is using the cache", where);
        case fscanner::FS_CACHE_FAILURE: {
            std::wstring problem;
            if (!fscanner::fsPrepareCacheDirectory(directory.c_str(), problem))
                return unusable(directory, problem);
            return fmt::format("{}: the cache can be neither locked nor opened{}", where,
                               diskText(where));
        }
        default:
            return fmt::format("{}: the cache failed{}", where, diskText(where));
    }
}

// ---- The lock ---------------------------------------------------------------

namespace {

constexpr int kLockMilliseconds = 10000;
constexpr unsigned kOpenMilliseconds = 10000;

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
    return cache_ && cache_->create(kOpenMilliseconds, fscanner::FS_CACHE_OPEN) == 0;
}

void LockedCache::lock(const CachePlace& place, const Options& options, Use use) {
    std::unique_ptr<fscanner::FS_Cache> cache = place.cache();
    const LockWatcher watcher(options.quiet);
    const int limit = options.wait ? std::numeric_limits<int>::max() : kLockMilliseconds;
    const int code = use == Use::read ? cache->lockShared(limit) : cache->lock(limit);
    if (code != fscanner::FS_CACHE_SUCCESS) {
        if (!Interruption::pending()) complain(place.failure(code));
        status_ = ExitStatus::failure;
    } else {
        cache_ = std::move(cache);
    }
}

}  // namespace fscan
