#pragma once

#include "fscanner/export.h"

namespace fscanner {

class FsFileInfo;

/// Why a directory, or part of it, was not searched.
enum class FsSkipReason {
    denied,           ///< there is no permission to read it
    vanished,         ///< it did not exist or was no directory when it was to be entered
    tooLong,          ///< its path has 1024 characters or more, without long-path support
    excluded,         ///< the query excludes it
    otherFileSystem,  ///< it is a mount point that is searched separately, or not at all
    failed,           ///< the system reported any other error
    noDrive,          ///< a path entry of the query, as written, leads to no drive
    cycle,            ///< it is a directory that holds it, reached again through a link
};

/// The progress of a walk.
struct FsScanProgress {
    const wchar_t* directory;        ///< the directory being read; valid during the call
    unsigned long long files;        ///< entries seen, without directories
    unsigned long long directories;  ///< directories read
    unsigned elapsedMilliseconds;    ///< time since the walk of this path began
    /// Directories that there probably are, as the cache had so many of a tree that is read anew;
    /// 0: nobody knows.
    unsigned long long expectedDirectories = 0;
};

/// How the tree of a path in the cache was compared with the disk.
struct FsVerification {
    const wchar_t* path = nullptr;       ///< the path of the query; valid during the call
    unsigned long long directories = 0;  ///< directories looked at
    unsigned long long changed = 0;      ///< those that were not as the cache had them
    unsigned elapsedMilliseconds = 0;    ///< time that this took
    /// Stored sizes and attributes tell which files match: as old as the tree, at most.
    bool storedFacts = false;
    /// A watcher of the cache knew what had changed: only those directories were looked at.
    bool watched = false;
};

/// Is told how scans go on, and of waits for a cache. The host sets one observer for the whole
/// process with `fsSetScanObserver`. It is called on the thread that runs the query; if
/// several threads run queries, several calls may run at once. It must live until every query
/// that began while it was set has ended. It must not throw. The functions do nothing, or
/// return true, unless they are overridden.
class FSCANNER_EXPORT FsScanObserver {
public:
    virtual ~FsScanObserver();
    /// Called about every thousand entries of a walk. Also called several times a second while
    /// criteria with commands are evaluated over a cache, which counts no directories. False
    /// stops the walk or the evaluation like a time-out.
    virtual bool progress(const FsScanProgress& progress);
    /// Called once for each directory that is not searched, or only in part. Also called for a
    /// path of the query that does not exist. `systemError` is the errno, or 0. `directory` is
    /// valid during the call.
    virtual void skipped(const wchar_t* directory, FsSkipReason reason, int systemError);
    /// Called for each file on which the criteria could not be evaluated, such as a division by
    /// 0, or a name that holds "*" and is compared with a pattern. The file does not match.
    virtual void undecided(const FsFileInfo& file);
    /// Called with the totals when a walk ends or is stopped. `directory` is the one where the
    /// walk began.
    virtual void finished(const FsScanProgress& totals);
    /// Called for each path of the query that is answered from the cache, without a walk.
    /// `skipped` is called for the directories that could not be read when the tree was built,
    /// and, with `excluded`, once for each exclusion that leaves a directory out.
    virtual void fromCache(const wchar_t* path, unsigned ageSeconds);
    /// Called while a query, or `FS_Cache::lock` with a time limit, waits for a cache that
    /// others have locked: at once, and then several times a second. False ends the wait like
    /// a time-out.
    virtual bool waiting(unsigned elapsedMilliseconds);
    /// Called after `fromCache` if the tree was compared with the disk for this query. Names in the
    /// answer are then those of the disk, whatever the age of the tree.
    virtual void verified(const FsVerification& verification);
    /// Asked about each directory below a path of the query that a direct scan would enter. False
    /// leaves it out with all below it. Not asked where the cache answers, or is built. `directory`
    /// is valid during the call.
    virtual bool enters(const wchar_t* directory);
};

/// Sets the observer of all scans that begin later, and returns the previous one. Null means no
/// observer. The host keeps ownership of both. Any thread.
FSCANNER_EXPORT FsScanObserver* fsSetScanObserver(FsScanObserver* observer);

/// The current observer, or null. For use inside the library.
FsScanObserver* scanObserver();

}  // namespace fscanner
