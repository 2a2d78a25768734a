#include "fscan/search/provider_session.h"

#include <fmt/format.h>

#include <limits>
#include <string_view>
#include <utility>

#include "fscan/options/options.h"
#include "fscan/output/output.h"
#include "fscan/process/exit_status.h"
#include "fscan/text/text.h"
#include "fscanner/fs/fs_config.h"
#include "fscanner/fs/fs_loader.h"

namespace fscan {

namespace {

/// Stands for no timeout: the engine counts milliseconds in 32 bits.
constexpr unsigned kNoTimeout = std::numeric_limits<int>::max();
/// How long to wait for others who use the cache, in milliseconds: by default, and with --wait.
constexpr const char* kDefaultWait = "1000";
constexpr const char* kEndlessWait = "2147483647";
constexpr const char* kCacheProvider = "provider_cache";
constexpr const char* kDirectProvider = "provider_direct";

std::unique_ptr<fscanner::FsProvider> load(const char* name) {
    std::unique_ptr<fscanner::FsProvider> provider(
        fscanner::FsLoader::loadFsProvider(name, &settings()));
    if (!provider)
        complain(fmt::format("the provider {} cannot be loaded; --debug-log tells why", name));
    return provider;
}

/// Loads the provider of the command line or the settings. A search that does not recurse reads
/// directories, which is faster than a cache of whole trees.
std::unique_ptr<fscanner::FsProvider> choose(const Options& options) {
    if (options.provider) return load(options.provider->c_str());
    const std::string usual = settings().getString("fscanner", "provider", kCacheProvider);
    return load(!options.recurse && usual == kCacheProvider ? kDirectProvider : usual.c_str());
}

}  // namespace

std::optional<ProviderSession> ProviderSession::prepare(const Options& options) {
    ProviderSession session;
    session.maximumAge = options.maximumAge;
    session.timeoutMilliseconds = options.timeoutMilliseconds.value_or(kNoTimeout);
    session.provider = choose(options);
    if (!session.provider) return std::nullopt;
    session.place = CachePlace::of(options);
    // Providers without a cache ignore it.
    if (session.maximumAge == 0) session.provider->setOption(fscanner::FS_OPTION_FRESH, "true");
    session.verify = options.verify;
    session.provider->setOption(fscanner::FS_OPTION_VERIFY, options.verify ? "true" : "false");
    session.provider->setOption(fscanner::FS_OPTION_WAIT,
                                options.wait ? kEndlessWait : kDefaultWait);
    const std::string directory = toBytes(session.place.directory);
    // Providers without a cache refuse this option.
    session.cached = session.provider->setOption(fscanner::FS_OPTION_CACHE_DIRECTORY,
                                                 directory.empty() ? "/" : directory.c_str());
    std::wstring problem = L"no home directory";
    if (!session.cached || session.place.chosen || options.explain ||
        (!directory.empty() &&
         fscanner::fsPrepareCacheDirectory(session.place.directory.c_str(), problem)))
        return session;
    complain(fmt::format("no place for a cache: {}; searching without one", toBytes(problem)));
    session.cached = false;
    session.provider = load(kDirectProvider);
    if (!session.provider) return std::nullopt;
    return session;
}

unsigned ProviderSession::ageLimit() const {
    return maximumAge == 0 ? fscanner::FS_CACHE_REBUILD : maximumAge;
}

int ProviderSession::run(fscanner::FsResultSetWriter& writer,
                         const fscanner::FsQuery& query) const {
    return provider->executeQuery(writer, query, maximumAge, timeoutMilliseconds);
}

bool ProviderSession::goOnWithoutCache(int code, bool quiet) {
    const bool isCaches = code == fscanner::FS_CACHE_UNUSABLE ||
                          code == fscanner::FS_CACHE_LOCK_TIMED_OUT ||
                          code == fscanner::FS_CACHE_FAILURE;
    if (!cached || !isCaches) return false;
    std::unique_ptr<fscanner::FsProvider> direct = load(kDirectProvider);
    if (!direct) return false;
    const bool busy = code == fscanner::FS_CACHE_LOCK_TIMED_OUT;
    if (!quiet)
        complain(fmt::format("note: {}; searching without it{}", place.failure(code),
                             busy ? " (--wait waits for it)" : ""));
    provider = std::move(direct);
    cached = false;
    return true;
}

bool ProviderSession::reportsExclusions() const {
    const std::string_view name = provider->name();
    return name == kCacheProvider || name == kDirectProvider;
}

ExitStatus ProviderSession::report(int code, const std::string& path) const {
    if (code == fscanner::FS_CACHE_SUCCESS) return ExitStatus::found;
    if (code == fscanner::FS_CACHE_QUERY_TIMED_OUT || code == fscanner::FS_CACHE_BUILD_TIMED_OUT) {
        complain(fmt::format("{}: time ran out before all was searched", path));
        return ExitStatus::incomplete;
    }
    if (code == fscanner::FS_CACHE_NO_DRIVE) {
        complain(fmt::format("note: {}: on no drive that is searched", path));
        return ExitStatus::found;
    }
    if (code == fscanner::FS_CACHE_NO_FILE_PROGRAM)
        complain("types cannot be told: there is no program /usr/bin/file that can be run");
    else if (cached)
        complain(place.failure(code) + "; --no-cache searches without it");
    else if (code == fscanner::FS_CACHE_UNUSABLE &&
             provider->name() == std::string(kDirectProvider))
        complain("the mount table cannot be read");
    else
        complain(fmt::format("{}: the provider {} failed ({})", path, provider->name(), code));
    return ExitStatus::failure;
}

}  // namespace fscan
