#include "fscan/search/asking.h"

#include <fmt/format.h>

#include <limits>
#include <string_view>
#include <utility>

#include "fscan/options/options.h"
#include "fscan/output/messages.h"
#include "fscan/process/exit_status.h"
#include "fscan/text/text.h"
#include "fscanner/fs/fs_config.h"
#include "fscanner/fs/fs_loader.h"

namespace fscan {

namespace {

/// As good as none: the engine counts milliseconds in 32 bits.
constexpr unsigned noTimeout = std::numeric_limits<int>::max();
/// How long others may keep the cache, in milliseconds, and where they may for good.
constexpr const char* usualWait = "1000";
constexpr const char* anyWait = "2147483647";
constexpr const char* cacheProvider = "provider_cache";
constexpr const char* directProvider = "provider_direct";

std::unique_ptr<fscanner::FsProvider> load(const char* name) {
    std::unique_ptr<fscanner::FsProvider> provider(
        fscanner::FsLoader::loadFsProvider(name, &settings()));
    if (!provider)
        complain(fmt::format("the provider {} cannot be loaded; --debug-log tells why", name));
    return provider;
}

/// The provider to ask: the one of the command line or the settings. Directories alone are
/// read faster than a cache, which holds whole trees.
std::unique_ptr<fscanner::FsProvider> choose(const Options& options) {
    if (options.provider) return load(options.provider->c_str());
    const std::string usual = settings().getString("fscanner", "provider", cacheProvider);
    return load(!options.recurse && usual == cacheProvider ? directProvider : usual.c_str());
}

}  // namespace

std::optional<Asking> Asking::prepare(const Options& options) {
    Asking asking;
    asking.maximumAge = options.maximumAge;
    asking.timeoutMilliseconds = options.timeoutMilliseconds.value_or(noTimeout);
    asking.provider = choose(options);
    if (!asking.provider) return std::nullopt;
    asking.place = CachePlace::of(options);
    // A provider that has no cache has no use for it, either.
    if (asking.maximumAge == 0) asking.provider->setOption(fscanner::FS_OPTION_FRESH, "true");
    asking.provider->setOption(fscanner::FS_OPTION_WAIT, options.wait ? anyWait : usualWait);
    const std::string directory = toBytes(asking.place.directory);
    // A provider that keeps none refuses the option.
    asking.cached = asking.provider->setOption(fscanner::FS_OPTION_CACHE_DIRECTORY,
                                               directory.empty() ? "/" : directory.c_str());
    std::wstring problem = L"no home directory";
    if (!asking.cached || asking.place.chosen || options.explain ||
        (!directory.empty() &&
         fscanner::fsPrepareCacheDirectory(asking.place.directory.c_str(), problem)))
        return asking;
    complain(fmt::format("no place for a cache: {}; searching without one", toBytes(problem)));
    asking.cached = false;
    asking.provider = load(directProvider);
    if (!asking.provider) return std::nullopt;
    return asking;
}

unsigned Asking::ageLimit() const {
    return maximumAge == 0 ? fscanner::FS_CACHE_REBUILD : maximumAge;
}

int Asking::run(fscanner::FsResultSetWriter& writer, const fscanner::FsQuery& query) const {
    return provider->executeQuery(writer, query, maximumAge, timeoutMilliseconds);
}

bool Asking::leaveCache(int code, bool quiet) {
    const bool isCaches = code == fscanner::FS_CACHE_UNUSABLE ||
                          code == fscanner::FS_CACHE_LOCK_TIMED_OUT ||
                          code == fscanner::FS_CACHE_FAILURE;
    if (!cached || !isCaches) return false;
    std::unique_ptr<fscanner::FsProvider> direct = load(directProvider);
    if (!direct) return false;
    const bool busy = code == fscanner::FS_CACHE_LOCK_TIMED_OUT;
    if (!quiet)
        complain(fmt::format("note: {}; searching without it{}", place.failure(code),
                             busy ? " (--wait waits for it)" : ""));
    provider = std::move(direct);
    cached = false;
    return true;
}

bool Asking::tellsExclusions() const {
    const std::string_view name = provider->name();
    return name == cacheProvider || name == directProvider;
}

int Asking::report(int code, const std::string& path) const {
    if (code == fscanner::FS_CACHE_SUCCESS) return STATUS_FOUND;
    if (code == fscanner::FS_CACHE_QUERY_TIMED_OUT || code == fscanner::FS_CACHE_BUILD_TIMED_OUT) {
        complain(fmt::format("{}: time ran out before all was searched", path));
        return STATUS_INCOMPLETE;
    }
    if (code == fscanner::FS_CACHE_NO_DRIVE) {
        complain(fmt::format("note: {}: on no drive that is searched", path));
        return STATUS_FOUND;
    }
    if (code == fscanner::FS_CACHE_NO_FILE_PROGRAM)
        complain("types cannot be told: there is no program /usr/bin/file that can be run");
    else if (cached)
        complain(place.failure(code) + "; --no-cache searches without it");
    else if (code == fscanner::FS_CACHE_UNUSABLE && provider->name() == std::string(directProvider))
        complain("the mount table cannot be read");
    else
        complain(fmt::format("{}: the provider {} failed ({})", path, provider->name(), code));
    return STATUS_FAILURE;
}

}  // namespace fscan
