#pragma once

#include <set>
#include <string>

#include "fscan/search/completeness.h"
#include "fscanner/fs/fs_inspect.h"
#include "fscanner/fs/fs_scan_observer.h"

namespace fscan {

class Excludes;
class Matches;
class ProgressLine;
struct Options;
struct SearchRoots;

/// Observes the walks: shows progress, notes what could not be searched, decides on files for
/// which the criteria could not be evaluated, and stops walks when no more matches are
/// wanted.
class Watcher : public fscanner::FsScanObserver {
public:
    struct Parts {
        const Options& options;
        const SearchRoots& roots;
        const Excludes& excludes;
        Matches& matches;
        fscanner::FsRecordFilter* where;  ///< the criteria but for the names; null: none
        ProgressLine& line;
    };
    explicit Watcher(const Parts& parts);
    Watcher(const Watcher&) = delete;
    Watcher& operator=(const Watcher&) = delete;
    ~Watcher() override { fsSetScanObserver(previous_); }

    /// Whether the following walks fill the cache. Such a walk continues after the output was
    /// closed, as a partial tree would be useless, and visits also what the query leaves out.
    void expectCaching(bool caching);

    bool progress(const fscanner::FsScanProgress& progress) override;
    void finished(const fscanner::FsScanProgress& totals) override;
    void skipped(const wchar_t* directory, fscanner::FsSkipReason reason, int error) override;
    void undecided(const fscanner::FsFileInfo& file) override;
    void fromCache(const wchar_t* path, unsigned ageSeconds) override;
    bool waiting(unsigned elapsedMilliseconds) override;

    /// Drops what the cache reported of its answer. To be called before the search is repeated
    /// without the cache.
    void forgetCache();
    void timedOut(const std::string& path) { search_.timedOut.push_back(path); }
    /// Whether a PATH itself could not be searched.
    bool rootSkipped() const { return rootSkipped_; }
    const Completeness& search() const { return search_; }

private:
    bool isRoot(const std::wstring& path) const;
    void noteUndecided(const fscanner::FsFileInfo& file);

    Parts parts_;
    fscanner::FsScanObserver* previous_;
    std::set<std::wstring> reported_;
    Completeness search_;
    std::size_t cachedBefore_ = 0;
    unsigned long long undecidedBefore_ = 0;
    bool caching_ = false;
    bool rootSkipped_ = false;
};

}  // namespace fscan
