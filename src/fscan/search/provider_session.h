#pragma once

#include <memory>
#include <optional>
#include <string>

#include "fscan/cache/cache_place.h"
#include "fscan/process/exit_status.h"
#include "fscanner/fs/fs_provider.h"

namespace fscanner {
class FsQuery;
class FsResultSetWriter;
}  // namespace fscanner

namespace fscan {

struct Options;

/// The provider that answers the searches of this run, its cache and its limits.
struct ProviderSession {
    std::unique_ptr<fscanner::FsProvider> provider;
    CachePlace place;
    bool cached = false;  ///< the provider keeps a cache, at `place`
    unsigned maximumAge = 0;
    bool verify = true;
    unsigned timeoutMilliseconds = 0;

    /// Loads the provider and sets its cache directory. Where the default directory cannot be
    /// used, the provider without a cache is loaded, with a warning. Nothing, with a message,
    /// where no provider can be loaded.
    static std::optional<ProviderSession> prepare(const Options& options);

    /// The maximum age as `FS_Cache` takes it, where 0 has another meaning.
    unsigned ageLimit() const;
    int run(fscanner::FsResultSetWriter& writer, const fscanner::FsQuery& query) const;
    /// Whether the observer hears of the directories that the query leaves out.
    bool reportsExclusions() const;
    /// If the search failed with this code because of the cache, the rest of the run goes on
    /// without it. False where it failed for another reason. Unless `quiet`, a note says why.
    bool goOnWithoutCache(int code, bool quiet);
    /// Tells the user what is wrong with the search of PATH, by its result.
    ExitStatus report(int code, const std::string& path) const;
};

}  // namespace fscan
