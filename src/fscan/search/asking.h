#pragma once

#include <memory>
#include <optional>
#include <string>

#include "fscan/cache/cache_place.h"
#include "fscanner/fs/fs_provider.h"

namespace fscanner {
class FsQuery;
class FsResultSetWriter;
}  // namespace fscanner

namespace fscan {

struct Options;

/// Who answers the searches of this run, and within which limits.
struct Asking {
    std::unique_ptr<fscanner::FsProvider> provider;
    CachePlace place;
    bool cached = false;  ///< the provider keeps a cache, at that place
    unsigned maximumAge = 0;
    unsigned timeoutMilliseconds = 0;

    /// Loads the provider and gives it its cache. Without a place for one that nobody
    /// chose, the file systems are searched, with a warning. Nothing, with a message,
    /// where there is no provider.
    static std::optional<Asking> prepare(const Options& options);

    /// The age as `FS_Cache` takes it: 0 is no age at all.
    unsigned ageLimit() const;
    int run(fscanner::FsResultSetWriter& writer, const fscanner::FsQuery& query) const;
    /// Whether the observer hears of the directories that the query leaves out.
    bool tellsExclusions() const;
    /// Goes on without the cache, for the rest of the run, where that is what failed with
    /// this code: false where it is not. Unless `quiet`, a note says why.
    bool leaveCache(int code, bool quiet);
    /// Tells the user what is wrong with the search of PATH; returns the exit status.
    int report(int code, const std::string& path) const;
};

}  // namespace fscan
