#pragma once

#include <memory>
#include <optional>
#include <string>

#include "fscan/cache/cache_place.h"
#include "fscan/output/progress_line.h"
#include "fscan/process/interruption.h"
#include "fscan/search/completeness.h"
#include "fscan/search/matches.h"
#include "fscan/search/search.h"
#include "fscanner/fs/fs_inspect.h"
#include "fscanner/fs/fs_provider.h"

namespace fscan {

class SortedMatches;

/// Searches the roots, passes the matches on and tells how complete the answer is. `run` may be
/// called once.
class SearchRun {
public:
    SearchRun(const Search& search, MatchConsumer& consumer, FileExaminer& examiner,
              FactsNeeded needed, Output& out);
    ~SearchRun();

    /// `incomplete`: a PATH could not even be searched. Does not return where a signal is to
    /// end the process.
    ExitStatus run(bool incomplete, Summary& summary);

private:
    ExitStatus searchRoots();
    ExitStatus searchRoot(const SearchRoot& root);
    int askWithFallback(const SearchRoot& root);
    int ask();
    ExitStatus deliver(ExitStatus status);
    ExitStatus overall(ExitStatus status, bool incomplete) const;
    void conclude(ExitStatus status, Outcome& outcome) const;
    void noteUnmetExcludes(const Outcome& outcome) const;
    bool violatesStrict() const;
    bool readerGone() const;

    const Search& search_;
    MatchConsumer& consumer_;
    Output& out_;
    FileExaminer& examiner_;
    DetailedMatches detailed_;               ///< passes on to the consumer
    MatchSink& last_;                        ///< `detailed_` or the consumer
    std::unique_ptr<SortedMatches> sorter_;  ///< null where matches are not sorted
    std::unique_ptr<fscanner::FsRecordFilter> rest_;
    Matches matches_;
    ProgressLine line_;
    Watcher watcher_;
    MatchWriter writer_;
};

}  // namespace fscan

namespace fscanner {
class FsQuery;
class FsResultSetWriter;
}  // namespace fscanner

namespace fscan {

struct Options;

/// The provider that answers the searches of this run, its cache and its limits.
struct ProviderSession {
    std::unique_ptr<fscanner::FsProvider> provider;
    CachePlace place;
    bool cached = false;  ///< the provider keeps a cache, at `place`
    unsigned maximumAge = 0;
    unsigned timeoutMilliseconds = 0;

    /// Loads the provider and sets its cache directory. Where the default directory cannot be
    /// used, the provider without a cache is loaded, with a warning. Nothing, with a message,
    /// where no provider can be loaded.
    static std::optional<ProviderSession> prepare(const Options& options);

    /// The maximum age as `FS_Cache` takes it, where 0 has another meaning.
    unsigned ageLimit() const;
    int run(fscanner::FsResultSetWriter& writer, const fscanner::FsQuery& query) const;
    /// Whether the observer hears of the directories that the query leaves out.
    bool reportsExclusions() const;
    /// If the search failed with this code because of the cache, the rest of the run goes on
    /// without it. False where it failed for another reason. Unless `quiet`, a note says why.
    bool goOnWithoutCache(int code, bool quiet);
    /// Tells the user what is wrong with the search of PATH, by its result.
    ExitStatus report(int code, const std::string& path) const;
};

}  // namespace fscan
