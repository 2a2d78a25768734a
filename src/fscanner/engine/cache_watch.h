#pragma once

#include <memory>
#include <string>
#include <vector>

#include "fscanner/engine/cache.h"
#include "fscanner/engine/cache_directory.h"
#include "fscanner/export.h"

namespace fscanner {

class FsMonitor;
class FsQuery;

/// What a watch did so far, and how it stands.
struct FSCANNER_EXPORT FsWatchReport {
    unsigned trees = 0;                  ///< to be watched
    unsigned current = 0;                ///< those that need no look at the disk to answer
    unsigned long long events = 0;       ///< that the monitor delivered
    unsigned long long updates = 0;      ///< changes of the cache, each of many events
    unsigned long long losses = 0;       ///< times that events were lost: trees were compared again
    unsigned long long answers = 0;      ///< questions of searches that were answered
    std::vector<std::wstring> problems;  ///< why trees are not watched now, a line each
    int lastStatus = FS_CACHE_SUCCESS;   ///< an `FsCacheStatus` of the last change of the cache
};

/// Keeps trees of a cache current by what a monitor tells, and answers the searches of all
/// processes that use the cache with verification: they need not look at any directory then. When
/// the watch is late, stopped or gone, searches verify the trees themselves, as without it.
///
/// It belongs to a host's loop, which waits until `descriptor` can be read, and then calls `step`:
///
///     FsCacheWatch watch(settings, *monitor);
///     if (watch.begin(query, problem) == 0)
///         while (poll(...)) watch.step();
///
/// One thread at a time. Nothing is thrown. It starts no threads.
class FSCANNER_EXPORT FsCacheWatch {
public:
    /// `settings` name the cache; its directory is made if it is not there. `monitor` must live
    /// longer than this object, and nothing else may use it.
    FsCacheWatch(const FsCacheSettings& settings, FsMonitor& monitor);
    FsCacheWatch(const FsCacheWatch&) = delete;
    FsCacheWatch& operator=(const FsCacheWatch&) = delete;
    /// Ends the watch; searches verify again.
    ~FsCacheWatch();

    /// Begins to watch the local trees that a query searches. `query` must live as long as the
    /// watch. Trees are built, or compared with the disk, by the first `step`. 0; -40 if none of
    /// the trees can be watched; -52 if the cache has a watch already; -53 if its directory cannot
    /// be used. But for 0, `problem` says why. To be called once.
    int begin(const FsQuery& query, std::wstring& problem);

    /// Can be read, for `poll`, when there is something to do. -1 before `begin`. The watch owns
    /// it.
    int descriptor() const;
    /// Does what there is to do. The cache is locked while it is changed; building a tree may take
    /// its time, and then searches wait for it as for any other process. 0, or -53 when the watch
    /// cannot go on.
    int step();

    /// How it stands. The problems of `begin` are among it.
    FsWatchReport report() const;

private:
    class FSCANNER_HIDDEN Inside;
    std::unique_ptr<Inside> inside_;
};

}  // namespace fscanner
