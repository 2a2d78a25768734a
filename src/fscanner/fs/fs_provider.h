#pragma once

#include "fscanner/export.h"

namespace fscanner {

class FsConfig;
class FsQuery;
class FsResultSetWriter;

/// Keys of `FsProvider::setOption`, for the providers that keep a cache.
inline constexpr char FS_OPTION_CACHE_DIRECTORY[] = "cache_directory";
inline constexpr char FS_OPTION_MONITORED[] = "monitored";
inline constexpr char FS_OPTION_COMPRESSED[] = "compressed";
/// How many bytes a cache may take: a number, with K, M, G or T behind it for powers of 1024; 0:
/// any. A search that builds something removes the trees that were built first until the rest
/// fits, but none that it needs.
inline constexpr char FS_OPTION_CACHE_LIMIT[] = "cache_limit";
/// No answer comes from a cache, whatever `maximumAge` says: an age of 0 still takes what
/// was cached in the same second.
inline constexpr char FS_OPTION_FRESH[] = "fresh";
/// How long a query waits for others that use the cache, in milliseconds, before it ends with
/// -52; a minute at first.
inline constexpr char FS_OPTION_WAIT[] = "wait";

/// Answers queries. Implemented by plug-ins; a host gets one from
/// `fsLoadProvider`, owns it and deletes it. One query at a time in a process.
///
/// The order of the operations is the binary interface: the library calls
/// `executeQuery` as the sixth, the destructor counting as two.
class FSCANNER_EXPORT FsProvider {
public:
    virtual ~FsProvider();
    /// The provider's name, static.
    virtual const char* name() const = 0;
    /// What the last query returned, so that a host can tell "nothing found" from
    /// "failed"; 0 before the first.
    virtual int lastStatus() const = 0;
    /// Sets an option for the queries to come. False for an unknown key or a value
    /// that does not fit.
    virtual bool setOption(const char* key, const char* value) = 0;
    /// Writes the matches of `query` to `writer`. `maximumAge` is in seconds: how
    /// old a cached answer may be. `timeout` is in milliseconds. Returns 0, or what
    /// went wrong: -40 the cache (or the mount table) cannot be used, -41 a scan ran
    /// out of time, -42 rebuilding a cached tree did, -43 a path leads to no drive, -44
    /// the `file` program is missing.
    virtual int executeQuery(FsResultSetWriter& writer, const FsQuery& query, unsigned maximumAge,
                             unsigned timeout) = 0;
};

/// Watches file systems for a cache. Implemented by plug-ins.
class FSCANNER_EXPORT FsMonitor {
public:
    virtual ~FsMonitor();
    /// The monitor's name, static.
    virtual const char* name() const = 0;
};

/// What a plug-in defines: one of these or both. The result belongs to the host;
/// `config` is valid during the call only.
extern "C" FSCANNER_EXPORT FsProvider* createProvider(const FsConfig* config);
extern "C" FSCANNER_EXPORT FsMonitor* createMonitor(const FsConfig* config);

}  // namespace fscanner
