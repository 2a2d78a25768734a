#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>

#include "fscanner/engine/cache_extract.h"
#include "fscanner/engine/cache_tree.h"
#include "fscanner/engine/cache_verify.h"
#include "fscanner/engine/query_plan.h"
#include "fscanner/engine/walk.h"
#include "fscanner/fs/fs_explain.h"

namespace fscanner {

class FsQuery;
class FsResultSetWriter;

/// Which trees of a cache may answer.
struct TreeRules {
    unsigned maxAge;  ///< seconds
    /// Trees of any age are compared with the disk, and brought up to date, where the file system
    /// allows that; `maxAge` then limits the age of sizes and attributes.
    bool verify = false;
    ChangeSource* changes = nullptr;  ///< asked before a tree is compared
};

/// A comparison of a tree with the disk.
struct TreeLook {
    Verification verification;
    unsigned milliseconds = 0;  ///< that it took
    bool watched = false;       ///< a watcher knew what had changed
};

/// The tree that a query found changed under a shared lock. It spares a session that may change the
/// cache the same comparison, as long as nobody has changed the cache.
struct KeptChanges {
    std::optional<CacheStore::Version> version;
    std::wstring path;  ///< empty: there is none
    TreeLook look;
};

/// One query over a cache. There are four ways to run it, by two choices.
///
/// First, how local pairs are answered: `cacheOnly` rebuilds trees that are not young
/// enough, `monitored` takes trees of any age and scans pairs that have none. Second, where
/// the plan comes from: it is made for the call, or kept by the process. Remote and other
/// drives are always scanned directly.
class CacheQuery {
public:
    /// `timeout` is in milliseconds. Without a writer the query can only be explained.
    CacheQuery(CacheStore& store, const FsQuery& query, const TreeRules& rules,
               FsResultSetWriter* writer = nullptr, unsigned timeout = 0);

    /// `success`, `unusable`, `queryTimedOut` or `buildTimedOut`. `name` is the operation's,
    /// for the log.
    Status cacheOnly(const QueryPlan& plan, const char* name);
    Status monitored(const QueryPlan& plan);
    /// Does what `cacheOnly` does before it gives an answer: sees to it that the trees of
    /// the local ones of these pairs are young enough, or up to date. Trees in `known` are not
    /// compared again.
    /// `success`, `unusable` or `buildTimedOut`.
    Status refreshTrees(const QueryPlan& plan, const std::vector<PathDrive>& pairs,
                        KeptChanges& known);
    /// Whether `cacheOnly` would answer without changing the cache: `success`; `needsChange` if it
    /// needs a cache that may be changed; `queryTimedOut` or `unusable`. What it found changed goes
    /// into `changes`.
    Status readiness(const QueryPlan& plan, KeptChanges& changes);
    /// Completes a step that may be answered from the cache.
    void explain(const QueryPlan& plan, const PathDrive& pair, bool monitored, FsPlanStep& step);

private:
    /// The record of a pair's directory in the cache, if there is one.
    struct Found {
        bool record = false;  ///< found; the cursor of the directories stands on it
        unsigned id = 0;
        unsigned built = 0;  ///< the time of its tree, 0 when it has none
    };
    Found find(const PathDrive& pair);
    bool lacksLongPaths(unsigned root);
    void tellOfCached(const wchar_t* path, unsigned built,
                      const FsVerification* verification = nullptr) const;
    bool isYoung(unsigned built) const;

    /// How a tree compares with what the query needs.
    enum class Fitness { fits, tooOld, changed, stopped, damaged };
    Fitness judge(const QueryPlan& plan, const PathDrive& pair, const Found& found);
    Fitness judgeBy(KeptChanges& known, const QueryPlan& plan, const PathDrive& pair,
                    const Found& found);
    Fitness judgeAge(const Found& found) const {
        return isYoung(found.built) ? Fitness::fits : Fitness::tooOld;
    }
    GoesOn goesOnSince(unsigned start, const PathDrive& pair) const;
    Examined examined();
    bool goesByStoredFacts() { return examined() == Examined::matches; }
    bool goesByStoredKinds() const;
    /// How many levels of directories of a pair are searched.
    unsigned levelsOf(const QueryPlan& plan, const PathDrive& pair) const;
    std::wstring keyOf(const QueryPlan& plan, const PathDrive& pair) const;
    bool buildsTree(const QueryPlan& plan, const PathDrive& pair) const;
    std::optional<TreeChanges> changesIn(const PathDrive& pair);
    bool verifies(const Found& found) { return isYoung(found.built) || !goesByStoredFacts(); }
    TreeView viewOf(const QueryPlan& plan, const PathDrive& pair, const GoesOn& goesOn);
    Status bringUpToDate(const QueryPlan& plan, const PathDrive& pair, const Found& found,
                         const char* name);
    void noteVerified(const QueryPlan& plan, const PathDrive& pair);
    Status settle(const QueryPlan& plan, const PathDrive& pair, const Found& found, Fitness fitness,
                  const char* name);
    const CacheStore::Refreshed* refreshed(const QueryPlan& plan, const PathDrive& pair,
                                           const Found& found) const;
    bool needsTree(const QueryPlan& plan, const PathDrive& pair) const;
    bool leavesOut(const QueryPlan& plan, const PathDrive& pair) const;

    WalkStatus scanDirectly(const QueryPlan& plan, const PathDrive& pair);
    Status readTrees(const QueryPlan& plan, const char* name);
    Status serve(const QueryPlan& plan, const PathDrive& pair, const char* name);
    Status refresh(const QueryPlan& plan, const PathDrive& pair, const Found& found,
                   const char* name);
    Status scanInstead(const QueryPlan& plan, const PathDrive& pair);
    bool dropTree(unsigned id);
    std::vector<PathDrive> cachedPairs(const QueryPlan& plan) const;
    ExtractionRequest extractionOf(const QueryPlan& plan, const std::vector<PathDrive>& pairs);

    CacheStore& store_;
    CacheTree tree_;
    const FsQuery& query_;
    FsResultSetWriter* writer_;
    unsigned timeout_;
    unsigned now_;
    unsigned oldest_;  // trees built before are too old; wraps
    bool verify_;
    ChangeSource* source_;
    std::optional<Examined> examined_;
    TreeLook looked_;                                  // the last comparison
    std::map<std::wstring, FsVerification> verified_;  // by `keyOf`: trees that are up to date
    std::set<std::wstring, std::less<>> scanned_;      // paths of local pairs that were scanned
};

/// A plan that a process keeps between queries. The mount table is read for each query. The
/// drives are listed anew when the table has changed, and the paths are resolved anew when
/// something that they depend on has changed. Any thread may ask at any time; a plan that
/// was given out does not change.
class KeptPlan {
public:
    /// Null when the mount table cannot be read.
    std::shared_ptr<const QueryPlan> refresh(const FsQuery& query);

private:
    /// What a plan is made of.
    struct Basis {
        MountTable table;
        /// Where the paths lead: the current directory and links are in it.
        std::vector<std::wstring> places;
        std::vector<PathInfo> includedPaths;
        std::vector<PathInfo> excludedPaths;
        std::vector<FileSystemInfo> includedFileSystems;
        std::vector<FileSystemInfo> excludedFileSystems;

        bool operator==(const Basis& other) const;
    };

    struct Kept {
        QueryPlan plan;
        Basis basis;
    };

    std::mutex guard_;
    std::shared_ptr<const Kept> kept_;
};

/// Whether two lists are equal, entry by entry.
bool samePathList(const std::vector<PathInfo>& a, const std::vector<PathInfo>& b);
bool sameFileSystemList(const std::vector<FileSystemInfo>& a, const std::vector<FileSystemInfo>& b);

}  // namespace fscanner
