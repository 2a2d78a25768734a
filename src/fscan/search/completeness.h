#pragma once

#include <chrono>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "fscan/process/exit_status.h"
#include "fscanner/fs/fs_inspect.h"
#include "fscanner/fs/fs_scan_observer.h"

namespace fscan {

class Excludes;
class Matches;
class ProgressLine;
struct Options;
struct SearchRoots;

/// How complete the answer of a search is, for all roots together: how much was walked, what
/// was left out, and which parts came from a cache.
struct Completeness {
    struct Skipped {
        std::string path;  ///< as the user is to see it
        fscanner::FsSkipReason reason;
        int error;   ///< errno
        bool named;  ///< a message has named it
    };
    struct Cached {
        std::string path;
        unsigned ageSeconds;
        std::optional<fscanner::FsVerification> check = {};  ///< without its path
    };

    unsigned walks = 0;
    unsigned long long files = 0;
    unsigned long long directories = 0;
    std::vector<Skipped> skipped;
    std::vector<Cached> cached;
    std::vector<std::string> timedOut;
    unsigned long long undecided = 0;  ///< files for which the criteria could not be evaluated

    void addWalk(const fscanner::FsScanProgress& totals);
    /// Whether a directory could not be read for another reason than missing permission or
    /// removal.
    bool systemFailed() const;
};

/// The end of a search.
struct Outcome {
    unsigned long long matches = 0;
    /// Files that were found and then left out: they were gone, had changed, or could not be
    /// examined, when they were to be printed or given to commands.
    unsigned long long gone = 0;
    unsigned long long changed = 0;
    unsigned long long unexamined = 0;
    ExitStatus status = ExitStatus::found;
    int signal = 0;            ///< that is going to end the process; 0: none
    bool cut = false;          ///< it ended early: the limit was reached, or the reader is gone
    bool interrupted = false;  ///< by a signal
    std::chrono::steady_clock::duration time{};

    /// Whether nothing went wrong.
    bool foundAll() const { return signal == 0 && status <= ExitStatus::nothingFound; }
};

/// Writes to standard error, as the options ask, how much a search found, how long it took,
/// and what was left out.
void tell(const Options& options, const Completeness& search, const Outcome& outcome);

/// The JSON object that says how complete an answer is, for programs.
class Summary {
public:
    /// Empties its file, if any, so that no run leaves the summary of an earlier one.
    explicit Summary(const Options& options);

    /// Whether one is wanted.
    bool wanted() const { return wanted_; }
    /// Whether its file, if any, can be written; a message has been given where not.
    bool writable() const { return writable_; }
    void write(const Completeness& search, const Outcome& outcome);
    /// Whether it was written, or is not wanted.
    bool written() const { return written_ || !wanted_; }

private:
    const std::optional<std::string>& file_;
    bool wanted_;
    bool writable_ = true;
    bool written_ = false;
};

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
    void verified(const fscanner::FsVerification& verification) override;
    bool waiting(unsigned elapsedMilliseconds) override;
    bool enters(const wchar_t* directory) override;

    /// Drops what the cache reported of its answer. To be called before the search is repeated
    /// without the cache.
    void forgetCache();
    void timedOut(const std::string& path) { search_.timedOut.push_back(path); }
    /// Whether a PATH itself could not be searched.
    bool rootSkipped() const { return rootSkipped_; }
    const Completeness& search() const { return search_; }

private:
    bool isRoot(const std::wstring& path) const;
    void noteCycle(const std::wstring& path);
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
