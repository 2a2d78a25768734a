#pragma once

#include <string>

#include "fscanner/export.h"

namespace fscanner {

class FsConfig;
class FsQuery;
class FsResultSetWriter;
class FS_Queue;

// Keys of `FsProvider::setOption`, for the providers that keep a cache.

/// The absolute path of the cache's directory.
inline constexpr char FS_OPTION_CACHE_DIRECTORY[] = "cache_directory";
/// "true": trees of the cache are used at any age, and none is built. Or "false".
inline constexpr char FS_OPTION_MONITORED[] = "monitored";
/// "true": the cache's tables store numbers in as few bytes as they need. Or "false".
inline constexpr char FS_OPTION_COMPRESSED[] = "compressed";
/// The size limit of a cache in bytes: a number, which K, M, G or T multiplies by a power of
/// 1024. 0 means no limit. A search that has built a tree removes other trees, the oldest
/// first, until the cache fits. It keeps the trees that it needs.
inline constexpr char FS_OPTION_CACHE_LIMIT[] = "cache_limit";
/// "true": no answer comes from the cache. A `maximumAge` of 0 is not enough, because a tree
/// that was built in the same second has that age. Or "false".
inline constexpr char FS_OPTION_FRESH[] = "fresh";
/// "true": the trees of the cache are compared with the disk before they answer, where the file
/// system allows that. What changed is read again, so that names are right whatever the age of a
/// tree, and sizes and attributes that the criteria reads are those of the files now. For a
/// criteria that reads nothing else, `maximumAge` still decides. Sizes and attributes that the
/// criteria does not read are those of the last scan of the tree, however long ago. Or "false", the
/// default.
inline constexpr char FS_OPTION_VERIFY[] = "verify";
/// How many milliseconds a query waits for other processes and threads that use the cache,
/// before it ends with -52. The default is 60000.
inline constexpr char FS_OPTION_WAIT[] = "wait";

/// Answers queries. Plug-ins implement this class. A host gets an object from
/// `fsLoadProvider`, owns it and deletes it. One thread at a time for a provider; several threads
/// may run queries, each with a provider of its own.
///
/// The order of the operations is part of the binary interface: the library calls
/// `executeQuery` as the sixth function of the virtual table. The destructor counts as two.
class FSCANNER_EXPORT FsProvider {
public:
    virtual ~FsProvider();
    /// The provider's name. Static text.
    virtual const char* name() const = 0;
    /// The result of the last `executeQuery`; 0 before the first. A host needs it to tell
    /// "nothing found" from "failed".
    virtual int lastStatus() const = 0;
    /// Sets an option for the following queries. False, and nothing changes, for an unknown
    /// key or an invalid value.
    virtual bool setOption(const char* key, const char* value) = 0;
    /// Writes the matches of `query` to `writer`; both stay the caller's. `maximumAge` is the
    /// age in seconds that a cached answer may have. `timeout` is in milliseconds. Returns 0
    /// on success, or:
    /// -40 if the cache or the mount table cannot be used;
    /// -41 if a scan ran out of time or was stopped by the observer;
    /// -42 if the same happened while a tree of the cache was rebuilt;
    /// -43 if a path of the query leads to no drive (the other paths were searched);
    /// -44 if file types were asked for and the `file` program cannot be run;
    /// -52 if others kept the cache for too long, or if the query runs inside another query of
    /// its thread and has to build a tree in the same cache.
    virtual int executeQuery(FsResultSetWriter& writer, const FsQuery& query, unsigned maximumAge,
                             unsigned timeout) = 0;
};

/// Watches trees of directories for changes. Plug-ins implement this class. A host gets an object
/// from `FsLoader::loadFsMonitor`, owns it and deletes it. One thread at a time. Starts no thread.
class FSCANNER_EXPORT FsMonitor {
public:
    virtual ~FsMonitor();
    /// The monitor's name. Static text.
    virtual const char* name() const = 0;
    /// Begins to watch the tree of the directory with this absolute path, which holds no link: all
    /// of it that lies on the same file system. Each change that begins after the return is told of
    /// as an event whose path lies in the tree, or is that of a directory that holds the tree. When
    /// the tree is watched already, it is watched anew. 0, or an errno, and then `problem` says in
    /// plain words why the tree cannot be watched, and what can be done. The default: ENOSYS.
    virtual int watch(const wchar_t* path, std::wstring& problem);
    /// Ends that. Events that were not taken yet may still come.
    virtual void unwatch(const wchar_t* path);
    /// A descriptor that can be read, for `poll`, while events wait for `take`. The monitor owns
    /// it. The same for the whole life of the monitor; -1: there is none. The default: -1.
    virtual int descriptor() const;
    /// Adds what the kernel has queued so far to the end of `queue`, in order, without waiting. A
    /// change whose system call returned before is among it. Returns the number of events, or a
    /// negative errno: changes may have been missed. The default: 0.
    virtual int take(FS_Queue& queue);
};

/// The functions that a plug-in defines, one of them or both. Each returns a new object, which
/// belongs to the host, or null. `config` is valid during the call only.
extern "C" FSCANNER_EXPORT FsProvider* createProvider(const FsConfig* config);
extern "C" FSCANNER_EXPORT FsMonitor* createMonitor(const FsConfig* config);

}  // namespace fscanner
