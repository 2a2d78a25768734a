#pragma once

#include "fscanner/export.h"

namespace fscanner {

class FsFileInfo;

/// Why a directory, or part of it, was not searched.
enum class FsSkipReason {
    denied,           ///< no permission to read it
    vanished,         ///< it was gone, or no longer a directory, when it was entered
    tooLong,          ///< its path has 1024 characters or more, and the host wants no such
    excluded,         ///< the query leaves it out
    otherFileSystem,  ///< a mount point that is searched on its own, or left out
    failed,           ///< any other error of the system
    noDrive,          ///< an entry of the query, as written, that leads to no drive
};

/// How far a scan is.
struct FsScanProgress {
    const wchar_t* directory;        ///< the directory being read; valid during the call
    unsigned long long files;        ///< entries seen that are no directories
    unsigned long long directories;  ///< directories read
    unsigned elapsedMilliseconds;    ///< since the walk of this path began
};

/// Watches scans, and waits for a cache. Set process-wide by the host with `fsSetScanObserver`;
/// called on the thread that runs the query, and by several at once where several run one.
/// It must stay alive until the queries that began under it have ended. Override what is of
/// interest.
class FSCANNER_EXPORT FsScanObserver {
public:
    virtual ~FsScanObserver();
    /// Called every so many entries of a walk, and some times a second while criteria with
    /// commands are evaluated over a cache (which counts no directories). False stops that
    /// the way a time-out does.
    virtual bool progress(const FsScanProgress& progress);
    /// Called once per directory that is not (wholly) searched, also for a path of the
    /// query that does not exist; `systemError` is the errno, or 0. The path is valid
    /// during the call.
    virtual void skipped(const wchar_t* directory, FsSkipReason reason, int systemError);
    /// Called for a file on which the criteria could not be evaluated (a name that
    /// holds "*" compared with a pattern; a zero divisor). It does not match.
    virtual void undecided(const FsFileInfo& file);
    /// Called when a walk ends, also when it was stopped, with its totals; the
    /// directory is the one that the walk began at.
    virtual void finished(const FsScanProgress& totals);
    /// Called for each searched path that the cache answers for: no walk looks at it.
    /// What could not be read when it was scanned is told by `skipped`, and `excluded` once
    /// for each exclusion that leaves a directory out.
    virtual void fromCache(const wchar_t* path, unsigned ageSeconds);
    /// Called at once, and then some times a second, while other processes hold the cache
    /// that a query, or a lock with a time limit, waits for. False ends the wait as if
    /// time had run out.
    virtual bool waiting(unsigned elapsedMilliseconds);
};

/// Sets the observer of all later scans (null: none) and returns the old one.
/// The host keeps ownership and the object alive.
FSCANNER_EXPORT FsScanObserver* fsSetScanObserver(FsScanObserver* observer);

/// The observer in force, or null. For the scans inside the library.
FsScanObserver* scanObserver();

}  // namespace fscanner
