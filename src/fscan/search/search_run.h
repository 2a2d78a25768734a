#pragma once

#include <memory>

#include "fscan/output/progress_line.h"
#include "fscan/process/exit_status.h"
#include "fscan/search/completeness.h"
#include "fscan/search/matches.h"
#include "fscan/search/search.h"
#include "fscanner/fs/fs_inspect.h"

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
    void hint(const Outcome& outcome) const;
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
