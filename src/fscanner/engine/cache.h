#pragma once

#include <memory>
#include <string>
#include <vector>

#include "fscanner/export.h"

namespace fscanner {

class FsMonitor;
class FsQuery;
struct FsQueryReport;
class FsResultSetWriter;
class CacheStore;
struct KeptChanges;
struct TreeRules;
class QueryPlan;
class ChangeSource;
class WatchClient;
struct PathDrive;

/// What `FS_Cache::create` does with the files of the directory.
enum FsCacheDisposition : int {
    FS_CACHE_CREATE = 0,       ///< make an empty cache, whatever is there
    FS_CACHE_OPEN = 1,         ///< open a sound cache
    FS_CACHE_OPEN_ALWAYS = 2,  ///< open it, or make an empty one where that fails
};

/// Results of the cache's operations.
enum FsCacheStatus : int {
    FS_CACHE_SUCCESS = 0,
    FS_CACHE_UNUSABLE = -40,         ///< not created, not opened, closed, or broken
    FS_CACHE_QUERY_TIMED_OUT = -41,  ///< a direct scan or the extraction ran out of time
    FS_CACHE_BUILD_TIMED_OUT = -42,  ///< rebuilding a tree did; that is undone
    FS_CACHE_NO_DRIVE = -43,         ///< a path of the query leads to no drive; the others are done
    FS_CACHE_NO_FILE_PROGRAM = -44,  ///< types were asked for, and `file` cannot be run
    FS_CACHE_NEEDS_CHANGE = -45,     ///< the shared lock does not do: the cache has to be changed
    FS_CACHE_ALREADY_OPENED = -51,
    FS_CACHE_LOCK_TIMED_OUT = -52,
    FS_CACHE_FAILURE = -53,
};

/// A `maxCacheAge` of which every tree is too old. With 0, one that was built in the
/// same second still answers.
inline constexpr unsigned FS_CACHE_REBUILD = 0U - 1;

/// One tree that a cache holds.
struct FSCANNER_EXPORT FsCachedTree {
    std::wstring path;      ///< where the tree begins
    long long builtAt = 0;  ///< seconds since the epoch
    /// How many records the tree has of each kind.
    unsigned long long files = 0;
    unsigned long long directories = 0;
};

/// What a cache holds.
struct FSCANNER_EXPORT FsCacheReport {
    std::vector<FsCachedTree> trees;        ///< by path
    unsigned long long records = 0;         ///< of files and directories
    unsigned long long removedRecords = 0;  ///< that still take space until `compact`
};

/// What a check of a cache's files found.
struct FSCANNER_EXPORT FsCacheCheck {
    unsigned long long files = 0;        ///< that were compared with their checksums
    unsigned long long bytes = 0;        ///< that these have
    std::vector<std::wstring> problems;  ///< what is wrong, a line each; none in a sound cache
};

/// A directory of the disk that remembers trees of the file system, so that later
/// searches need not walk them.
///
/// Several processes share a cache directory. The order of use, for each query:
/// `lock`, `create` with `FS_CACHE_OPEN_ALWAYS`, queries, `close`, `compact` if
/// wished, `unlock`; then a new object. Nothing but the locks waits for others, so all
/// the rest is called while one is held.
///
/// That keeps everybody else from the cache until `unlock`. Searches that find their trees
/// young enough need not: they take the shared lock first, and the other one only where a
/// tree has to be built.
///
///     lockShared, create, query, close, unlock             // -45 of one of them: go on
///     lock, create, refresh, share, query, close, unlock   // -45 of the last two: again
///
/// While the cache is open, but under a shared lock, a mark lies beside its files. A process
/// that dies leaves it behind, and so does a cache that was found broken, or in which a tree could
/// not be built: with the exclusive lock the next `create` undoes the change that was not
/// finished, so that the other trees stay. Where that is not possible, and under a shared lock, it
/// refuses the files; `FS_CACHE_OPEN_ALWAYS` makes them anew. The destructor never removes the
/// mark.
///
/// One thread at a time for an object; several threads may have objects of their own, also
/// on one directory, where the locks make them wait for each other as they do processes. A
/// thread that would wait for itself, for a lock that it has by another object, gets -52 at
/// once; several shared ones it may have. An object that is called in the middle of one of
/// its own operations, as from a writer, refuses: a query gives -52. Nothing is thrown.
class FSCANNER_EXPORT FS_Cache {
public:
    /// Touches no file. `cacheDirectory` must exist. With `monitor`, queries use the
    /// trees that the cache has, of any age, and build none. With `compressed`, numbers
    /// are stored in as many bytes as they need. Without `cacheChecker` there is no mark.
    FS_Cache(const wchar_t* directoriesTableName, const wchar_t* filesTableName,
             const wchar_t* cacheDirectory, bool monitor, bool compressed, bool cacheChecker);
    FS_Cache(const FS_Cache&) = delete;
    FS_Cache& operator=(const FS_Cache&) = delete;
    ~FS_Cache();

    /// Opens or makes the files, by an `FsCacheDisposition`. 0, -51 when this object
    /// was opened before (even if closed since), or -53. `timeout` is only logged. Under
    /// a shared lock a sound cache is opened for reading, and none is made: where that is
    /// not enough, -45 takes the place of -53.
    int create(unsigned timeout, int disposition);
    /// Waits for the other processes. 0, -52 when the limit (milliseconds; 0 never succeeds)
    /// is over, or -53.
    int lock();
    int lock(int timeout);
    /// The same for a cache that is only read: it waits for those who have the cache alone,
    /// and not for those who share it. Called before `create`. An object that has the cache
    /// alone gives that up.
    int lockShared(int timeout);
    void unlock();

    /// Writes the files that match to `writer`. `timeout`, in milliseconds, limits
    /// each rebuilding of a tree and the extraction. A tree is rebuilt that is older than
    /// `maxCacheAge` seconds, or that was built in the future: the clock was set back.
    /// 0, -40, -41, -42, or the negative result of the writer where it refused a record.
    /// The Ex form keeps the drive list and the resolved paths for the next call in this
    /// process, which uses them while the mount table, and where the paths lead, are the
    /// same. A tree of which the system failed to read a part is answered from once, and
    /// built anew by the next query. Under a shared lock -45 where a tree would have to be built:
    /// nothing was written, and the observer was told of nothing but progress.
    int executeQuery(FsResultSetWriter& writer, const FsQuery& query, unsigned timeout,
                     unsigned maxCacheAge);
    int executeQueryEx(FsResultSetWriter& writer, const FsQuery& query, unsigned timeout,
                       unsigned maxCacheAge);

    /// Builds the trees that a query with these limits would build, or brings them up to date;
    /// gives no answer. 0, -40, -41 (stopped while comparing), -42, or -45 under a shared lock.
    int refresh(const FsQuery& query, unsigned timeout, unsigned maxCacheAge);
    /// Goes over from the exclusive lock to a shared one, so that others may read beside the
    /// queries to come: closes the cache as `close` does, compacts it if that is worth it,
    /// and opens it for reading. What `refresh` built is young enough for the queries of this
    /// object, whatever their `maxCacheAge`. 0; -52 when the limit (milliseconds) is over;
    /// -45 when others, who had the cache in between, left none that is sound; -40 when it is
    /// broken, -53 when it was not open for change. But for 0 the cache is closed then.
    int share(int timeout);

    /// Reports what the next `executeQuery` with this age would do, and what an open
    /// cache holds. False when the cache is not open, broken, or found damaged.
    bool explain(const FsQuery& query, unsigned maxCacheAge, FsQueryReport& report);
    bool report(FsCacheReport& report);
    /// Instead of `create`, while the lock is held: compares all files with their checksums, where
    /// a search compares what it reads. The next `create` makes a cache with a problem anew. No
    /// files and no problem: there is no cache. False when this object was opened before.
    bool check(FsCacheCheck& result);

    /// Removes the tree of a directory from an open cache, with all below it. `path` is absolute
    /// and free of links; the directory need not be there any more. What is known of the trees
    /// that hold it is not an answer any more, until they are built again. `found` tells
    /// whether the cache had it. 0, -40, -45 under a shared lock, or -52 in the middle of
    /// another operation.
    int forget(const wchar_t* path, bool& found);
    /// Whether queries and `refresh` compare trees with the disk before they use them; false at
    /// first. To be called between queries; no effect with `monitor`. Directories that changed are
    /// read again: under a shared lock the result is -45 then. Names are right at any age of the
    /// tree. A criteria that reads sizes or attributes is tested on those that the file has now;
    /// if it reads nothing else, the stored ones tell which files to look at, and `maxCacheAge`
    /// limits their age. Records of other queries have the stored ones, of any age. Where the file
    /// system does not tell of changes, `maxCacheAge` decides as it does otherwise. What `refresh`
    /// brought up to date is not compared again by the next query of this object.
    void setVerification(bool verify);
    /// Takes over what a query of `reader` found out about changed directories before it returned
    /// -45, so that `refresh` need not look at all directories again. To be called for the same
    /// query, when this object is open for change and `reader` is closed. Does nothing if others
    /// have changed the cache since.
    void continueFrom(FS_Cache& reader);
    /// How many bytes the tables with their indexes may take; 0, as at first: any number. A query,
    /// or `refresh`, that builds something removes the trees that were built first until the rest
    /// fits, but none that it searches itself; `compact` gives their space back. The log names
    /// them.
    void setSizeLimit(unsigned long long bytes);

    /// Reserved; 0, and the monitor is not kept.
    int startMonitor(FsMonitor* monitor);
    int stopMonitor();

    /// Brings everything to disk, closes the files, and removes the mark unless the
    /// cache is broken. Queries give -40 from then on.
    bool close();
    /// Rewrites the tables of a closed cache where much of them is removed records.
    bool compact();
    /// Deletes the files of a cache that this object has closed; false otherwise, and
    /// nothing is deleted then.
    bool remove();

private:
    enum class Form { plain, kept };
    template <class Result, class Body>
    FSCANNER_HIDDEN Result operate(const char* where, Result failure, Result busy, Body body);
    FSCANNER_HIDDEN int run(Form form, FsResultSetWriter& writer, const FsQuery& query,
                            unsigned timeout, unsigned maxCacheAge);
    template <class Body>
    FSCANNER_HIDDEN auto runPlan(Form form, const FsQuery& query, Body body);
    template <class Body>
    FSCANNER_HIDDEN auto runPlan(const QueryPlan& plan, Body body);

    FSCANNER_HIDDEN std::shared_ptr<const QueryPlan> makePlan(Form form,
                                                              const FsQuery& query) const;

    FSCANNER_HIDDEN KeptChanges& changes();
    FSCANNER_HIDDEN TreeRules rules(unsigned maxCacheAge);

    /// Brings the trees of these pairs up to date, by what is known of their changes.
    FSCANNER_HIDDEN int keepCurrent(const FsQuery& query, const QueryPlan& plan,
                                    const std::vector<PathDrive>& pairs, ChangeSource& changes);
    friend class FsCacheWatch;

    std::unique_ptr<CacheStore> store_;
    std::unique_ptr<KeptChanges> changes_;
    std::unique_ptr<WatchClient> watcher_;
    bool monitor_;
    bool verify_ = false;
    unsigned long long sizeLimit_ = 0;
};

}  // namespace fscanner
