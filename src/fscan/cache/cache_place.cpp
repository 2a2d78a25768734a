#include "fscan/cache/cache_place.h"

#include <fmt/format.h>
#include <sys/stat.h>
#include <sys/statvfs.h>

#include <filesystem>
#include <utility>

#include "fscan/options/options.h"
#include "fscan/output/messages.h"
#include "fscan/text/text.h"
#include "fscan/text/values.h"
#include "fscanner/fs/fs_config.h"

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

}  // namespace fscan
